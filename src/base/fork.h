// Mutexes that a forked child finds free.
//
// fork copies a mutex as it is. If another thread of the parent held it just then, nobody in the
// child will ever release it, and the child's first log line would wait for ever. So every mutex of
// the library is known to one child handler, which makes them all new.
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

}  // namespace korx
