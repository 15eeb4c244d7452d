#include "base/fork.h"

namespace korx {
namespace {

constinit pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit bool has_handler = false;
constinit std::atomic<ForkMutex*> first = nullptr;

}  // namespace

// Runs in the child, whose only thread is the one that forked. Nothing is locked before a fork: a
// prepare handler that took the logs' mutexes would wait behind a thread that waits for another
// process's file lock, and fork with it.
void RenewMutexesInChild() {
    list_mutex = PTHREAD_MUTEX_INITIALIZER;
    for (ForkMutex* mutex = first.load(std::memory_order_acquire); mutex != nullptr;
         mutex = mutex->next_)
        *mutex->mutex_ = PTHREAD_MUTEX_INITIALIZER;
}

// The list is whole at every moment, because a fork may come from another thread at any. dlclose
// takes the handler back: pthread_atfork enters it under this library's own handle.
void ForkMutex::make_known() {
    (void) pthread_mutex_lock(&list_mutex);
    if (!has_handler)
        has_handler = pthread_atfork(nullptr, nullptr, RenewMutexesInChild) == 0;
    if (!known_.load(std::memory_order_relaxed)) {
        next_ = first.load(std::memory_order_relaxed);
        first.store(this, std::memory_order_release);
        known_.store(true, std::memory_order_release);
    }
    (void) pthread_mutex_unlock(&list_mutex);
}

}  // namespace korx
