#include "cmd/dispositions.h"

#include <pthread.h>
#include <unistd.h>

#include <utility>

#include "base/errno_saver.h"

namespace korx {
namespace {

// One signal's disposition, changed together by all runs that need it changed.
class SharedDisposition {
  public:
    constexpr explicit SharedDisposition(int number) : number_(number) {}

    void acquire(void (*handler)(int)) {
        if (runs_++ == 0)
            SetDisposition(number_, handler, &saved_);
    }
    void release() {
        if (--runs_ == 0)
            (void) sigaction(number_, &saved_, nullptr);
    }
    void forget_runs() { runs_ = 0; }

    int number() const { return number_; }
    bool was_ignored() const { return saved_.sa_handler == SIG_IGN; }

  private:
    const int number_;
    unsigned runs_ = 0;
    struct sigaction saved_ = {};
};

constinit pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit ForkMutex g_fork_mutex(&g_mutex);
// Under the mutex:
constinit SharedDisposition g_ignored[] = {SharedDisposition(SIGQUIT), SharedDisposition(SIGINT)};
constinit SharedDisposition g_child(SIGCHLD);
constinit pid_t g_process = 0;

// A child forked during other threads' runs has their counts, but nobody who counts down.
void ForgetRunsOfParent() {
    const pid_t self = getpid();
    if (std::exchange(g_process, self) == self)
        return;
    for (SharedDisposition& ignored : g_ignored)
        ignored.forget_runs();
    g_child.forget_runs();
}

}  // namespace

void SetDisposition(int number, void (*handler)(int), struct sigaction* previous) {
    struct sigaction action = {};
    action.sa_handler = handler;
    (void) sigemptyset(&action.sa_mask);
    (void) sigaction(number, &action, previous);
}

RunDispositions::RunDispositions(Run run) : run_(run) {
    (void) sigemptyset(&ignored_before_);
    const MutexGuard guard(g_fork_mutex);
    ForgetRunsOfParent();
    for (SharedDisposition& ignored : g_ignored) {
        ignored.acquire(SIG_IGN);
        if (ignored.was_ignored())
            (void) sigaddset(&ignored_before_, ignored.number());
    }
    if (run_ == Run::kProgram)
        g_child.acquire(SIG_DFL);
}

void RunDispositions::ignore_again() {
    for (const SharedDisposition& ignored : g_ignored)
        SetDisposition(ignored.number(), SIG_IGN);
}

void RunDispositions::restore() {
    const ErrnoSaver keep;
    if (!std::exchange(held_, false))
        return;
    const MutexGuard guard(g_fork_mutex);
    for (SharedDisposition& ignored : g_ignored)
        ignored.release();
    if (run_ == Run::kProgram)
        g_child.release();
}

}  // namespace korx
