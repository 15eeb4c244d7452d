#include "base/fork.h"

#include <unistd.h>

#include <iterator>
#include <utility>

namespace korx {
namespace {

constinit pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit bool has_handler = false;
constinit std::atomic<ForkMutex*> first = nullptr;
constinit pthread_mutex_t libc_mutexes[] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};

constinit thread_local bool holds_libc[std::size(libc_mutexes)] = {};
constexpr int kTries = 100;
constexpr useconds_t kPauseUs = 1000;

// Nobody is in there for longer than it takes to read the rules of a zone or to send a line, unless
// nobody reads the lines, or a signal has interrupted him and its handler forks: so this gives up.
void AwaitLibc() {
    for (size_t i = 0; i < std::size(libc_mutexes); ++i) {
        for (int tries = 0; tries < kTries && !holds_libc[i]; ++tries) {
            holds_libc[i] = pthread_mutex_trylock(&libc_mutexes[i]) == 0;
            if (!holds_libc[i])
                (void) usleep(kPauseUs);
        }
    }
}

void ReleaseLibc() {
    for (size_t i = 0; i < std::size(libc_mutexes); ++i) {
        if (std::exchange(holds_libc[i], false))
            (void) pthread_mutex_unlock(&libc_mutexes[i]);
    }
}

}  // namespace

constinit ForkMutex libc_time_mutex(&libc_mutexes[0]);
constinit ForkMutex libc_syslog_mutex(&libc_mutexes[1]);
constinit std::atomic<bool> ClosedInChild::marks_[kMostFiles] = {};

// Runs in the child, whose only thread is the one that forked.
void RenewMutexesInChild() {
    list_mutex = PTHREAD_MUTEX_INITIALIZER;
    for (bool& held : holds_libc)
        held = false;
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
        has_handler = pthread_atfork(AwaitLibc, ReleaseLibc, RenewMutexesInChild) == 0;
    if (!known_.load(std::memory_order_relaxed)) {
        next_ = first.load(std::memory_order_relaxed);
        first.store(this, std::memory_order_release);
        known_.store(true, std::memory_order_release);
    }
    (void) pthread_mutex_unlock(&list_mutex);
}

}  // namespace korx
