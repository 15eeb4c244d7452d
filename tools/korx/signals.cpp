#include "signals.h"

#include <errno.h>
#include <signal.h>

namespace korx::tool {
namespace {

volatile sig_atomic_t stopped = 0;

void Stop(int) {
    stopped = 1;
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

Wake PollOrStop(pollfd* waiting, unsigned count) {
    // The signals come through inside ppoll only, so that none is missed just before it.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    int ready = -1;
    while (stopped == 0 && ready < 0) {
        ready = ppoll(waiting, count, nullptr, &before);
        if (ready < 0 && errno != EINTR)
            ready = 0;
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return stopped != 0 ? Wake::kStop : Wake::kReady;
}

}  // namespace korx::tool
