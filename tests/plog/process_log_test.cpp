#include <errno.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "base/unique.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr uint32_t kAll = 0xFFFFFFFF;

struct ProcessLog : RoomTest {
    ProcessLog() { SetLogPath(tree.path("logs")); }
};

TEST_F(ProcessLog, WritesBothForms) {
    KORX_PLogInit(0, "DXN", 0);
    EXPECT_EQ(g_stPLogInfo[4].uiMaxSize, 262144u);
    ORX_LOG_SetLocId(80100);
    EXPECT_EQ(KORX_PLog(5, 3, 120, "package %s", "verified"), 0u);
    EXPECT_EQ(KORX_PLogByProcName(1, "DXN", 3, 120, "again"), 0u);
    const std::regex lines(R"(\[[\d :.-]{26}\]\[FATAL\]\[L:80100 M:3\]\[120\]package verified\n)"
                           R"(\[[\d :.-]{26}\]\[L:80100 M:3\]\[INFO\]\[120\]again\n)");
    EXPECT_TRUE(std::regex_match(ReadFile("logs/DXN.log"), lines)) << ReadFile("logs/DXN.log");
}

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// In memory that can be written, too, for which libc's fortified calls may end a process.
TEST_F(ProcessLog, TakesAFormatThatCounts) {
    KORX_PLogInit(0, "zelk", 0);
    const std::string format = "pack%nage";
    int record = 0, line = 0;
    EXPECT_EQ(KORX_PLog(1, 0, 0, format.c_str(), &record), 0u);
    DBG_SysLog(LOG_INFO, format.c_str(), &line);
    EXPECT_TRUE(record == 4 && line == 4) << record << line;
}

TEST_F(ProcessLog, RefusesUnknownAndUnregisteredProcesses) {
    KORX_PLogInit(0, "nobody", 0);
    EXPECT_EQ(std::ranges::count(syslog.texts(), "KORX PLogInit, get comp type unsuccessfully."),
              1);
    EXPECT_EQ(KORX_PLog(0, 0, 0, "x"), kAll);
    EXPECT_EQ(KORX_PLogByProcName(0, "zelk", 0, 0, "x"), kAll);
    KORX_PLogInit(0, "zelk", 0);
    EXPECT_EQ(KORX_PLog(0, 0, 0, "%s", std::string(601, 'x').c_str()), kAll);
    EXPECT_FALSE(Exists("logs"));
}

TEST_F(ProcessLog, WrapsToTheStartAtItsLimit) {
    MakeDirs("logs");
    WriteFile("logs/zelk.log", std::string(940, 'o'));
    KORX_PLogInit(0, "zelk", 1000);
    EXPECT_EQ(PLOG_LogFile("zelk", "%s", std::string(40, 'n').c_str()), 0u);
    std::string bytes = ReadFile("logs/zelk.log");
    EXPECT_EQ(bytes.size(), 1000u);
    EXPECT_EQ(bytes.substr(28),
              std::string(40, 'n') + std::string(872, 'o') + std::string(60, '\0'));

    // Cut by somebody else: the position lies beyond the end.
    ASSERT_EQ(truncate("logs/zelk.log", 0), 0);
    EXPECT_EQ(PLOG_LogFile("zelk", "short"), 0u);
    EXPECT_EQ(ReadFile("logs/zelk.log").size(), 33u);

    ASSERT_EQ(unlink("logs/zelk.log"), 0);
    EXPECT_EQ(PLOG_LogFile("zelk", "anew"), 0u);
    EXPECT_EQ(ReadFile("logs/zelk.log").substr(28), "anew");
    const std::string rest(472, 'r');  // up to the limit
    EXPECT_EQ(PLOG_LogFile("zelk", "%s", std::string(440, 'n').c_str()), 0u);
    EXPECT_EQ(PLOG_LogFile("zelk", "%s", rest.c_str()), 0u);
    bytes = ReadFile("logs/zelk.log");
    EXPECT_EQ(bytes.size(), 1000u);
    EXPECT_TRUE(bytes.ends_with(rest));
}

TEST_F(ProcessLog, IsNotWrittenWhereItsEndIsNotKnown) {
    KORX_PLogInit(0, "zelk", 0);
    ASSERT_EQ(PLOG_LogFile("zelk", "first"), 0u);
    close(std::exchange(g_iPLogFileFd[3], 0));
    {
        const Fault lost("lseek", 1, EIO);
        EXPECT_EQ(PLOG_LogFile("zelk", "second"), kAll);
    }
    EXPECT_EQ(PLOG_LogFile("zelk", "third"), 0u);
    EXPECT_EQ(ReadFile("logs/zelk.log").substr(28, 5), "first");
}

// Another thread may get the number at any time.
TEST_F(ProcessLog, RemembersNoNumberThatIsNotItsOwn) {
    KORX_PLogInit(0, "zelk", 0);
    for (const bool is_closed_by_others : {false, true}) {
        ASSERT_EQ(PLOG_LogFile("zelk", "first"), 0u);
        const UniqueFd other(open("/dev/null", O_RDWR | O_CLOEXEC));
        const UniqueFd foreign(is_closed_by_others ? dup3(other.get(), g_iPLogFileFd[3], O_CLOEXEC)
                                                   : -1);
        RemoveAll("logs");
        const Fault full("mkdir", 1, ENOSPC);
        EXPECT_EQ(PLOG_LogFile("zelk", "second"), kAll);
        EXPECT_EQ(g_iPLogFileFd[3], 0) << is_closed_by_others;
    }
}

TEST_F(ProcessLog, WritesOnWhereLockOrCutFails) {
    KORX_PLogInit(0, "zelk", 50);
    ASSERT_EQ(PLOG_LogFile("zelk", "first"), 0u);
    syslog.clear();
    const Fault cut("ftruncate", 1, ENOSPC);
    EXPECT_EQ(PLOG_LogFile("zelk", "second"), 0u);
    EXPECT_EQ(syslog.texts().at(0), "PLOG ftruncate unsuccessfully, err: 28.");
    EXPECT_TRUE(ReadFile("logs/zelk.log").ends_with("second"));
    const Fault lock("fcntl", 1, ENOLCK, Fault::kAll);
    syslog.clear();
    EXPECT_EQ(PLOG_LogFile("zelk", "third"), 0u);
    EXPECT_EQ(std::ranges::count(syslog.texts(), "DLOG lock file unsuccessfully."), 2);
}

}  // namespace
}  // namespace korx::test
