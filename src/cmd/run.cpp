// The running of external programs, by themselves or by way of the shell.
//
// A program is started by vfork: until the child has executed it, or ended, child and parent share
// one memory. So the child makes system calls only and leaves one number behind, the errno of a
// failed execvp; every report is the parent's.
#include "cmd/run.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/report.h"
#include "cmd/dispositions.h"
#include "korx/cmd.h"

namespace korx {
namespace {

constexpr unsigned kFirstClosed = 3;
constexpr unsigned kLastClosed = 1023;
constexpr int kExecFailedStatus = 127;

// What parent and child of a vfork share.
struct Start {
    Start(Run how, const char* program, char** arguments, const RunDispositions& dispositions)
        : run(how), file(program), argv(arguments), ignored(dispositions.ignored_before()) {}

    const Run run;
    const char* const file;
    char** const argv;
    const sigset_t ignored;
    sigset_t caller_mask;
    // Written by the child when execvp fails. Volatile, because the compiler sees nothing that
    // could change it while the parent waits in vfork.
    volatile int exec_errno = 0;
};

// A program starts with the defaults; a shell with what the caller of system() would hand down.
void SetChildDispositions(const Start& start) {
    for (const int number : {SIGQUIT, SIGINT}) {
        const bool stays = start.run == Run::kShell && sigismember(&start.ignored, number) == 1;
        SetDisposition(number, stays ? SIG_IGN : SIG_DFL);
    }
    if (start.run == Run::kProgram)
        SetDisposition(SIGCHLD, SIG_DFL);
}

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
        (void) syscall(SYS_close, fd);  // close might cancel, and unwind the parent's stack
}

[[noreturn, gnu::noinline]] void RunChild(Start* start) {
    SetChildDispositions(*start);
    DropHandlers();
    if (start->run == Run::kProgram)
        CloseInherited();
    (void) sigprocmask(SIG_SETMASK, &start->caller_mask, nullptr);
    (void) execvp(start->file, start->argv);
    start->exec_errno = errno;
    _exit(kExecFailedStatus);
}

// What the parent blocks after the start. As with system(), a handler for SIGCHLD must not reap the
// shell; while a program runs there is none.
sigset_t WaitingMask(const Start& start) {
    sigset_t mask = start.caller_mask;
    if (start.run == Run::kShell)
        (void) sigaddset(&mask, SIGCHLD);
    return mask;
}

// A function of its own, so that no other variable lives in the frame that the child shares. The
// child never returns from it: the parent goes on in that frame. All signals are blocked from
// before the vfork until each side is ready for them.
[[gnu::noinline]] pid_t StartChild(Start* start) {
    sigset_t mask;
    (void) sigfillset(&mask);
    (void) pthread_sigmask(SIG_SETMASK, &mask, &start->caller_mask);
    const pid_t child = vfork();
    if (child == 0)
        RunChild(start);
    const ErrnoSaver keep;
    mask = WaitingMask(*start);
    (void) pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return child;
}

// Waits for this child alone. False, with errno, when it cannot be waited for.
bool AwaitChild(pid_t child, int* status) {
    pid_t result;
    do {
        result = wait4(child, status, 0, nullptr);
    } while (result == -1 && errno == EINTR);
    return result != -1;
}

}  // namespace

int RunShell(const char* command) {
    char name[] = "sh";
    char option[] = "-c";
    char no_more_options[] = "--";
    char* argv[] = {name, option, no_more_options, const_cast<char*>(command), nullptr};
    const RunDispositions dispositions(Run::kShell);
    Start start(Run::kShell, "/bin/sh", argv, dispositions);
    const pid_t child = StartChild(&start);
    int status = 0;
    const bool ended = child >= 0 && AwaitChild(child, &status);
    const ErrnoSaver keep;
    (void) pthread_sigmask(SIG_SETMASK, &start.caller_mask, nullptr);
    return ended ? status : -1;
}

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

    RunDispositions dispositions(Run::kProgram);
    Start start(Run::kProgram, argv[0], argv, dispositions);
    const pid_t child = StartChild(&start);
    if (child < 0) {
        dispositions.restore();
        return Fail(kAllBits, "QRN system execvp vfork unsuccessfully, errno=%d.", errno);
    }
    if (start.exec_errno != 0)
        Log(kLevelErr, "QRN system execvp command unsuccessfully, errno=%d.", start.exec_errno);

    dispositions.ignore_again();
    int status = 0;
    if (!AwaitChild(child, &status))
        return Fail(kAllBits, "QRN execvp call wait4 unsuccessfully, status is %d, errno is %u.",
                    status, static_cast<unsigned>(errno));
    return KORX_GetExitStatus(status);
}
