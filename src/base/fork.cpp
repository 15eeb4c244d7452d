#include "base/fork.h"

#include <unistd.h>

#include <utility>

namespace korx {
namespace {

constinit pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit bool has_handler = false;
constinit std::atomic<ForkMutex*> first = nullptr;
constinit pthread_mutex_t time_mutex = PTHREAD_MUTEX_INITIALIZER;

constinit thread_local bool holds_time = false;
constexpr int kTries = 100;
constexpr useconds_t kPauseUs = 1000;

// Nobody is in there for longer than it takes to read the rules of a zone, unless a signal has
// interrupted him and its handler forks: so this gives up.
void AwaitTime() {
    for (int i = 0; i < kTries && !holds_time; ++i) {
        holds_time = pthread_mutex_trylock(&time_mutex) == 0;
        if (!holds_time)
            (void) usleep(kPauseUs);
    }
}

void ReleaseTime() {
    if (std::exchange(holds_time, false))
        (void) pthread_mutex_unlock(&time_mutex);
}

}  // namespace

constinit ForkMutex libc_time_mutex(&time_mutex);
constinit std::atomic<bool> ClosedInChild::marks_[kMostFiles] = {};

// Runs in the child, whose only thread is the one that forked.
void RenewMutexesInChild() {
    holds_time = false;
    time_mutex = list_mutex = PTHREAD_MUTEX_INITIALIZER;
    for (ForkMutex* mutex = first.load(std::memory_order_acquire); mutex != nullptr;
         mutex = mutex->next_)
        *mutex->mutex_ = PTHREAD_MUTEX_INITIALIZER;
    for (int fd = 0; fd < ClosedInChild::kMostFiles; ++fd) {
        if (ClosedInChild::marks_[fd].exchange(false))
            (void) close(fd);
    }
}

// The list is whole at every moment, because a fork may come from another thread at any. dlclose
// takes the handlers back: pthread_atfork enters them under this library's own handle.
void ForkMutex::make_known() {
    (void) pthread_mutex_lock(&list_mutex);
    if (!has_handler)
        has_handler = pthread_atfork(AwaitTime, ReleaseTime, RenewMutexesInChild) == 0;
    if (!known_.load(std::memory_order_relaxed)) {
        next_ = first.load(std::memory_order_relaxed);
        first.store(this, std::memory_order_release);
        known_.store(true, std::memory_order_release);
    }
    (void) pthread_mutex_unlock(&list_mutex);
}

}  // namespace korx
