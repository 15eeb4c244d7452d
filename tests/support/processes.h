// Tests of what happens between processes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

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

// Returns when some thread or process waits for a lock of this file.
void AwaitLockWaiter(const std::string& file);

}  // namespace korx::test
