// What a changed profile must be read as.
#pragma once

#include <optional>

#include "support.h"

namespace korx::fuzz {

enum class Top { kOfSectionOnly, kOfFileToo };

inline Profile Changed(Profile profile, const std::string& name, const std::string& key,
                       const std::optional<std::string>& value, Top top) {
    const auto is_named = [&name](const Section& section) { return section.name == name; };
    auto section = std::find_if(profile.begin(), profile.end(), is_named);
    if (!value) {
        if (section != profile.end())
            std::erase_if(section->keys, [&key](const auto& pair) { return pair.first == key; });
        return profile;
    }
    if (section == profile.end())
        section =
            profile.insert(top == Top::kOfFileToo ? profile.begin() : profile.end(), {name, {}});
    const auto found = std::find_if(section->keys.begin(), section->keys.end(),
                                    [&key](const auto& pair) { return pair.first == key; });
    if (found != section->keys.end())
        found->second = *value;
    else
        section->keys.emplace(section->keys.begin(), key, *value);
    return profile;
}

}  // namespace korx::fuzz
