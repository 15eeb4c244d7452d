// Changing a profile's text, one key at a time, everything else kept as it is.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace korx::tool {

struct IniChange {
    std::string section;  // with its brackets
    std::string key;
    std::optional<std::string> value;  // none: the key is taken out
};

// Where a section that is not there yet goes.
enum class NewSection { kAtEnd, kAtTop };

// The text with the change in it. A value is set in the first such key of the first such section,
// else in a new line below the header, else in a new section. A key is taken out as often as the
// section that is searched has it: its next line would come to light otherwise. Nothing if the
// loader would read more or less than the change out of the result, as where it reads a long line
// in pieces.
std::optional<std::string> EditProfileText(std::string_view text, const IniChange& change,
                                           NewSection place = NewSection::kAtEnd);

// Whether a lookup would find it.
bool HasKey(std::string_view text, const std::string& section, const std::string& key);

// The text as the library writes what it has read of it: sections and keys, nothing else. Nothing
// if that would cut a line or make it another one.
std::optional<std::string> PlainProfileText(std::string_view text);

}  // namespace korx::tool
