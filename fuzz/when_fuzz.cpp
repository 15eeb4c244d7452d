// A time expression: what it means, written out with its zone, means the same.
#include "when.h"

#include <stdio.h>

#include "support.h"

using namespace korx::fuzz;
using namespace korx::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool has_zone = setenv("TZ", "Europe/Berlin", 1) == 0;
    Require(has_zone);
    constexpr int64_t kNow = 1709644029123456;
    const std::string text(View(data, size));
    const auto earlier = ParseWhen(text, kNow, Twice::kEarlier);
    const auto later = ParseWhen(text, kNow, Twice::kLater);
    Require(earlier.has_value() == later.has_value());
    if (!earlier)
        return 0;
    Require(*earlier <= *later);
    const int64_t fraction = (*later % 1000000 + 1000000) % 1000000;
    const time_t seconds = (*later - fraction) / 1000000;
    struct tm date = {};
    if (gmtime_r(&seconds, &date) == nullptr || date.tm_year < -900 || date.tm_year > 8000)
        return 0;
    char written[64];
    written[strftime(written, sizeof written, "%Y-%m-%dT%H:%M:%S", &date)] = '\0';
    char rest[16];
    (void) snprintf(rest, sizeof rest, ".%06dZ", static_cast<int>(fraction));
    Require(ParseWhen(std::string(written) + rest, kNow) == later);
    return 0;
}
