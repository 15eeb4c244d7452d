// Each mutex and each file lock of the libraries is waited for by the calls that it is for:
// somebody has it, and who calls is seen waiting for it.
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <semaphore>
#include <thread>

#include "base/unique.h"
#include "korx/basic.h"
#include "korx/reader.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"
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
    {"Runs", nullptr, "sigaction", [] { return KORX_Execvp("true", " "); }},
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

struct LockRow {
    const char* name;
    const char* file;
    Lock lock;
    std::function<uint32_t()> call;

    friend void PrintTo(const LockRow& row, std::ostream* out) { *out << row.name; }
};

UniqueFd Opened(const char* file) {
    return UniqueFd(open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0640));
}

using Store = uint32_t(int fd, const void* record, uint32_t length, uint32_t limit);

uint32_t StoreIn(const char* file, Store* store) {
    const UniqueFd fd = Opened(file);
    return store(fd.get(), "t\n", 2, 1000);
}

// It was made since it was found missing.
uint32_t Create(const std::function<uint32_t()>& create) {
    const Fault missing("stat", 1, ENOENT);
    return create();
}

const korx_reader_options kPatient = [] {
    korx_reader_options options = {};
    options.lock_timeout_ms = 600000;
    return options;
}();

uint32_t Read(const char* log) {
    korx_reader* reader = nullptr;
    korx_reader_error error;
    const auto code = korx_reader_open(log, KORX_LOG_AUTO, &kPatient, &reader, &error);
    korx_reader_close(reader);
    return code;
}

uint32_t Repair() {
    korx_reader_repaired repaired;
    korx_reader_error error;
    const auto keep = [](void*, const korx_reader*, const korx_record*) { return 0; };
    const auto code = korx_reader_repair("../korx_safe.log", KORX_LOG_SECURITY, &kPatient, keep,
                                         nullptr, &repaired, &error);
    return code == KORX_READER_SOUND ? 0 : code;
}

const LockRow kLockRows[] = {
    {"DiagRecord", "../KORX_DIAG_LOG", Lock::kRecord, [] { return DLOG_LogFile("t\n"); }},
    {"SecurityEvent", "../korx_safe.log", Lock::kRecord, [] { return SLOG_LogFile("t\n"); }},
    {"LifeRecord", "../korx_life.log", Lock::kRecord, [] { return LLOG_LogFile("t\n"); }},
    {"ProcessRecord", "../zelk.log", Lock::kRecord, [] { return PLOG_LogFile("zelk", "t\n"); }},
    {"StartHeader", "../.korxloghdr", Lock::kRecord, [] { return STLOG_LogFile(1, "t\n"); }},
    {"StartLog", "../KORX_START_LOG", Lock::kRecord, [] { return STLOG_LogFile(1, "t\n"); }},
    {"StartFiles", "../.korxloghdr", Lock::kRecord, [] { return STLOG_CheckFileHandle(); }},
    {"StartRecord", "../KORX_START_LOG", Lock::kRecord,
     [] { return STLOG_LogBuff2File(1, "t\n", 2); }},
    {"StartRecordsHeader", "../.korxloghdr", Lock::kRecord,
     [] { return STLOG_LogBuff2File(1, "t\n", 2); }},
    {"NewRing", "new", Lock::kRecord,
     [] {
         int fd = -1;
         const uint32_t code = Create([&] { return DLOG_CheckAndCreateFile("./new", &fd); });
         return close(fd) == 0 ? code : 1;
     }},
    {"PlainStore", "f", Lock::kRecord, [] { return StoreIn("f", LOG_Buff2File); }},
    {"ProcessStore", "f", Lock::kRecord, [] { return StoreIn("f", PLOG_Buff2File); }},
    {"RingStore", "f", Lock::kRecord, [] { return StoreIn("f", DLOG_Buff2File); }},
    {"NewTextLog", "new", Lock::kWhole,
     [] { return Create([] { return ORX_CreateLogfile(".", "new"); }); }},
    {"TextLine", "f", Lock::kWhole, [] { return ORX_WriteLogfile("./f", 1000, "t\n"); }},
    {"LockFile", "f", Lock::kRecord, [] { return KORX_LockFile(Opened("f").get()); }},
    {"Change", "p.lock", Lock::kRecord, [] { return KORX_IniSetValue("./p", "[A]", "x", "2"); }},
    {"ChangeOfLocked", "p", Lock::kRecord, [] { return KORX_IniSetValue("./p", "[A]", "x", "2"); }},
    {"Addition", "p.lock", Lock::kRecord,
     [] { return KORX_IniSetOrAddValue("./p", "[A]", "y", "2"); }},
    {"Save", "p", Lock::kRecord, [] { return KORX_IniSaveFile("./p", nullptr); }},
    {"Read", "../korx_safe.log", Lock::kRecord, [] { return Read("../korx_safe.log"); }},
    {"ReadText", "../orx_app.log", Lock::kWhole, [] { return Read("../orx_app.log"); }},
    {"ReadStart", "../.korxloghdr", Lock::kRecord, [] { return Read("../KORX_START_LOG"); }},
    {"Repair", "../korx_safe.log", Lock::kRecord, Repair},
};

struct EachFileLock : Mutexes, ::testing::WithParamInterface<LockRow> {};

TEST_P(EachFileLock, KeepsTheCallWaitingWhileAnotherProcessHasIt) {
    const LockRow& row = GetParam();
    EXPECT_EQ(RunChild([] {
                  SLOG_LogFile("t\n");
                  STLOG_LogFile(0, "t\n");
                  return int(ORX_WriteLogfile("../orx_app.log", 1000, "t\n"));
              }),
              0);
    EXPECT_EQ(STLOG_CheckFileHandle(), 0u) << "which takes locks itself while it opens";
    EXPECT_EQ(BehindLock(row.file, row.lock, row.call).finish(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Calls, EachFileLock, ::testing::ValuesIn(kLockRows),
                         [](const auto& row) { return row.param.name; });

// Reading is over when it comes to the acknowledgement: only that is kept waiting.
TEST_F(Mutexes, AnAcknowledgementWaitsForTheLogsLock) {
    ASSERT_EQ(SLOG_LogFile("t\n"), 0u);
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    korx_record record;
    ASSERT_EQ(korx_reader_open("../korx_safe.log", KORX_LOG_SECURITY, &kPatient, &reader, &error),
              0u);
    ASSERT_EQ(korx_reader_next_unread(reader, &record), 1);
    const auto acknowledge = [&] { return uint32_t(korx_reader_ack(reader, &error)); };
    EXPECT_EQ(BehindLock("../korx_safe.log", Lock::kRecord, acknowledge).finish(), 0u)
        << error.text;
    korx_reader_close(reader);
}

}  // namespace
}  // namespace korx::test
