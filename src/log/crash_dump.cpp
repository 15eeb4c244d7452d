// The crash dump: the call stack, then the end of the process.
#include "korx/log.h"

#include <execinfo.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/report.h"
#include "base/unique.h"

namespace korx {
namespace {

constexpr int kCrashStatus = 0x71000005;
constexpr int kMaxFrames = 32;
constexpr unsigned kDumpSeconds = 5;

// The crash may have left a lock of the C library or of another thread held, and the dump needs
// them: whatever it then waits for, the process ends.
void ArmDumpWatchdog() {
    struct sigaction action = {};
    action.sa_handler = [](int) { _exit(kCrashStatus); };
    (void) sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm_only;
    (void) sigemptyset(&alarm_only);
    (void) sigaddset(&alarm_only, SIGALRM);
    (void) pthread_sigmask(SIG_UNBLOCK, &alarm_only, nullptr);
    (void) alarm(kDumpSeconds);
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_DumpBacktraceHandler(void) {
    ArmDumpWatchdog();
    Log(kLevelInfo, "*******Start to get backtrace info*******");
    void* frames[kMaxFrames];
    const int depth = backtrace(frames, kMaxFrames);
    if (depth < 0) {
        Log(kLevelErr, "Get backtrace depth unsuccessfully");
        exit(kCrashStatus);
    }
    Log(kLevelInfo, "Current stack depth is %d", depth);

    const MallocPtr<char*> symbols(backtrace_symbols(frames, depth));
    if (!symbols) {
        Log(kLevelErr, "Get backtrace_symbols unsuccessfully");
        exit(kCrashStatus);
    }
    for (int i = 0; i < depth; ++i)
        Log(kLevelErr, "%s", symbols.get()[i]);
    _exit(kCrashStatus);
}
