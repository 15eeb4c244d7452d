// A profile's text, line by line as the loader reads it, with what it makes of each.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

namespace korx::tool {

struct IniLine {
    enum Kind { kBlank, kComment, kSection, kKey, kIgnored };

    Kind kind = kBlank;
    size_t number = 0;             // of the line in the file, from 1
    size_t begin = 0;              // the piece that was read, in the text
    size_t end = 0;                // behind its line end
    size_t content_end = 0;        // before its line end
    bool is_continuation = false;  // the rest of a line that is longer than one read
    bool is_cut = false;           // and this is a part with more to come
    std::string name;              // section with brackets, or key, as the loader keeps it
    std::string value;             // as stored, quotes included
    size_t value_begin = 0;        // in the text
    size_t value_end = 0;
    bool has_equals = false;
    bool is_refused = false;  // the loader refuses the whole file because of it
};

std::vector<IniLine> SplitLines(std::string_view text);

// What a profile's author may not expect.
struct IniFinding {
    size_t line;
    const char* rule;    // a stable short name
    const char* effect;  // "refused", "cut", "reinterpreted" or "ignored"
    std::string text;
};

std::vector<IniFinding> CheckProfile(std::string_view text);

constexpr size_t kIniMaxName = 64;
constexpr size_t kIniMaxValue = 256;

}  // namespace korx::tool
