// Changing one value in a profile's text, everything else kept as it is.
#pragma once

#include <string>
#include <string_view>

namespace korx::tool {

// The text with the value set: in the first such key of the first such section, else in a new line
// below the header, else in a new section at the end. section carries its brackets.
std::string EditProfileText(std::string_view text, const std::string& section,
                            const std::string& key, const std::string& value);

// Replaces the value in the file under the library's locks and in the library's way: F+, synced,
// F- as backup, rename, directory synced. Throws Failure; the file is then as it was.
void EditProfile(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value);

constexpr size_t kMaxProfile = 16 << 20;

}  // namespace korx::tool
