// Each mutex of the library is waited for by the calls that it is for: somebody has it, and the
// thread that calls is seen asleep on it.
#include <pthread.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <semaphore>
#include <thread>

#include "korx/basic.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/records.h"

namespace korx::test {
namespace {

struct Mutexes : RoomTest {
    Mutexes() {
        for (const char* directory : {"conf/config", "run"})
            MakeDirs(directory);
        WriteFile("conf/config/korx_sdk_init.conf", "");
        SetLogPath(tree.root());
        WriteFile("run/p", "[A]\nx=1\n");
        EXPECT_EQ(chdir("run"), 0);
        LOG_FileInit();
        KORX_PLogInit(0, "zelk", 0);
    }
};

struct Row {
    const char* name;
    pthread_mutex_t* published;  // null: some thread that is inside the call has it
    const char* inside;          // a libc call that is made under it
    std::function<uint32_t()> call;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

const Row kRows[] = {
    {"DiagRecords", &g_unDLogMutex, "fcntl", [] { return KORX_DLog(0, 1, 1, 0, 0, "t"); }},
    {"SecurityEvents", &g_unSLogMutex, "fcntl",
     [] { return KORX_SecurityEventLog(0, 1, 1, 0, 0, "t"); }},
    {"LifeRecords", &g_unLLogMutex, "fcntl", [] { return KORX_LifeCycleLog(0, 1, 1, 0, 0, "t"); }},
    {"ProcessRecords", nullptr, "fcntl", [] { return KORX_PLog(1, 0, 0, "t"); }},
    {"StartRecords", nullptr, "fcntl", [] { return KORX_STLog(3, 1, 0, "t"); }},
    {"ProfileChanges", &g_unKorxIniWriteLock, "fsync",
     [] { return KORX_IniSetValue("./p", "[A]", "x", "2"); }},
    {"ProfileAdditions", &g_unKorxIniWriteLock, "fsync",
     [] { return KORX_IniSetOrAddValue("./p", "[A]", "y", "2"); }},
};

// A call in a thread of its own, which is asked what it does.
class Caller {
  public:
    explicit Caller(const Row& row)
        : thread_([this, &row] {
              id_ = gettid();
              result_ = row.call();
              done_ = true;
          }) {}

    // True once it sleeps on the mutex, or on any if that is null; false once the call is over.
    bool waits_for(const pthread_mutex_t* mutex) const {
        return comes_to([&] {
            unsigned long address = 0;
            return id_ != 0 && SystemCall(id_, &address) == SYS_futex &&
                   (mutex == nullptr || address == reinterpret_cast<unsigned long>(mutex));
        });
    }
    bool comes_to(const std::function<bool()>& state) const {
        const Untapped untapped;
        for (; !done_; usleep(1000)) {
            if (state())
                return true;
        }
        return false;
    }
    uint32_t result() {
        thread_.join();
        return result_;
    }

    // The number of the one that the thread is in, and its first argument; -1 while it runs.
    static long SystemCall(pid_t id, unsigned long* first) {
        const std::string text = ReadFile("/proc/self/task/" + std::to_string(id) + "/syscall");
        long number = -1;
        return sscanf(text.c_str(), "%ld %lx", &number, first) == 2 ? number : -1;
    }

  private:
    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    uint32_t result_ = 0;
    std::jthread thread_;
};

struct EachMutex : Mutexes, ::testing::WithParamInterface<Row> {};

// Somebody is inside the call; who calls, too, comes in behind him.
TEST_P(EachMutex, KeepsTheCallToOneThread) {
    unsigned long ignored = 0;
    if (Caller::SystemCall(gettid(), &ignored) != SYS_read)
        GTEST_SKIP() << "the calls of a thread cannot be seen here";
    const Row& row = GetParam();
    ASSERT_EQ(row.call(), 0u) << "files are open now";
    std::atomic<bool> is_inside = false;
    std::binary_semaphore may_go_on(0);
    const Fault stop = Fault::Meanwhile(row.inside, 1, [&] {
        is_inside = true;
        may_go_on.acquire();
    });
    Caller first(row);
    ASSERT_TRUE(first.comes_to([&] { return is_inside.load(); })) << "it makes no such call";
    Caller second(row);
    EXPECT_TRUE(second.waits_for(nullptr)) << "it went on beside the other one";
    may_go_on.release();
    EXPECT_EQ(first.result(), 0u);
    EXPECT_EQ(second.result(), 0u);
    if (row.published == nullptr)
        return;

    pthread_mutex_lock(row.published);  // as a program may
    Caller third(row);
    EXPECT_TRUE(third.waits_for(row.published)) << "it went on without it";
    pthread_mutex_unlock(row.published);
    EXPECT_EQ(third.result(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Calls, EachMutex, ::testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace korx::test
