// What all logs promise about the files that they share with others: processes that replace them,
// close their descriptors, fork, cancel threads or let nobody read the system log.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "base/unique.h"
#include "korx/log.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/guard.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

struct Row {
    const char* name;
    const char* file;
    uint32_t (*write)(const char* text);
};

uint32_t WriteText(const char* text) {
    return ORX_WriteLogfile((std::string(g_acLogPath) + "/orx_app.log").c_str(), 100000, text);
}

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

constexpr Row kRows[] = {
    {"text", "orx_app.log", WriteText},
    {"diag", "KORX_DIAG_LOG", [](const char* text) { return DLOG_LogFile("%s", text); }},
    {"security", "korx_safe.log", [](const char* text) { return SLOG_LogFile("%s", text); }},
    {"life", "korx_life.log", [](const char* text) { return LLOG_LogFile("%s", text); }},
    {"process", "zelk.log", [](const char* text) { return PLOG_LogFile("zelk", "%s", text); }},
    {"start", "KORX_START_LOG", [](const char* text) { return STLOG_LogFile(1, "%s", text); }},
    {"start header", ".korxloghdr", [](const char* text) { return STLOG_LogFile(2, "%s", text); }},
};

struct SharedFile : RoomTest, ::testing::WithParamInterface<Row> {
    SharedFile() {
        (void) alarm(60);  // instead of a hang
        SetLogPath(tree.root());
        strcpy(g_acLogPath, tree.root().c_str());
        DLOG_LogFileInit();
        SLOG_LogFileInit();
        LLOG_LogFileInit();
        STLOG_LogFileInit();
        KORX_PLogInit(0, "zelk", 0);
    }

    const char* file() const { return GetParam().file; }
    bool is_text() const { return GetParam().write == WriteText; }
    std::string log() const {
        const bool is_header = strcmp(file(), ".korxloghdr") == 0;
        return ReadFile(is_header ? "KORX_START_LOG" : file());
    }
    bool holds(const std::string& text) const { return log().find(text) != std::string::npos; }
    void write(const char* text) const { EXPECT_EQ(GetParam().write(text), 0u) << text; }

    // A line that waits because another process holds the log's lock.
    struct WaitingLine : BehindLock {
        explicit WaitingLine(
            const SharedFile& test, const Act& before_release = [](const BehindLock&) {})
            : BehindLock(
                  test.file(), test.is_text() ? Lock::kWhole : Lock::kRecord,
                  [] { return GetParam().write("two\n"); }, before_release) {}
    };
};

TEST_P(SharedFile, AReplacedFileGetsTheLineOfWhoeverWaitedForItsLock) {
    write("one\n");
    WaitingLine two(*this, [&](const BehindLock&) {
        unlink(file());
        close(open(file(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    });
    EXPECT_EQ(two.finish(), 0u);
    EXPECT_TRUE(holds("two\n"));
    write("three\n");
    EXPECT_TRUE(holds("two\n") && holds("three\n"));
}

TEST_P(SharedFile, AVanishedFileIsMadeAnewAlsoWhereItCouldNotBeLocked) {
    write("one\n");
    unlink(file());
    const Fault no_lock("fcntl", 1, ENOLCK);
    write("two\n");
    EXPECT_TRUE(holds("two\n"));
}

TEST_P(SharedFile, AFileThatIsReplacedForEverIsAFailureAndNoHang) {
    write("one\n");
    // The name leads to the file that was opened only when nobody looks.
    const Fault missing("stat", 1, ENOENT, Fault::kAll);
    EXPECT_NE(GetParam().write("two\n"), 0u);
}

TEST_P(SharedFile, DescriptorsThatTheProcessClosedAreNotTouchedAgain) {
    constexpr int kForeign = 20;
    EXPECT_EQ(RunChild([&] {
                  write("one\n");
                  close_range(3, ~0u, 0);
                  write("two\n");
                  close_range(3, ~0u, 0);
                  // Whatever number the library remembers leads here now.
                  int fds[kForeign] = {open("foreign", O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
                  for (int i = 1; i < kForeign; ++i)
                      fds[i] = dup(fds[0]);
                  write("three\n");
                  EXPECT_TRUE(holds("one\n") && holds("two\n") && holds("three\n"));
                  struct stat foreign = {};
                  EXPECT_EQ(stat("foreign", &foreign), 0);
                  EXPECT_EQ(foreign.st_size, 0);
                  for (const int fd : fds) {
                      struct stat st = {};
                      EXPECT_EQ(fstat(fd, &st), 0);
                      EXPECT_EQ(st.st_ino, foreign.st_ino) << "it was closed, and the log took it";
                  }
                  return 0;
              }),
              0);
}

TEST_P(SharedFile, AFifoIsNoLog) {
    ASSERT_EQ(mkfifo(file(), 0600), 0);
    EXPECT_NE(GetParam().write("one\n"), 0u);
    EXPECT_NE(GetParam().write("two\n"), 0u) << "the first line left it open";
}

TEST_P(SharedFile, AForkedChildLogsThoughAnotherThreadWasLogging) {
    write("one\n");
    WaitingLine two(*this);
    const pid_t child = fork();
    if (child == 0)
        _exit(GetParam().write("three\n") == 0 ? 0 : 1);
    EXPECT_EQ(two.finish(), 0u);
    EXPECT_EQ(Await(child), 0);
    EXPECT_TRUE(holds("three\n"));
}

TEST_P(SharedFile, ACancelledThreadLeavesNothingLocked) {
    write("one\n");
    WaitingLine two(*this);
    EXPECT_EQ(pthread_cancel(two.caller().native_handle()), 0);
    EXPECT_EQ(two.finish(), 0u);
    write("three\n");
    EXPECT_TRUE(holds("two\n") && holds("three\n"));
}

INSTANTIATE_TEST_SUITE_P(Logs, SharedFile, ::testing::ValuesIn(kRows), [](const auto& row) {
    std::string name = row.param.name;
    std::erase(name, ' ');
    return name;
});

struct LockedLogs : RoomTest {};

// Nobody may be reading the system log: a report can take for ever.
TEST_F(LockedLogs, ReportsWaitUntilTheLocksAreFree) {
    strcpy(g_acLogPath, tree.root().c_str());
    DLOG_LogFileInit();
    ASSERT_EQ(DLOG_LogFile("one\n"), 0u);
    const LOG_HEAD_S almost_full = {g_stDLogInfo.uiMaxSize - 13, 0, 0};
    using Writer = std::function<uint32_t()>;
    for (const Writer& write : {Writer([] { return DLOG_LogFile("two\n"); }), Writer([] {
                                    return DLOG_Buff2File(g_iDLogFileFd, "two\n", 4,
                                                          g_stDLogInfo.uiMaxSize);
                                })}) {
        ASSERT_EQ(pwrite(g_iDLogFileFd, &almost_full, sizeof almost_full, 0),
                  ssize_t{sizeof almost_full});
        const Belongings before;
        const Fault report =
            Fault::Meanwhile("vsyslog", 1, [&] { EXPECT_EQ(before.left_behind(), ""); });
        EXPECT_EQ(write(), 0u);
        EXPECT_EQ(report.hits(), 1u) << "it begins a lap, and says so";
    }
}

TEST_F(LockedLogs, ABusyLockIsAskedForAFewTimesAndThenWaitedFor) {
    strcpy(g_acLogPath, tree.root().c_str());
    DLOG_LogFileInit();
    ASSERT_EQ(DLOG_LogFile("one\n"), 0u);
    for (const int busy : {3, 8, 9}) {
        const Fault held("fcntl", 1, EAGAIN, busy);
        EXPECT_EQ(DLOG_LogFile("two\n") == 0, busy < 9) << "the ninth waits, and fails here";
        EXPECT_EQ(held.calls(), busy < 9 ? unsigned(busy) + 2 : 9u);
    }
}

TEST_F(LockedLogs, ANewStartLogHasItsSeparatorsThoughItsHeaderIsOld) {
    strcpy(g_acLogPath, tree.root().c_str());
    STLOG_LogFileInit();
    ASSERT_EQ(STLOG_LogFile(3, "one\n"), 0u);
    unlink("KORX_START_LOG");
    ASSERT_EQ(STLOG_LogFile(3, "two\n"), 0u);
    EXPECT_EQ(ReadFile("KORX_START_LOG").substr(77, 32), "\n==============================\n");
    const uint32_t cursor = HeadOf<STLOG_HDR_S>(".korxloghdr").astSec[3].uiCur;
    EXPECT_EQ(ReadFile("KORX_START_LOG").substr(cursor - 4), "two\n");
}

TEST_F(LockedLogs, TheStartLogRefusesWhatHasNoFileOrNoRoom) {
    EXPECT_NE(STLOG_LogBuff2File(0, "x", 1), 0u);
    strcpy(g_acLogPath, tree.root().c_str());
    STLOG_LogFileInit();
    ASSERT_EQ(STLOG_LogFile(0, "one\n"), 0u);
    const std::string before = ReadFile("KORX_START_LOG") + ReadFile(".korxloghdr");
    const std::string long_record(9000, 'r');  // the section has 8192 bytes
    EXPECT_NE(STLOG_LogBuff2File(0, long_record.data(), 9000), 0u);
    EXPECT_EQ(ReadFile("KORX_START_LOG") + ReadFile(".korxloghdr"), before);
}

uint32_t CountedAgent(uint32_t, uint32_t, const char*, ...) {
    static int depth = 0;
    EXPECT_EQ(++depth, 1) << "entered again";
    ORX_Log2File(1, "an agent that logs");
    --depth;
    return 0;
}

TEST_F(LockedLogs, AnAgentThatLogsIsNotEnteredAgain) {
    SetLogPath(tree.root());
    ASSERT_EQ(KORX_OrxLogInit(80101, "zelk"), 0u);
    g_KorxImAgentReportLogByIdFunc = CountedAgent;
    EXPECT_EQ(KORX_ReportLogByImLib(1, "direct"), 0u);
    EXPECT_EQ(KORX_ReportDiagLogByImLib(1, "direct"), 0u);
    ORX_Log2File(1, "by the log");
}

}  // namespace
}  // namespace korx::test
