#include "pager.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "common.h"

namespace korx::tool {
namespace {

constexpr char kDefaultPager[] = "less";

bool IsInstalled(const std::string& program) {
    const char* const path = getenv("PATH");
    std::string rest = path == nullptr ? "/usr/bin:/bin" : path;
    rest += ':';
    for (size_t colon; (colon = rest.find(':')) != std::string::npos; rest.erase(0, colon + 1))
        if (access((rest.substr(0, colon) + "/" + program).c_str(), X_OK) == 0)
            return true;
    return false;
}

// Empty: none.
std::string ChosenPager() {
    for (const char* variable : {"KORX_PAGER", "PAGER"})
        if (const char* const pager = getenv(variable))
            return pager == std::string("cat") ? "" : pager;
    return IsInstalled(kDefaultPager) ? kDefaultPager : "";
}

[[noreturn]] void RunPager(const std::string& pager, int input) {
    dup2(input, STDIN_FILENO);
    signal(SIGPIPE, SIG_DFL);
    // Quit where one screen is enough, show colours, leave the text on the screen.
    setenv("LESS", "FRX", 0);
    setenv("LV", "-c", 0);
    execl("/bin/sh", "sh", "-c", pager.c_str(), nullptr);
    _exit(127);
}

}  // namespace

Pager::Pager() {
    const std::string pager = isatty(STDOUT_FILENO) == 1 ? ChosenPager() : "";
    int ends[2];
    if (pager.empty() || pipe2(ends, O_CLOEXEC) < 0)
        return;
    const UniqueFd input(ends[0]);
    const UniqueFd output(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        RunPager(pager, input.get());
    if (child < 0)
        return;
    child_ = child;
    signal(SIGINT, SIG_IGN);
    output_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    dup2(output.get(), STDOUT_FILENO);
    if (isatty(STDERR_FILENO) == 1) {
        error_.reset(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        dup2(output.get(), STDERR_FILENO);
    }
}

Pager::~Pager() {
    if (child_ == 0)
        return;
    // Both are ends of the pipe, and the pager waits for the last one to close.
    dup2(output_.get(), STDOUT_FILENO);
    if (error_)
        dup2(error_.get(), STDERR_FILENO);
    int status = 0;
    while (waitpid(child_, &status, 0) < 0 && errno == EINTR)
        continue;
    signal(SIGINT, SIG_DFL);
    constexpr int kNotFound = 127;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound)
        Complain("the pager could not be run; --no-pager does without");
}

}  // namespace korx::tool
