// The crash dump: the call stack, then the end of the process, whatever else happens.
//
// The dump needs the C library (memory, the stack's symbols) and the log's locks, and the crash may
// have left any of them broken or held. So two guards are set before it: a fault inside the dump
// ends the process at once, and a watchdog ends a dump that hangs. Neither needs the heap, and
// nothing in the process can take the watchdog's time away: it is no signal, but a thread that the
// C library does not know, with all signals blocked.
#include "korx/log.h"

#include <execinfo.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "base/report.h"
#include "base/unique.h"

namespace korx {
namespace {

constexpr int kCrashStatus = 0x71000005;
constexpr int kMaxFrames = 32;
constexpr time_t kDumpSeconds = 5;

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};

// In the program's own memory: at a crash there may be no other.
alignas(16) constinit char watch_stack[16384];
alignas(16) constinit char fault_stack[16384];

constinit std::atomic<pid_t> dumping_thread = 0;

// A thread that crashes while another one dumps has nothing to add that the dump should be cut for.
[[noreturn]] void AwaitTheEnd() {
    for (;;)
        (void) pause();
}

void OnFaultInDump(int) {
    if (gettid() == dumping_thread.load())
        _exit(kCrashStatus);
    AwaitTheEnd();
}

// Shares the crashed thread's thread-local area, so it makes bare system calls only.
__attribute__((no_sanitize("address", "thread", "undefined"))) int Watch(void*) {
    struct timespec left = {.tv_sec = kDumpSeconds, .tv_nsec = 0};
    (void) syscall(SYS_nanosleep, &left, nullptr);
    (void) syscall(SYS_exit_group, kCrashStatus);
    return 0;
}

void StartWatchdog() {
    constexpr int kFlags =
        CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM;
    sigset_t all;
    sigset_t before;
    (void) sigfillset(&all);
    (void) pthread_sigmask(SIG_SETMASK, &all, &before);
    const int started = clone(Watch, watch_stack + sizeof watch_stack, kFlags, nullptr);
    (void) pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started >= 0)
        return;
    // No more threads are to be had: then at least a signal.
    struct sigaction action = {};
    action.sa_handler = [](int) { _exit(kCrashStatus); };
    (void) sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm_only;
    (void) sigemptyset(&alarm_only);
    (void) sigaddset(&alarm_only, SIGALRM);
    (void) pthread_sigmask(SIG_UNBLOCK, &alarm_only, nullptr);
    (void) alarm(kDumpSeconds);
}

// The process's own handlers would start another dump, and where they are blocked the kernel would
// end the process by the signal.
void GuardAgainstFaults() {
    stack_t stack = {.ss_sp = fault_stack, .ss_flags = 0, .ss_size = sizeof fault_stack};
    (void) sigaltstack(&stack, nullptr);  // fails on an alternate stack, which then serves again
    struct sigaction action = {};
    action.sa_handler = OnFaultInDump;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    sigset_t fatal;
    (void) sigemptyset(&fatal);
    for (const int number : kFatalSignals) {
        (void) sigaction(number, &action, nullptr);
        (void) sigaddset(&fatal, number);
    }
    (void) pthread_sigmask(SIG_UNBLOCK, &fatal, nullptr);
}

void BeginDump() {
    pid_t other = 0;
    if (!dumping_thread.compare_exchange_strong(other, gettid())) {
        if (other == gettid())
            _exit(kCrashStatus);
        AwaitTheEnd();
    }
    StartWatchdog();
    GuardAgainstFaults();
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_DumpBacktraceHandler(void) {
    BeginDump();
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
