// The time stamps at the beginning of every record: how they are printed, and the same as shapes in
// which '0' stands for any digit.
#pragma once

#include <stddef.h>

namespace korx {

enum class StampStyle {
    kDashed,   // [2024-03-05 14:07:09.004211]
    kShort,    // [240305-14:07:09.004211]
    kCompact,  // [20240305-14:07:09.004211]
};

// Arguments: year, month, day, hour, minute, second as int (kShort: as unsigned, with the year
// counted from 2000), microseconds as unsigned long.
inline constexpr char kDashedFormat[] = "[%04d-%02d-%02d %02d:%02d:%02d.%06lu]";
inline constexpr char kShortFormat[] = "[%02u%02u%02u-%02u:%02u:%02u.%06lu]";

inline constexpr char kDashedShape[] = "[0000-00-00 00:00:00.000000]";
inline constexpr char kShortShape[] = "[000000-00:00:00.000000]";
inline constexpr char kCompactShape[] = "[00000000-00:00:00.000000]";

// Their lengths while the year has its usual number of digits.
inline constexpr size_t kDashedStamp = sizeof kDashedShape - 1;
inline constexpr size_t kShortStamp = sizeof kShortShape - 1;
inline constexpr size_t kCompactStamp = sizeof kCompactShape - 1;
static_assert(kDashedStamp == 28 && kShortStamp == 24 && kCompactStamp == 26);

struct StampShape {
    const char* shape;
    size_t length;
};

constexpr StampShape ShapeOf(StampStyle style) {
    switch (style) {
        case StampStyle::kShort:
            return {kShortShape, kShortStamp};
        case StampStyle::kCompact:
            return {kCompactShape, kCompactStamp};
        case StampStyle::kDashed:
            break;
    }
    return {kDashedShape, kDashedStamp};
}

}  // namespace korx
