// Time stamps as the logs write them, and what moment they stand for.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "format/stamp.h"

namespace korx {

constexpr int64_t kMicrosPerSecond = 1000000;

struct CivilTime {
    int32_t year;
    uint32_t month;
    uint32_t day;
    uint32_t hour;
    uint32_t minute;
    uint32_t second;
    uint32_t micros;
};

// The length of the stamp with which a text begins, or 0 when there is none of this style.
size_t ParseStamp(StampStyle style, std::string_view text, CivilTime* time);

// Whether a stamp of the usual length stands there with at most a few bytes wrong in it.
bool ResemblesStamp(StampStyle style, std::string_view text);

// Whether what is left of a text could go on as a stamp.
bool BeginsStamp(StampStyle style, std::string_view text);

// Turns local times into moments. Asking the C library for each record would take longer than all
// the rest, so the offset is looked up once a day; only around a change of the clocks each time is
// looked at by itself.
class LocalClock {
  public:
    LocalClock();

    struct Moment {
        int64_t micros;      // since the Epoch
        int32_t utc_offset;  // in seconds east
    };
    // after: the moment of the record before. It decides which of the two is meant by a time that
    // the clocks show twice.
    Moment resolve(const CivilTime& time, int64_t after);

  private:
    void look_up(int64_t day);

    int64_t day_ = INT64_MIN;
    int32_t before_ = 0;  // offsets on either side of the day
    int32_t behind_ = 0;
};

}  // namespace korx
