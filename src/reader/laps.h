// The two laps of text that is written over from its beginning again and again.
//
//     | newest lap ........ | rest | old lap ......................... | stale |
//     begin            newest_end                                  until
//
// The newest lap is written from begin on over what the lap before it left. It has cut into a
// record of that old lap, whose rest is no record; behind it stands what is left of the old lap, up
// to where that ended. Where the file doesn't say where that was, there may be text behind it which
// still older laps have left.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "reader/image.h"
#include "reader/stretch.h"

namespace korx {

// How the old lap ends: at until, cut at until, or somewhere within a record's length before it.
enum class OldEnd { kKnown, kCut, kUnknown };

struct Laps {
    size_t begin;
    size_t newest_end;
    size_t until;
    OldEnd old_end = OldEnd::kKnown;
    ZeroTail newest_zeros = ZeroTail::kDamage;
    uint8_t section = 0;
};

// Adds the entries of both, the old one's first, and what is wrong with them.
void ReadLaps(const Laps& laps, LogImage* image);

// Laps of which nobody says where the newest one ends; only the time stamps do.
struct UnmarkedLaps {
    size_t begin;
    size_t end;
    uint64_t usual_size;  // of a file that has wrapped; 0: there is none
    uint8_t section = 0;
};

// The same for them. Whether there is an old lap.
bool ReadUnmarkedLaps(const UnmarkedLaps& laps, LogImage* image);

// Marks the entries from first on that are older than the one before.
void MarkClockSetBack(size_t first, LogImage* image);

}  // namespace korx
