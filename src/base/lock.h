// Scoped locks. A release that must be reported is called by name on the success path; the
// destructors release silently on every other way out.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <utility>

#include "base/errno_saver.h"
#include "base/fork.h"
#include "base/unique.h"

namespace korx {

// How a waiting record lock treats the kernel's EDEADLK. The kernel's test knows processes, not
// threads: where several threads of two processes use several files it sees rings that are none.
enum class OnDeadlock { kFail, kRepeat };

// A ring that is still there after half a minute of naps is one, and waiting on would be for ever.
constexpr useconds_t kDeadlockNapUs = 1000;
constexpr unsigned kDeadlockNaps = 30000;

// One fcntl record-lock request. A waiting request interrupted by a signal is made again.
inline int SetRecordLock(int fd, int command, short type, off_t start, short whence, off_t length,
                         OnDeadlock on_deadlock) {
    struct flock request = {};
    request.l_type = type;
    request.l_whence = whence;
    request.l_start = start;
    request.l_len = length;
    for (unsigned naps = 0;;) {
        const int result = fcntl(fd, command, &request);
        if (result >= 0 || command != F_SETLKW)
            return result;
        if (errno == EINTR)
            continue;
        if (errno != EDEADLK || on_deadlock == OnDeadlock::kFail || naps++ == kDeadlockNaps)
            return result;
        (void) usleep(kDeadlockNapUs);
    }
}

// No thread is cancelled within this scope. There is no unwinding here: a thread that ended while
// it held a mutex would leave it locked for ever.
class Uncancelled {
  public:
    Uncancelled() { (void) pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~Uncancelled() { (void) pthread_setcancelstate(before_, nullptr); }
    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// The POSIX write lock on a whole file, however long it grows. It belongs to the process: it does
// not exclude other threads, and closing any descriptor of the file drops it. So declare it after
// the descriptor's owner, and keep a mutex outside it.
class RecordLock {
  public:
    RecordLock() = default;  // of no file yet
    explicit RecordLock(int fd) : fd_(fd) {}
    ~RecordLock() {
        const ErrnoSaver keep;
        if (held_)
            (void) release();
    }
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;

    [[nodiscard]] bool acquire() { return request(F_SETLKW); }
    // Does not wait for somebody else's lock.
    [[nodiscard]] bool try_acquire() { return request(F_SETLK); }
    // Asks for the release even where the lock was not granted and the work went on without it.
    bool release() {
        held_ = false;
        if (SetRecordLock(fd_, F_SETLK, F_UNLCK, 0, SEEK_SET, 0, OnDeadlock::kFail) >= 0)
            return true;
        // A log's descriptor stays open, and would keep all other processes waiting: the close of
        // any other descriptor of the file drops the lock as well.
        const ErrnoSaver keep;
        const UniqueFd copy(fcntl(fd_, F_DUPFD_CLOEXEC, 0));
        return false;
    }
    bool is_held() const { return held_; }
    // Takes the lock of another file from now on; the one held, if any, is given back.
    void move_to(int fd) {
        if (held_)
            (void) release();
        fd_ = fd;
    }

  private:
    bool request(int command) {
        held_ = SetRecordLock(fd_, command, F_WRLCK, 0, SEEK_SET, 0, OnDeadlock::kRepeat) >= 0;
        return held_;
    }

    int fd_ = -1;
    bool held_ = false;
};

class MutexGuard {
  public:
    explicit MutexGuard(ForkMutex& mutex)
        : mutex_(mutex), error_(mutex.lock()), held_(error_ == 0) {}
    ~MutexGuard() { (void) release(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    // What pthread_mutex_lock returned: 0 when the mutex is held.
    int error() const { return error_; }
    // What pthread_mutex_unlock returns; 0 when there is nothing left to release.
    int release() { return std::exchange(held_, false) ? mutex_.unlock() : 0; }

  private:
    ForkMutex& mutex_;
    const int error_;
    bool held_;
};

// The flock of an open file. It is given back by LOCK_UN, not by close alone: a child forked
// meanwhile shares the open file and would keep it locked.
class FlockGuard {
  public:
    explicit FlockGuard(int fd) : fd_(fd), not_inherited_(fd) {}
    ~FlockGuard() { release(); }
    FlockGuard(const FlockGuard&) = delete;
    FlockGuard& operator=(const FlockGuard&) = delete;

    [[nodiscard]] bool acquire() {
        int result;
        do {
            result = flock(fd_, LOCK_EX);
        } while (result < 0 && errno == EINTR);
        held_ = result == 0;
        return held_;
    }
    void release() {
        const ErrnoSaver keep;
        if (std::exchange(held_, false))
            (void) flock(fd_, LOCK_UN);
    }

  private:
    const int fd_;
    const ClosedInChild not_inherited_;
    bool held_ = false;
};

}  // namespace korx
