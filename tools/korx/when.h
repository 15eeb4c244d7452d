// Times on the command line.
#pragma once

#include <stdint.h>
#include <time.h>

#include <optional>
#include <string>

namespace korx::tool {

// Which moment a local time means that comes twice, when clocks are put back.
enum class Twice { kEarlier, kLater };

// Microseconds since the Epoch for "2024-03-05 14:07:09.5", "2024-03-05T13:07:09Z", "2024-03-05",
// "14:07" (today), "@1709644029", "now", "today", "yesterday" or an age such as "-90m", "2h" or
// "1d12h". Without a zone it is local time. None for a day that its month does not have. now_us:
// the time that ages count from.
std::optional<int64_t> ParseWhen(const std::string& text, int64_t now_us,
                                 Twice twice = Twice::kEarlier);

// Since the Epoch.
int64_t Microseconds(const timespec& time);
int64_t NowMicroseconds();

}  // namespace korx::tool
