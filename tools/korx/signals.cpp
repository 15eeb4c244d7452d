#include "signals.h"

#include <errno.h>
#include <signal.h>
#include <time.h>

#include <algorithm>

namespace korx::tool {
namespace {

volatile sig_atomic_t stopped = 0;

void Stop(int) {
    stopped = 1;
}

int64_t MonotonicMicroseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

}  // namespace

void CatchStopSignals() {
    struct sigaction action = {};
    action.sa_handler = Stop;  // without SA_RESTART, so that a wait ends
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested() {
    return stopped != 0;
}

int64_t EndOfWait(double seconds) {
    constexpr double kLongest = 1e9;
    return MonotonicMicroseconds() + static_cast<int64_t>(std::min(seconds, kLongest) * 1e6);
}

Wake PollOrStop(pollfd* waiting, unsigned count, int64_t end_us) {
    // The signals come through inside ppoll only, so that none is missed just before it.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    int ready = -1;
    while (stopped == 0 && ready < 0) {
        const int64_t rest = std::max<int64_t>(end_us - MonotonicMicroseconds(), 0);
        const timespec timeout = {rest / 1000000, rest % 1000000 * 1000};
        ready = ppoll(waiting, count, end_us == kNever ? nullptr : &timeout, &before);
        if (ready < 0 && errno != EINTR)
            break;
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return stopped != 0 ? Wake::kStop : ready == 0 ? Wake::kTime : Wake::kReady;
}

}  // namespace korx::tool
