// What a forked child finds free although another thread of its parent was using it.
//
// fork copies a mutex as it is. If another thread of the parent held it just then, nobody in the
// child will ever release it, and the child's first log line would wait for ever. So every mutex of
// the library is known to the fork handlers, and the child's makes them all new.
//
// libc has such locks, too, and does not make them new: that of its time zone and that of syslog.
// Nothing but the fork itself can keep out of them, so the library enters each under a mutex that a
// fork waits for. (It does not wait for the logs' own: behind a thread that waits for another
// process's file lock it would stand as long as that one likes.)
#pragma once

#include <pthread.h>

#include <atomic>

namespace korx {

class ForkMutex {
  public:
    constexpr explicit ForkMutex(pthread_mutex_t* mutex) : mutex_(mutex) {}
    ForkMutex(const ForkMutex&) = delete;
    ForkMutex& operator=(const ForkMutex&) = delete;

    // Made known before it is locked: a locked mutex that the handler does not know would stay so.
    int lock() {
        if (!known_.load(std::memory_order_acquire))
            make_known();
        return pthread_mutex_lock(mutex_);
    }
    int unlock() { return pthread_mutex_unlock(mutex_); }

  private:
    friend void RenewMutexesInChild();
    void make_known();

    pthread_mutex_t* const mutex_;
    std::atomic<bool> known_ = false;
    ForkMutex* next_ = nullptr;
};

extern ForkMutex libc_time_mutex;    // around tzset and localtime_r
extern ForkMutex libc_syslog_mutex;  // around vsyslog

// A descriptor that a forked child closes at once: the lock on its open file is shared with the
// child. Where the parent is killed before it unlocks, a child that lives on would keep everybody
// out, and itself. It does so once a ForkMutex was locked, as the time of each line does. Declare
// it behind the descriptor's owner and before the lock.
class ClosedInChild {
  public:
    explicit ClosedInChild(int fd) : fd_(fd) { mark(true); }
    ~ClosedInChild() { mark(false); }
    ClosedInChild(const ClosedInChild&) = delete;
    ClosedInChild& operator=(const ClosedInChild&) = delete;

  private:
    friend void RenewMutexesInChild();
    void mark(bool closed) const {
        if (fd_ >= 0 && fd_ < kMostFiles)
            marks_[fd_].store(closed, std::memory_order_relaxed);
    }

    static constexpr int kMostFiles = 1024;
    static std::atomic<bool> marks_[kMostFiles];
    const int fd_;
};

}  // namespace korx
