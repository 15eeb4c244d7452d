#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "common.h"

namespace korx::tool {

struct Mount {
    std::string directory;
    uint64_t size = 0;
    uint64_t used = 0;
    uint64_t available = 0;
    uint32_t percent = 0;  // as the space-full log records it
};

// Every mounted file system that has blocks.
std::vector<Mount> MountedFileSystems();

struct SpaceOptions {
    bool record = true;
};
int RunSpace(const Globals& globals, const SpaceOptions& options);

}  // namespace korx::tool
