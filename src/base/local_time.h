#pragma once

#include <sys/time.h>
#include <time.h>

#include "base/lock.h"

namespace korx {

// The time now, and what the clock on the wall shows. A changed time zone takes effect at once.
struct LocalNow {
    [[gnu::noinline]] LocalNow() {
        (void) gettimeofday(&now, nullptr);
        const MutexGuard no_fork_meanwhile(libc_time_mutex);
        tzset();
        (void) localtime_r(&now.tv_sec, &local);
    }
    unsigned long micros() const { return static_cast<unsigned long>(now.tv_usec); }

    struct timeval now = {};
    struct tm local = {};
};

}  // namespace korx
