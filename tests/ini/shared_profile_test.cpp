// What others may do to a profile's files while a change waits for their locks.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "base/unique.h"
#include "ini/ini_room.h"
#include "korx/fs.h"
#include "korx/ini.h"
#include "support/processes.h"

namespace korx::test {
namespace {

using Change = std::function<uint32_t()>;

struct SharedProfile : RoomTest {
    SharedProfile() {
        WriteFile("p", "[A]\nx=1\n");
        (void) alarm(60);  // instead of a hang
    }

    static uint32_t run_behind(
        const char* file, const BehindLock::Act& first, const Change& change,
        const BehindLock::Act& then = [](const BehindLock&) {}) {
        return BehindLock(file, Lock::kRecord, change, first, then).finish();
    }

    static void replace(const std::string& content) {
        WriteFile("q", content);
        EXPECT_EQ(rename("q", "p"), 0);
    }
};

struct Setter {
    const char* name;
    decltype(&KORX_IniSetValue) call;
};

void PrintTo(const Setter& setter, std::ostream* out) {
    *out << setter.name;
}

struct SharedProfileSetter : SharedProfile, ::testing::WithParamInterface<Setter> {
    static uint32_t set(const char* value, const char* file = "./p") {
        return GetParam().call(file, "[A]", "x", value);
    }
};

TEST_P(SharedProfileSetter, AReplacedProfileIsChangedAndNotOverwritten) {
    EXPECT_EQ(run_behind(
                  "p", [](auto&) { replace("[A]\nx=2\ny=2\n"); }, [] { return set("3"); }),
              0u);
    EXPECT_EQ(ReadFile("p"), "[A]\nx=3\ny=2\n");
    EXPECT_EQ(ReadFile("p-"), "[A]\nx=2\ny=2\n");
    const Fault unlocked = Fault::Meanwhile("fsync", 1, [] { replace("[A]\nx=4\nz=4\n"); });
    EXPECT_EQ(set("5"), 0u);
    EXPECT_EQ(ReadFile("p"), "[A]\nx=5\nz=4\n");
    EXPECT_EQ(syslog.lines(), Lines{}) << "F+ remained";
}

TEST_P(SharedProfileSetter, AReplacedLockFileIsWaitedForAgain) {
    UniqueFd next;
    EXPECT_EQ(run_behind(
                  "p.lock",
                  [&](auto&) {
                      unlink("p.lock");
                      next = HoldLock("p.lock");
                  },
                  [] { return set("3"); },
                  [&](auto& behind) {
                      behind.await_waiter("p.lock");
                      replace("[A]\nx=2\ny=2\n");
                      next.reset();
                  }),
              0u);
    EXPECT_EQ(ReadFile("p"), "[A]\nx=3\ny=2\n");
}

TEST_P(SharedProfileSetter, ADirectoryLinkThatMovesTakesTheChangeAlong) {
    MakeDirs("a");
    MakeDirs("b");
    WriteFile("a/p", "[A]\nx=1\nin=a\n");
    WriteFile("b/p", "[A]\nx=1\nin=b\n");
    ASSERT_EQ(symlink("a", "d"), 0);
    UniqueFd lock_there;
    const auto move = [&](auto&) {
        lock_there = HoldLock("b/p.lock");
        ASSERT_EQ(symlink("b", "e"), 0);
        ASSERT_EQ(rename("e", "d"), 0);
    };
    EXPECT_EQ(run_behind(
                  "a/p.lock", move, [] { return set("2", "./d/p"); },
                  [&](auto& behind) {
                      behind.await_waiter("b/p.lock");
                      lock_there.reset();
                  }),
              0u);
    EXPECT_EQ(ReadFile("a/p"), "[A]\nx=1\nin=a\n");
    EXPECT_EQ(ReadFile("b/p"), "[A]\nx=2\nin=b\n");
}

TEST_P(SharedProfileSetter, FilesThatAreReplacedForEverAreAFailureAndNoHang) {
    {
        // Nobody can tell what the names lead to.
        const Fault missing("stat", 1, ENOENT, Fault::kAll);
        EXPECT_EQ(set("2"), kFailed);
    }
    EXPECT_EQ(syslog.lines(), Lines{Err("Can't lock ./p.lock.")});
    EXPECT_EQ(ReadFile("p"), "[A]\nx=1\n");
    EXPECT_FALSE(Exists("p+") || Exists("p-"));
}

// A cancellation strikes at the first call that may wait; nothing unwinds there.
TEST_P(SharedProfileSetter, ACancelledThreadLeavesNothingLocked) {
    std::thread thread([] {
        EXPECT_EQ(pthread_cancel(pthread_self()), 0);
        EXPECT_EQ(set("2"), 0u);
    });
    thread.join();
    EXPECT_EQ(ReadFile("p"), "[A]\nx=2\n");
    EXPECT_EQ(set("3"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Setters, SharedProfileSetter,
                         ::testing::Values(Setter{"SetValue", KORX_IniSetValue},
                                           Setter{"SetOrAdd", KORX_IniSetOrAddValue}),
                         [](const auto& setter) { return setter.param.name; });

using SharedProfileSave = SharedProfile;

// The other one's F+ is neither moved nor removed: it is waited for.
TEST_F(SharedProfileSave, AnotherSaversVersionIsLeftAlone) {
    KORX_IniSection section = {"[S]", nullptr, nullptr};
    EXPECT_EQ(run_behind(
                  "p",
                  [](auto&) {
                      unlink("p+");
                      WriteFile("p+", "half");
                  },
                  [&] { return KORX_IniSaveFile("./p", &section); },
                  [](auto&) {
                      usleep(300000);
                      EXPECT_EQ(ReadFile("p+"), "half");
                      unlink("p+");
                  }),
              0u);
    EXPECT_EQ(ReadFile("p"), "[S]\n");
    EXPECT_EQ(ReadFile("p-"), "[A]\nx=1\n");
}

}  // namespace
}  // namespace korx::test
