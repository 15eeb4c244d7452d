// Changing one value in a profile's text, everything else kept as it is.
#pragma once

#include <string>
#include <string_view>

namespace korx::tool {

// The text with the value set: in the first such key of the first such section, else in a new line
// below the header, else in a new section at the end. section carries its brackets.
std::string EditProfileText(std::string_view text, const std::string& section,
                            const std::string& key, const std::string& value);

}  // namespace korx::tool
