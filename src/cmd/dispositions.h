// The signal dispositions that runs of external programs change for the whole process.
#pragma once

#include <signal.h>

#include "base/lock.h"

namespace korx {

// A program by itself, or a command line by way of the shell.
enum class Run : char { kProgram, kShell };

void SetDisposition(int number, void (*handler)(int), struct sigaction* previous = nullptr);

// SIGQUIT and SIGINT ignored while any run lasts, and SIGCHLD at its default while any program
// does: the first saves what was there, the last puts it back. The thread is not cancelled
// meanwhile, or nobody would.
class RunDispositions {
  public:
    explicit RunDispositions(Run run);
    ~RunDispositions() { restore(); }
    RunDispositions(const RunDispositions&) = delete;
    RunDispositions& operator=(const RunDispositions&) = delete;

    // Those of SIGQUIT and SIGINT that were ignored before any run.
    const sigset_t& ignored_before() const { return ignored_before_; }

    // For the wait: whatever other code of the process has set since the start.
    void ignore_again();
    void restore();

  private:
    const Uncancelled uncancelled_;
    const Run run_;
    sigset_t ignored_before_;
    bool held_ = true;
};

}  // namespace korx
