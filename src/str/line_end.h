#pragma once

#include <stddef.h>

#include <string_view>

namespace korx {

// How much of a line is its end. A text of one or two characters keeps its first one, even where
// that is a line end.
inline size_t LineEndLength(std::string_view line) {
    if (line.size() > 2 && line.ends_with("\r\n"))
        return 2;
    return line.size() >= 2 && (line.back() == '\r' || line.back() == '\n') ? 1 : 0;
}

}  // namespace korx
