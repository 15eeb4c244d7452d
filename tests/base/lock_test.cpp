#include "base/lock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include "base/unique.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

struct Lock : RoomTest {
    Lock() { WriteFile("file", ""); }
    static UniqueFd open_file() { return UniqueFd(open("file", O_RDWR | O_CLOEXEC)); }
    // Whether another process would get the lock at once.
    static bool is_free() {
        return RunChild([] {
                   const UniqueFd fd = open_file();
                   return SetRecordLock(fd.get(), F_SETLK, F_WRLCK, 0, SEEK_SET, 0,
                                        OnDeadlock::kFail) < 0;
               }) == 0;
    }
};

TEST_F(Lock, ExcludesOtherProcessesUntilItsScopeEnds) {
    const UniqueFd fd = open_file();
    {
        RecordLock lock(fd.get());
        EXPECT_TRUE(is_free());
        ASSERT_TRUE(lock.acquire());
        EXPECT_FALSE(is_free());
    }
    EXPECT_TRUE(is_free());
}

// Why nobody else may open and close a locked file in the same process.
TEST_F(Lock, IsDroppedByAnyCloseOfTheFile) {
    const UniqueFd fd = open_file();
    RecordLock lock(fd.get());
    ASSERT_TRUE(lock.acquire());
    open_file().reset();
    EXPECT_TRUE(is_free());
}

TEST_F(Lock, WaitsOnThroughSignals) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    EXPECT_EQ(RunChildren(2,
                          [&](int child) {
                              char byte = 0;
                              const UniqueFd fd = open_file();
                              RecordLock lock(fd.get());
                              if (child == 0) {
                                  if (!lock.acquire() || write(ready[1], &byte, 1) != 1)
                                      return 1;
                                  usleep(200000);
                                  return 0;
                              }
                              if (read(ready[0], &byte, 1) != 1)
                                  return 2;
                              struct sigaction action = {};
                              action.sa_handler = [](int) {};
                              sigaction(SIGALRM, &action, nullptr);
                              const struct itimerval every = {{0, 20000}, {0, 20000}};
                              setitimer(ITIMER_REAL, &every, nullptr);
                              return lock.acquire() ? 0 : 3;
                          }),
              0);
}

// The kernel sees rings of waiting processes where threads wait for different files.
TEST_F(Lock, WaitingOutlastsAFalseDeadlock) {
    const UniqueFd fd = open_file();
    const Fault deadlock{"fcntl", 1, EDEADLK, 3};
    RecordLock lock(fd.get());
    EXPECT_TRUE(lock.acquire());
    EXPECT_EQ(deadlock.calls(), 4u);
    EXPECT_TRUE(lock.release());

    const Fault again{"fcntl", 1, EDEADLK};
    EXPECT_LT(SetRecordLock(fd.get(), F_SETLKW, F_WRLCK, 0, SEEK_SET, 0, OnDeadlock::kFail), 0);
    const Fault interrupted{"fcntl", 1, EINTR};
    EXPECT_LT(SetRecordLock(fd.get(), F_SETLK, F_WRLCK, 0, SEEK_SET, 0, OnDeadlock::kRepeat), 0);
}

TEST_F(Lock, OnlyWhatIsHeldIsReleased) {
    const UniqueFd fd = open_file();
    const CallCount unlocks("fcntl");
    {
        const Fault fault{"fcntl", 1, ENOLCK};
        RecordLock lock(fd.get());
        EXPECT_FALSE(lock.acquire());
        EXPECT_EQ(errno, ENOLCK);
    }
    EXPECT_EQ(unlocks.value(), 1u);

    const Fault interrupted{"flock", 1, EINTR};
    const Fault refused{"flock", 2, ENOLCK};
    FlockGuard lock(fd.get());
    EXPECT_FALSE(lock.acquire());
    EXPECT_EQ(refused.calls(), 2u);

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    MutexGuard guard(mutex);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    EXPECT_EQ(guard.release(), 0);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    EXPECT_EQ(guard.release(), 0);  // not this guard's any more
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
}

// A forked child shares the open file: without an unlock it would keep the flock.
TEST_F(Lock, FlockIsGivenBackWhileAChildStillHoldsTheFile) {
    int hold[2];
    ASSERT_EQ(pipe(hold), 0);
    const UniqueFd fd = open_file();
    FlockGuard lock(fd.get());
    ASSERT_TRUE(lock.acquire());
    const pid_t child = fork();
    if (child == 0) {
        char byte;
        close(hold[1]);
        _exit(static_cast<int>(read(hold[0], &byte, 1)));
    }
    lock.release();
    const UniqueFd other = open_file();
    EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
    close(hold[1]);
}

}  // namespace
}  // namespace korx::test
