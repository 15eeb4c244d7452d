// Changes of permission bits, worked out from the very file that they are set on.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "base/unique.h"

namespace korx {

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kWriteBits = 0222;

// Which of a file's permission bits stay, and which are added to them.
struct ModeChange {
    mode_t kept;
    mode_t added;
};
constexpr ModeChange kTakeWriteRight = {kPermissionBits & ~kWriteBits, 0};
constexpr ModeChange kGiveWriteRight = {kPermissionBits, kWriteBits};

// Changes an opened file, or reports a failed open (fd holds nothing, errno tells why). path is the
// file's name in the messages and is not looked up.
uint32_t ChangeMode(const UniqueFd& fd, const char* path, ModeChange change);

}  // namespace korx
