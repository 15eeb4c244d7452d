// Running external programs, with a filter for text that would reach a shell.
//
// A program is started by vfork: until the child has executed it, or ended, child and parent share
// one memory. So the child makes system calls only and leaves one number behind, the errno of a
// failed execvp; every report is the parent's.
#include "korx/cmd.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/alloc.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/unique.h"

namespace korx {
namespace {

constexpr char kRefusedCharacters[] = "|;&$<>()[]`\\\"'~?*!\n";
static_assert(sizeof kRefusedCharacters == 20);

constexpr const char* kForbiddenPrograms[] = {"sh", "bash", "tcsh", "sash", "ksh", "zsh"};

constexpr size_t kCommandSize = 2048;
constexpr size_t kBlockSize = 2048;
constexpr size_t kSlots = 30;  // at the start of the block; one of them ends the vector
static_assert(kSlots * sizeof(char*) < kBlockSize);

constexpr unsigned kFirstClosed = 3;
constexpr unsigned kLastClosed = 1023;
constexpr int kExecFailedStatus = 127;

// The terminating NUL is a member of the set: a length that reaches it refuses the text.
bool HoldsRefused(const char* text, size_t length) {
    return std::any_of(text, text + length, [](char character) {
        return memchr(kRefusedCharacters, character, sizeof kRefusedCharacters) != nullptr;
    });
}

size_t CountTokens(const char* text, const char* separators) {
    size_t count = 0;
    for (text += strspn(text, separators); *text != '\0'; text += strspn(text, separators)) {
        text += strcspn(text, separators);
        ++count;
    }
    return count;
}

// The memory of an argument vector: pointer slots, then the texts of the tokens.
struct BlockLayout {
    size_t text;
    size_t size;
};

// A vector that outgrows the slots gets as many as it needs, and room for all that a command line
// can hold behind them.
BlockLayout LayoutFor(size_t tokens) {
    if (tokens < kSlots)
        return {kSlots * sizeof(char*), kBlockSize};
    const size_t text = (tokens + 1) * sizeof(char*);
    return {text, text + kCommandSize};
}

// Splits command into block. The slots behind the last token stay null.
uint32_t FillBlock(char* command, const char* separators, char* block, BlockLayout layout) {
    char** slot = reinterpret_cast<char**>(block);
    size_t position = layout.text;
    char* rest = nullptr;
    for (char* token = strtok_r(command, separators, &rest); token != nullptr;
         token = strtok_r(nullptr, separators, &rest)) {
        const size_t room = layout.size - position;
        const int length =
            room == 0 ? -1 : snprintf_s(block + position, room, room - 1, "%s", token);
        if (length <= 0)
            return Fail(kAllBits, "Print pcToken = %s unsuccessfully", token);
        *slot++ = block + position;
        position += static_cast<size_t>(length) + 1;
    }
    return kOk;
}

constexpr int kRunSignals[] = {SIGQUIT, SIGINT, SIGCHLD};

void SetDisposition(int number, void (*handler)(int), struct sigaction* previous = nullptr) {
    struct sigaction action = {};
    action.sa_handler = handler;
    (void) sigemptyset(&action.sa_mask);
    (void) sigaction(number, &action, previous);
}

// Dispositions belong to the process, so runs in several threads share one change of them.
constinit pthread_mutex_t g_run_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit unsigned g_runs = 0;
constinit struct sigaction g_saved[std::size(kRunSignals)] = {};

// SIGQUIT and SIGINT ignored and SIGCHLD default while any run lasts: the first saves what was
// there, the last puts it back.
class RunDispositions {
  public:
    RunDispositions() {
        const MutexGuard guard(g_run_mutex);
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
        const MutexGuard guard(g_run_mutex);
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
    volatile int exec_errno;  // written by the child when execvp fails
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

// A function of its own, so that no other variable lives in the frame that the child shares. All
// signals are blocked from before the vfork until each side is ready for them.
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

uint32_t ORX_IsCommandForbidden(const char* program) {
    if (program == nullptr || program[0] == '\0')
        return KORX_TRUE;
    const char* const slash = strrchr(program, '/');
    const char* const name = slash == nullptr ? program : slash + 1;
    for (const char* const forbidden : kForbiddenPrograms) {
        if (strcmp(name, forbidden) == 0)
            return KORX_TRUE;
    }
    return KORX_FALSE;
}

uint32_t ORX_CommandConstructArgv(const char* command, const char* separators, char*** argv) {
    if (command == nullptr || separators == nullptr || argv == nullptr)
        return Fail(kAllBits, "pcCommand or split is NULL.");

    const MallocPtr<char> copy(static_cast<char*>(malloc(kCommandSize)));
    if (!copy)
        return Fail(kAllBits, "Malloc acCommand unsuccessfully.");
    if (snprintf_s(copy.get(), kCommandSize, kCommandSize - 1, "%s", command) <= 0)
        return Fail(kAllBits, "Print pcCommand = %s unsuccessfully", command);

    const BlockLayout layout = LayoutFor(CountTokens(copy.get(), separators));
    MallocPtr<char> block(static_cast<char*>(AllocateZeroed(layout.size)));
    if (!block)
        return Fail(kAllBits, "Malloc pcBuf unsuccessfully.");
    const uint32_t result = FillBlock(copy.get(), separators, block.get(), layout);
    if (result != kOk)
        return result;

    *argv = reinterpret_cast<char**>(block.release());
    return kOk;
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

uint32_t ORX_CommandFilter(const char* text, uint32_t length) {
    if (text == nullptr)
        return kAllBits;
    if (length == 0 || text[0] == '\0')
        return kOk;
    return HoldsRefused(text, length) ? kAllBits : kOk;
}

uint32_t KORX_Execvp(const char* command, const char* separators) {
    if (command == nullptr || separators == nullptr)
        return Fail(kAllBits, "pcCommand or split is NULL.");
    if (HoldsRefused(command, strlen(command)))
        return Fail(kAllBits, "Command is illegal, cmd=%s, split='%s', uiRet=%u.", command,
                    separators, kAllBits);

    char** argv = nullptr;
    const uint32_t built = ORX_CommandConstructArgv(command, separators, &argv);
    if (built != kOk)
        return Fail(built, "Command can't construct argv, cmd=%s, split='%s'.", command,
                    separators);
    const MallocPtr<char*> block(argv);
    const uint32_t result = KORX_SystemExecvp(argv);
    if (result != kOk)
        return Fail(result, "Command can't execvp, cmd=%s, split='%s', uiRet=%u.", command,
                    separators, result);
    return kOk;
}

uint32_t ORX_IsStrParaHasInvalidChar(uint32_t count, va_list texts) {
    for (uint32_t i = 0; i < count; ++i) {
        const char* const text = va_arg(texts, const char*);
        if (text == nullptr || HoldsRefused(text, strlen(text)))
            return kAllBits;
    }
    return kOk;
}

uint32_t KORX_SystemWithFilter(const char* command, uint32_t count, ...) {
    if (command == nullptr)
        return Fail(kAllBits, "pcCommand is NULL.");

    va_list texts;
    va_start(texts, count);
    const uint32_t filtered = ORX_IsStrParaHasInvalidChar(count, texts);
    va_end(texts);
    if (filtered != kOk)
        return Fail(kAllBits, "Command has illegal char, cmd=%s.", command);

    const int status = system(command);
    if (status < 0)
        return Fail(kAllBits, "Command can't system with filter, cmd=%s, errno=%d.", command,
                    errno);
    return KORX_GetExitStatus(status);
}
