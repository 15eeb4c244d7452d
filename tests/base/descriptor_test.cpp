// What base does with a descriptor: locks, whole writes, owners.
#include <atomic>
#include <thread>

#include "base/lock.h"
#include "base/unique.h"
#include "base/write_all.h"
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

// The kernel sees rings of waiting processes where threads wait for different files.
TEST_F(Lock, WaitingOutlastsSignalsAndFalseDeadlocks) {
    const UniqueFd fd = open_file();
    for (const int error : {EINTR, EDEADLK}) {
        const Fault fault{"fcntl", 1, error, 3};
        RecordLock lock(fd.get());
        EXPECT_TRUE(lock.acquire());
        EXPECT_EQ(fault.calls(), 4u);
        EXPECT_TRUE(lock.release());
    }
    const Fault deadlock{"fcntl", 1, EDEADLK};
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
}

// Somebody else may share the open file: without an unlock it would stay locked.
TEST_F(Lock, FlockIsGivenBackWhileTheFileIsStillOpen) {
    const UniqueFd fd = open_file();
    const UniqueFd same(dup(fd.get()));
    FlockGuard lock(fd.get());
    ASSERT_TRUE(lock.acquire());
    lock.release();
    const UniqueFd other = open_file();
    EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
}

// The parent may be killed before it unlocks, and the child live on.
TEST_F(Lock, FlockIsNotInheritedByAChild) {
    EXPECT_EQ(MutexGuard(libc_time_mutex).error(), 0);  // as for the time of every line
    const UniqueFd fd = open_file();
    FlockGuard lock(fd.get());
    ASSERT_TRUE(lock.acquire());
    EXPECT_EQ(RunChild([&] { return fcntl(fd.get(), F_GETFD) < 0 ? 0 : 1; }), 0);
    const UniqueFd other = open_file();
    EXPECT_LT(flock(other.get(), LOCK_EX | LOCK_NB), 0);
}

// libc's locks are copied as they are, so a fork comes before or after their use.
TEST_F(Lock, AForkWaitsForWhoeverIsInsideLibc) {
    for (ForkMutex* const mutex : {&libc_time_mutex, &libc_syslog_mutex}) {
        std::atomic<int> state = 0;
        std::thread user([&] {
            const MutexGuard guard(*mutex);
            state = 1;
            usleep(50000);
            state = 2;
        });
        while (state == 0)
            usleep(100);
        EXPECT_EQ(RunChild([&] { return state == 2 ? MutexGuard(*mutex).error() : 1; }), 0);
        user.join();
        EXPECT_EQ(MutexGuard(*mutex).release(), 0) << "the parent has let go";
    }
}

struct WriteAllTest : RoomTest {
    const UniqueFd fd{open("file", O_CREAT | O_RDWR | O_CLOEXEC, 0600)};
};

// A write of 0 bytes leaves errno alone: what an earlier call left there must not count as EAGAIN.
TEST_F(WriteAllTest, EndsWhenNothingIsTaken) {
    const Fault nothing = Fault::Short("write", 1, 0, Fault::kAll);
    errno = EAGAIN;
    EXPECT_EQ(WriteAll(fd.get(), "12345", 5), 0);
    EXPECT_EQ(nothing.calls(), 1u);
}

// The error being handled is reported after its owners have let go.
TEST_F(WriteAllTest, OwnersKeepErrno) {
    const Fault fault{"close", 1, EIO};
    errno = ENOSPC;
    { const UniqueFd owned(dup(fd.get())); }
    EXPECT_EQ(fault.hits(), 1u);
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace korx::test
