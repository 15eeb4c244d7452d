#pragma once

#include <stdint.h>

#include "format/ring.h"

namespace korx {

// How much of a ring's file has to be read, by its head.
uint64_t NeededOfRing(const LOG_HEAD_S& head, uint64_t file_size);

}  // namespace korx
