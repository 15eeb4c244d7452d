// Profiles inside the library: owned, and loaded with a status.
#pragma once

#include <fcntl.h>

#include <memory>
#include <optional>

#include "base/text.h"
#include "base/unique.h"
#include "ini/lines.h"
#include "korx/ini.h"

namespace korx {

using Profile = std::unique_ptr<KORX_IniSection, Releaser<KORX_FreeProfile>>;

// For reading and locking a profile, which takes write permission. Never blocks, also not in later
// reads, and never makes a terminal the process's own, whatever the name leads to.
constexpr int kOpenProfile = O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Resolves the name of a profile or of a file beside it, and opens what it leads to; both in one
// call where the name is its own resolution, as most are. Returns the code of the resolution; where
// only the opening failed there is no descriptor, and errno tells why.
uint32_t OpenResolved(const char* file, int flags, mode_t mode, DirectoryText* path, UniqueFd* fd);

// Reads a whole profile that is open at its start. The profile is empty after a failure.
LoadStatus LoadProfile(int fd, Profile* profile);

KORX_IniSection* FindSection(KORX_IniSection* profile, const char* name);
KORX_IniKey* FindKey(KORX_IniSection* section, const char* name);

// Whether the line that a save writes for a key would be read back as the header of a section: the
// keys below it would be in there.
bool ReadsAsSection(const char* key, const char* value);

// The result of one try of a change; none if others replaced a file of the profile meanwhile. Then
// it starts over, so many times at most.
using TryResult = std::optional<uint32_t>;
constexpr int kMaxTries = 16;

// Saves a profile that was loaded from what old has open and path names, while no other change of
// it is at work. The messages call it file. Result: as that of KORX_IniSaveFile.
TryResult SaveChange(const char* file, const char* path, int old, const KORX_IniSection* profile);

}  // namespace korx
