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

// What happens to records that nobody has taken when their room is needed.
enum class Unread { kOverwritten, kProtected };

// What a head is judged by.
struct RingBounds {
    uint64_t room;     // of the data area, by the size of the file
    uint32_t longest;  // record, with its line end
    Unread unread;
};

enum class HeadFault { kNone, kLogLen, kTotalLen, kOrder, kDumpLen };

// Whether a record of this length would end beyond the limit. A corrupt head may hold any length,
// so the sum is taken in 64 bits.
constexpr bool ReachesLimit(const LOG_HEAD_S& head, uint32_t length, uint32_t limit) {
    return uint64_t{head.uiLogLen} + length + kRingHeadSize > limit;
}

// Before the first wrap the file and the head part by less than a record, in either direction: a
// writer may have ended before it entered its record in the head, or before it entered the wrap for
// which it had already brought the file to its limit; and a short write counts as a whole one, so
// that the newest record may reach beyond the file.
constexpr bool IsLogLenBeforeWrap(uint32_t log_len, const RingBounds& bounds) {
    return log_len < bounds.room + bounds.longest &&
           bounds.room <= uint64_t{log_len} + bounds.longest;
}

// What no writer and no reader leaves behind; the one place that says so. A file that has wrapped
// has the size of its limit for good, and each of its laps ends where the next record would have
// crossed that, or beyond the lap before. So a lap is never shorter than the file by a record.
//
// The reader's position lies in a lap that it has seen. The writers that protect unread records end
// no lap before it; the others may have ended a few that were a little shorter.
constexpr HeadFault FaultOf(const LOG_HEAD_S& head, const RingBounds& bounds) {
    const bool wrapped = head.uiTotalLen != 0;
    if (wrapped ? head.uiLogLen > bounds.room : !IsLogLenBeforeWrap(head.uiLogLen, bounds))
        return HeadFault::kLogLen;
    if (!wrapped)
        return head.uiDumpLen > head.uiLogLen ? HeadFault::kDumpLen : HeadFault::kNone;
    if (head.uiTotalLen > bounds.room || uint64_t{head.uiTotalLen} + bounds.longest <= bounds.room)
        return HeadFault::kTotalLen;
    if (head.uiLogLen >= head.uiTotalLen)
        return HeadFault::kOrder;
    const uint64_t last = bounds.unread == Unread::kProtected ? head.uiTotalLen : bounds.room;
    return head.uiDumpLen > last ? HeadFault::kDumpLen : HeadFault::kNone;
}

}  // namespace korx
