// The running of external programs.
//
// A program is started by vfork: until the child has executed it, or ended, child and parent share
// one memory. So the child makes system calls only and leaves one number behind, the errno of a
// failed execvp; every report is the parent's.
#include "korx/cmd.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/lock.h"
#include "base/report.h"

namespace korx {
namespace {

constexpr unsigned kFirstClosed = 3;
constexpr unsigned kLastClosed = 1023;
constexpr int kExecFailedStatus = 127;

constexpr int kRunSignals[] = {SIGQUIT, SIGINT, SIGCHLD};

void SetDisposition(int number, void (*handler)(int), struct sigaction* previous = nullptr) {
    struct sigaction action = {};
    action.sa_handler = handler;
    (void) sigemptyset(&action.sa_mask);
    (void) sigaction(number, &action, previous);
}

// Dispositions belong to the process, so runs in several threads share one change of them.
constinit pthread_mutex_t g_run_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit ForkMutex g_run_fork_mutex(&g_run_mutex);
constinit unsigned g_runs = 0;
constinit struct sigaction g_saved[std::size(kRunSignals)] = {};

// SIGQUIT and SIGINT ignored and SIGCHLD default while any run lasts: the first saves what was
// there, the last puts it back.
class RunDispositions {
  public:
    RunDispositions() {
        const MutexGuard guard(g_run_fork_mutex);
        if (g_runs++ != 0)
            return;
        SetDisposition(SIGQUIT, SIG_IGN, &g_saved[0]);
        SetDisposition(SIGINT, SIG_IGN, &g_saved[1]);
        SetDisposition(SIGCHLD, SIG_DFL, &g_saved[2]);
    }
    ~RunDispositions() { restore(); }
    RunDispositions(const RunDispositions&) = delete;
    RunDispositions& operator=(const RunDispositions&) = delete;

    // For the wait: whatever other code of the process has set since the start.
    void ignore_again() {
        SetDisposition(SIGQUIT, SIG_IGN);
        SetDisposition(SIGINT, SIG_IGN);
    }

    void restore() {
        const ErrnoSaver keep;
        if (!std::exchange(held_, false))
            return;
        const MutexGuard guard(g_run_fork_mutex);
        if (--g_runs != 0)
            return;
        for (size_t i = 0; i < std::size(kRunSignals); ++i)
            (void) sigaction(kRunSignals[i], &g_saved[i], nullptr);
    }

  private:
    bool held_ = true;
};

// What parent and child of a vfork share.
struct Start {
    char** argv;
    sigset_t caller_mask;
    // Written by the child when execvp fails. Volatile, because the compiler sees nothing that
    // could change it while the parent waits in vfork.
    volatile int exec_errno;
};

// The child still has the parent's handlers; none may run in the shared memory once signals are
// let in. execvp would drop them anyway.
void DropHandlers() {
    for (int number = 1; number < _NSIG; ++number) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
            action.sa_handler != SIG_DFL)
            SetDisposition(number, SIG_DFL);
    }
}

// What the program must not inherit: all that is open but for the standard streams, whether it is
// close-on-exec or not. In the child, whose table of descriptors is its own also under vfork. One
// call where the kernel has it; else a thousand of them, most on numbers that are not open.
void CloseInherited() {
#ifdef SYS_close_range
    if (syscall(SYS_close_range, kFirstClosed, kLastClosed, 0U) == 0)
        return;
#endif
    for (unsigned fd = kFirstClosed; fd <= kLastClosed; ++fd)
        (void) close(static_cast<int>(fd));
}

[[noreturn, gnu::noinline]] void RunChild(Start* start) {
    for (const int number : kRunSignals)
        SetDisposition(number, SIG_DFL);
    DropHandlers();
    CloseInherited();
    (void) sigprocmask(SIG_SETMASK, &start->caller_mask, nullptr);
    (void) execvp(start->argv[0], start->argv);
    start->exec_errno = errno;
    _exit(kExecFailedStatus);
}

// A function of its own, so that no other variable lives in the frame that the child shares. The
// child never returns from it: the parent goes on in that frame. All signals are blocked from
// before the vfork until each side is ready for them.
[[gnu::noinline]] pid_t StartChild(Start* start) {
    sigset_t all;
    (void) sigfillset(&all);
    (void) pthread_sigmask(SIG_SETMASK, &all, &start->caller_mask);
    const pid_t child = vfork();
    if (child == 0)
        RunChild(start);
    const ErrnoSaver keep;
    (void) pthread_sigmask(SIG_SETMASK, &start->caller_mask, nullptr);
    return child;
}

uint32_t AwaitChild(pid_t child) {
    int status = 0;
    pid_t result;
    do {
        result = wait4(child, &status, 0, nullptr);
    } while (result == -1 && errno == EINTR);
    if (result == -1)
        return Fail(kAllBits, "QRN execvp call wait4 unsuccessfully, status is %d, errno is %u.",
                    status, static_cast<unsigned>(errno));
    return KORX_GetExitStatus(status);
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_GetExitStatus(int32_t wait_status) {
    const int signal_number = wait_status & 0x7F;
    const int second_byte = (wait_status >> 8) & 0xFF;
    if (signal_number == 0)
        return static_cast<uint32_t>(second_byte);
    if (signal_number != 0x7F)
        return Fail(kAllBits, "Child process terminate by signal, signal number = %d.",
                    signal_number);
    if ((wait_status & 0xFF) == 0x7F)
        return Fail(kAllBits, "Child process stopped, signal number = %d.", second_byte);
    return Fail(kAllBits, "Child process unusual termination, exit status = %u.", 0U);
}

uint32_t KORX_SystemExecvp(char** argv) {
    if (argv == nullptr)
        return kAllBits;
    if (ORX_IsCommandForbidden(argv[0]) == KORX_TRUE)
        return Fail(kAllBits, "Forbidden command : %s.", argv[0] == nullptr ? "" : argv[0]);

    RunDispositions dispositions;
    Start start = {argv, {}, 0};
    const pid_t child = StartChild(&start);
    if (child < 0) {
        dispositions.restore();
        return Fail(kAllBits, "QRN system execvp vfork unsuccessfully, errno=%d.", errno);
    }
    if (start.exec_errno != 0)
        Log(kLevelErr, "QRN system execvp command unsuccessfully, errno=%d.", start.exec_errno);

    dispositions.ignore_again();
    return AwaitChild(child);
}
