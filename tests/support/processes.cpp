#include "support/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <new>
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

// The call in which a process of one thread waits for a mutex of its own, as the kernel shows it.
// There is nobody who could let go of that.
std::string LoneWait(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    const std::string call = ReadFile(folder + "/syscall");
    long number = 0;
    unsigned long operation = 0;
    const bool is_wait = sscanf(call.c_str(), "%ld %*s %lx", &number, &operation) == 2 &&
                         number == SYS_futex && (operation & FUTEX_PRIVATE_FLAG) != 0;
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

UniqueFd HoldLock(const std::string& file, Lock lock) {
    const Untapped untapped;
    UniqueFd fd(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    const int held =
        lock == Lock::kWhole ? flock(fd.get(), LOCK_EX) : fcntl(fd.get(), F_SETLKW, &whole);
    EXPECT_EQ(held, 0) << file;
    return fd;
}

BehindLock::BehindLock(const std::string& file, Lock lock, const std::function<uint32_t()>& call,
                       const Act& before_release, const Act& after_release)
    : shared_(new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                        -1, 0)) Shared{}),
      naps_(Fault::Meanwhile(
          "nanosleep", 1, [this] { shared_->naps = true; }, Fault::kAll)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
    fflush(nullptr);
    holder_ = fork();
    if (holder_ == 0)
        hold(file, lock, before_release, after_release);
    close(ends_[1]);
    char byte;
    EXPECT_EQ(read(ends_[0], &byte, 1), 1) << "nobody could lock " << file;
    caller_ = std::thread([this, call] {
        result_ = call();
        shared_->is_over = true;
    });
    await_waiter(file);
}

BehindLock::~BehindLock() {
    if (caller_.joinable())
        (void) finish();
    munmap(shared_, sizeof(Shared));
}

void BehindLock::hold(const std::string& file, Lock lock, const Act& before_release,
                      const Act& after_release) const {
    close(ends_[0]);
    UniqueFd fd = HoldLock(file, lock);
    char byte = 0;
    if (write(ends_[1], &byte, 1) != 1 || read(ends_[1], &byte, 1) != 1)
        _exit(1);
    before_release(*this);
    fd.reset();
    after_release(*this);
    fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? kExpectationFailed : 0);
}

uint32_t BehindLock::finish() {
    EXPECT_EQ(write(ends_[0], "", 1), 1);
    caller_.join();
    EXPECT_EQ(Await(holder_), 0);
    close(ends_[0]);
    return result_;
}

void BehindLock::await_waiter(const std::string& file) const {
    const Untapped untapped;
    struct stat st;
    ASSERT_EQ(stat(file.c_str(), &st), 0) << file;
    const std::string inode = ":" + std::to_string(st.st_ino) + " ";
    for (; !shared_->naps; usleep(1000)) {
        ASSERT_FALSE(shared_->is_over) << "the call is over, and has not waited for " << file;
        const std::string locks = ReadFile("/proc/locks");
        for (size_t at = locks.find("->"); at != std::string::npos; at = locks.find("->", at + 1))
            if (locks.substr(at, locks.find('\n', at) - at).find(inode) != std::string::npos)
                return;
    }
}

}  // namespace korx::test
