// Profiles through the library's loader.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "files.h"
#include "korx/ini.h"

namespace korx::tool {

struct FreeProfile {
    void operator()(KORX_IniSection* profile) const { KORX_FreeProfile(profile); }
};
using Profile = std::unique_ptr<KORX_IniSection, FreeProfile>;

// The text of a profile. Throws Failure.
std::string ProfileText(const std::string& file);
// From a descriptor at its beginning; the Failure names it file.
std::string OpenProfileText(const UniqueFd& fd, const std::string& file);

// Throws Failure, with the line, for a text that the loader refuses as a whole.
void RefuseUnloadable(const std::string& file, std::string_view text);

// Opened for reading only, unlike the library's lookups, which need write permission. Null for a
// file without sections and for one that the loader refuses. Throws Failure when it cannot be
// opened.
Profile LoadProfile(const std::string& file);
// Null only for a file without sections.
Profile LoadWholeProfile(const std::string& file);

const KORX_IniKey* FindKey(const KORX_IniSection* profile, const std::string& section,
                           const std::string& key);

// The value as the library's lookups return it: without the quotes around it. Nothing when the
// closing quote is missing.
std::optional<std::string> LookupValue(const KORX_IniKey& key);

// Section names carry their brackets; on the command line they may be left out.
std::string Bracketed(const std::string& section);

}  // namespace korx::tool
