#include "support/processes.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

[[noreturn]] void RunBody(int index, const std::function<int(int)>& body) {
    const int status = body(index);
    const Untapped untapped;
    fflush(nullptr);  // _exit does not, and a failed expectation has been printed
    _exit(status == 0 && ::testing::Test::HasFailure() ? kExpectationFailed : status);
}

// The call in which a process of one thread waits for a mutex, as the kernel shows it. There is
// nobody who could let go of that.
std::string LoneWait(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    const std::string call = ReadFile(folder + "/syscall");
    const bool is_wait = call.starts_with(std::to_string(SYS_futex) + " ");
    const bool is_alone = ReadFile(folder + "/status").find("\nThreads:\t1\n") != std::string::npos;
    return is_wait && is_alone ? call : "";
}

}  // namespace

int Await(pid_t child) {
    const Untapped untapped;
    pollfd end{static_cast<int>(syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
    std::string before;
    while (end.fd >= 0 && poll(&end, 1, 100) == 0) {
        const std::string now = LoneWait(child);
        if (!now.empty() && now == before) {
            ADD_FAILURE() << "a child waits for a mutex that nobody holds any more";
            kill(child, SIGKILL);
        }
        before = now;
    }
    close(end.fd);
    int status = 0;
    (void) TEMP_FAILURE_RETRY(waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunChildren(int n, const std::function<int(int)>& body) {
    std::vector<pid_t> children;
    {
        const Untapped untapped;
        fflush(nullptr);  // or every child prints what the parent has buffered
    }
    for (int index = 0; index < n; ++index) {
        const pid_t child = fork();
        if (child == 0)
            RunBody(index, body);
        children.push_back(child);
    }
    int first_failure = 0;
    for (const pid_t child : children) {
        EXPECT_GT(child, 0) << "fork failed";
        const int status = child > 0 ? Await(child) : kExpectationFailed;
        if (first_failure == 0)
            first_failure = status;
    }
    return first_failure;
}

void AwaitLockWaiter(const std::string& file) {
    struct stat st;
    ASSERT_EQ(stat(file.c_str(), &st), 0) << file;
    const std::string inode = ":" + std::to_string(st.st_ino) + " ";
    for (;;) {
        const std::string locks = ReadFile("/proc/locks");
        for (size_t at = locks.find("->"); at != std::string::npos; at = locks.find("->", at + 1))
            if (locks.substr(at, locks.find('\n', at) - at).find(inode) != std::string::npos)
                return;
        usleep(1000);
    }
}

}  // namespace korx::test
