#pragma once

#include <stdint.h>

#include "korx/container.h"

namespace korx {

// The lowest empty slot from one on, below which the caller knows of none: whoever fills a vector
// need not look at what he has filled again.
inline uint32_t EmptySlotFrom(const ORX_VEC_Vector* vector, uint32_t slot) {
    while (slot < vector->uiUsedSlots && vector->ppSlots[slot] != nullptr)
        ++slot;
    return slot;
}

}  // namespace korx
