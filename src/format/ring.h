// The ring of the diagnostic record, security and life-cycle logs: a head of 12 bytes, then the
// data area, in which each record follows the one before until a lap begins again at its start.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "korx/plog.h"

static_assert(sizeof(LOG_HEAD_S) == 12);
static_assert(offsetof(LOG_HEAD_S, uiLogLen) == 0);
static_assert(offsetof(LOG_HEAD_S, uiDumpLen) == 4);
static_assert(offsetof(LOG_HEAD_S, uiTotalLen) == 8);

namespace korx {

inline constexpr uint32_t kRingHeadSize = sizeof(LOG_HEAD_S);

// Whether a record of this length would end beyond the limit. A corrupt head may hold any length,
// so the sum is taken in 64 bits.
constexpr bool ReachesLimit(const LOG_HEAD_S& head, uint32_t length, uint32_t limit) {
    return uint64_t{head.uiLogLen} + length + kRingHeadSize > limit;
}

}  // namespace korx
