// Tests of what happens between processes.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "base/unique.h"
#include "support/faults.h"

namespace korx::test {

// Forks n children that run body(index), waits for all of them and returns 0 when each returned 0,
// else the first other exit status; 128 + signal for a killed one. A failed expectation inside a
// child makes its status kExpectationFailed.
constexpr int kExpectationFailed = 98;
int RunChildren(int n, const std::function<int(int)>& body);

inline int RunChildren(int n, const std::function<int()>& body) {
    return RunChildren(n, [&](int) { return body(); });
}

// Runs body in a forked child and returns its exit status, as above.
inline int RunChild(const std::function<int()>& body) {
    return RunChildren(1, body);
}

// The end of a forked child, as above. One that waits for a mutex for ever has failed, and is
// ended.
int Await(pid_t child);

enum class Lock { kRecord, kWhole };  // of POSIX, or flock's

// An own lock on the whole file, which is made where there is none, until the descriptor is closed.
UniqueFd HoldLock(const std::string& file, Lock lock = Lock::kRecord);

// A call that another process keeps waiting, because it holds the lock of a file. That one goes on
// when finish() is called: it does something, gives the lock back, and may do something more. A
// call that ends without having waited fails the test.
class BehindLock {
  public:
    using Act = std::function<void(const BehindLock&)>;
    BehindLock(
        const std::string& file, Lock lock, const std::function<uint32_t()>& call,
        const Act& before_release = [](const BehindLock&) {},
        const Act& after_release = [](const BehindLock&) {});
    ~BehindLock();
    BehindLock(const BehindLock&) = delete;
    BehindLock& operator=(const BehindLock&) = delete;

    uint32_t finish();  // the result of the call
    // Until the call, or the command that it runs, waits for the lock of this file.
    void await_waiter(const std::string& file) const;
    std::thread& caller() { return caller_; }

  private:
    // What both processes see.
    struct Shared {
        std::atomic<bool> is_over;
        std::atomic<bool> naps;  // between two tries
    };
    void hold(const std::string& file, Lock lock, const Act& before_release,
              const Act& after_release) const;

    Shared* const shared_;
    const Fault naps_;
    int ends_[2];  // the caller's, the holder's
    pid_t holder_;
    uint32_t result_ = 0;
    std::thread caller_;
};

}  // namespace korx::test
