// Places in logs as a word that survives the command: what --show-cursor prints.
#pragma once

#include <string>
#include <vector>

#include "korx/reader.h"

namespace korx::tool {

// The place in the log of that name.
struct NamedMark {
    std::string file;
    korx_mark mark;
};

// One word without anything that a shell or JSON would change. Nobody but ParseCursorToken knows
// what stands in it.
std::string CursorToken(const std::vector<NamedMark>& marks);

// Throws Failure for a text that CursorToken has not made, or that lost a part since.
std::vector<NamedMark> ParseCursorToken(const std::string& token);

}  // namespace korx::tool
