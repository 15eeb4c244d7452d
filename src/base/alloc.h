#pragma once

#include <stdlib.h>
#include <string.h>

namespace korx {

// Zero-filled memory for free(); null when there is none.
inline void* AllocateZeroed(size_t size) {
    void* const memory = malloc(size);
    if (memory != nullptr)
        memset(memory, 0, size);
    return memory;
}

}  // namespace korx
