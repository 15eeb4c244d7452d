// The space-full log: how its records are printed, and the share of a file system that is used.
#pragma once

#include <stdint.h>
#include <sys/statfs.h>

namespace korx {

// What is reserved while there is room; a file that holds more is started anew, with the header.
inline constexpr uint32_t kSpaceReserve = 5120;
inline constexpr char kSpaceHeader[] = "[orx_spacefull] start:\r\n]";
inline constexpr uint32_t kSpaceHeaderLength = sizeof kSpaceHeader - 1;

// Year, month, day, hour, minute, second as int; microseconds as unsigned long; name; percent.
inline constexpr char kSpaceFormat[] = "[%04d%02d%02d-%02d:%02d:%02d.%06lu]%100s%10u\r\n";
inline constexpr uint32_t kSpaceNameField = 100;
inline constexpr uint32_t kSpaceValueField = 10;
inline constexpr uint32_t kMaxSpaceRecord = 4096;  // a mount directory may be that long

// The share of the used blocks in those that ordinary users can use, to the nearest percent. Wide
// enough for any two block counts and their product with 100.
inline uint32_t UsedPercent(const struct statfs& fs) {
    using Wide = unsigned __int128;
    const Wide used = fs.f_blocks > fs.f_bfree ? fs.f_blocks - fs.f_bfree : 0;
    const Wide usable = used + fs.f_bavail;
    return usable == 0 ? 0 : static_cast<uint32_t>((used * 100 + usable / 2) / usable);
}

}  // namespace korx
