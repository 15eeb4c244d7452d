#pragma once

#include <sys/time.h>
#include <time.h>

namespace korx {

// The time now, and what the clock on the wall shows. A changed time zone takes effect at once.
struct LocalNow {
    LocalNow() {
        (void) gettimeofday(&now, nullptr);
        tzset();
        (void) localtime_r(&now.tv_sec, &local);
    }
    unsigned long micros() const { return static_cast<unsigned long>(now.tv_usec); }

    struct timeval now = {};
    struct tm local = {};
};

}  // namespace korx
