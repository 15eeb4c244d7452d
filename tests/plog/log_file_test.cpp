#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "base/unique.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr uint32_t kAll = 0xFFFFFFFF;

struct LogFile : RoomTest {
    LogFile() {
        MakeDirs(tree.path("logs"));
        SetLogPath(tree.path("logs"));
    }
};

TEST_F(LogFile, ReportsTwiceToTheSystemLogOrNotAtAll) {
    const std::string longest(599, 'r');
    DBG_SysLog(LOG_ERR, "%s", "x");
    DBG_SysLog(LOG_ERR, "%s", longest.c_str());  // too long with its name in front
    DBG_SysLog(LOG_ERR, "%sr", longest.c_str());
    DBG_SysLog(8, "odd");
    DBG_SysLog(-1, "odd");
    EXPECT_EQ(syslog.lines(), (std::vector<SyslogLine>{{LOG_ERR, "x"},
                                                       {LOG_INFO, "[LOG_ERR] x\n"},
                                                       {LOG_ERR, longest},
                                                       {LOG_ERR, "odd"},
                                                       {LOG_INFO, "[LOG_ERR] odd\n"},
                                                       {LOG_ERR, "odd"},
                                                       {LOG_INFO, "[LOG_ERR] odd\n"}}));
}

TEST_F(LogFile, SetsUpAndBindsNoAgentThatIsNotThere) {
    LOG_FileInit();
    EXPECT_EQ(g_stSLogInfo.acFileName, tree.path("logs/korx_safe.log"));
    EXPECT_EQ(g_stSLogInfo.uiMaxSize, 131072u);
    EXPECT_EQ(g_acSTLogFileHeadName, tree.path("logs/.korxloghdr"));
    EXPECT_EQ(KORX_IsImLibInited(), 0u);
    EXPECT_EQ(KORX_ReportLogByImLib(1, "x"), kAll);
    EXPECT_EQ(std::ranges::count(syslog.texts(), "Load libimagent.so unsuccessfully."), 1);
}

TEST_F(LogFile, LeavesALogWhoseNameDoesNotFitUnconfigured) {
    strcpy(g_acLogPath, ("/" + std::string(244, 'd')).c_str());
    LLOG_LogFileInit();
    EXPECT_STREQ(g_stLifeLogInfo.acFileName, "");
    EXPECT_EQ(g_stLifeLogInfo.uiMaxSize, 0u);
}

TEST_F(LogFile, BindsAnAgentOnlyWithItsFunction) {
    void* const library = dlopen(KORX_TEST_AGENT_DIR "/hollow/libimagent.so", RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    KORX_ImDiagLogFuncInit();
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(dlopen("libimagent.so", RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is still loaded";
    EXPECT_EQ(KORX_IsImLibInited(), 0u);
    EXPECT_EQ(syslog.texts()[0], "Lookup symbol IM_Agent_ReportLogById unsuccessfully.");
}

TEST_F(LogFile, HandsTextsToTheAgentWithAndWithoutTheSlot) {
    void* const library = dlopen(KORX_TEST_AGENT_DIR "/libimagent.so", RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    KORX_ImDiagLogFuncInit();
    ASSERT_EQ(KORX_IsImLibInited(), 1u);
    const auto* const received = static_cast<const char*>(dlsym(library, "received"));
    ORX_LOG_SetSlotId(3);
    EXPECT_EQ(KORX_ReportLogByImLib(5, "done"), 77u);
    EXPECT_STREQ(received, "9 5 done[SlotId=3]");
    const std::string text(1023, 't');
    EXPECT_EQ(KORX_ReportLogByImLib(5, text.substr(11).c_str()), 77u) << "the longest";
    EXPECT_EQ(KORX_ReportLogByImLib(5, text.c_str()), kAll);
    EXPECT_EQ(KORX_ReportDiagLogByImLib(6, text.c_str()), 77u);
    EXPECT_EQ(received, "9 6 " + text);
}

TEST_F(LogFile, OpensLogsAboveTheStandardStreamsAndClosedOnExec) {
    for (const int standard : {0, 1, 2}) {
        const int kept = dup(standard);
        close(standard);
        int fd = 0;
        const uint32_t result = LOG_OpenFile(tree.path("x").c_str(), O_RDWR | O_CREAT, &fd);
        dup2(kept, standard);
        close(kept);
        ASSERT_EQ(result, 0u);
        EXPECT_GT(fd, 2);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        close(fd);
    }
    int fd = 0;
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    EXPECT_EQ(LOG_OpenFile(tree.path("fifo").c_str(), O_RDWR, &fd), 6u);
    EXPECT_EQ(LOG_OpenFile("/dev/null", O_RDWR, &fd), 0u);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0) << "a slow device is waited for";
    close(std::exchange(fd, 5));
    EXPECT_EQ(LOG_OpenFile("bare", O_RDWR, &fd), kAll);
    EXPECT_EQ(fd, 5);
    EXPECT_EQ(LOG_OpenFile(tree.path("none").c_str(), O_RDWR, &fd), 6u);
    EXPECT_EQ(fd, -1);
    const Fault fault("fcntl", 1, EBADF, Fault::kAll);
    EXPECT_EQ(LOG_OpenFile(tree.path("x").c_str(), O_RDWR, &fd), kAll);
    EXPECT_EQ(fd, 0);
}

TEST_F(LogFile, ReopensAVanishedOrReplacedFileAtItsEnd) {
    const std::string file = tree.path("deep/er/log");
    int fd = 0;
    ASSERT_EQ(LOG_CheckAndCreateFile(file.c_str(), &fd), 0u);
    const int first = fd;
    EXPECT_EQ(LOG_CheckAndCreateFile(file.c_str(), &fd), 0u);
    EXPECT_EQ(fd, first);
    WriteFile("new", "seven b");
    ASSERT_EQ(rename("new", file.c_str()), 0);
    EXPECT_EQ(LOG_CheckAndCreateFile(file.c_str(), &fd), 0u);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 7);
    EXPECT_EQ(LOG_CheckAndCreateFile(nullptr, &fd), 1u);
    EXPECT_EQ(close(fd), 0);
}

TEST_F(LogFile, WaitsForALockThroughSignalsAndFalseDeadlocks) {
    const UniqueFd fd(open("locked", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    for (const int error : {EINTR, EDEADLK}) {
        const Fault fault("fcntl", 1, error, 3);
        EXPECT_EQ(DBG_LockReg(fd.get(), DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, SEEK_SET, 0), 0u);
    }
    {
        const Fault real("fcntl", 1, EDEADLK, Fault::kAll);
        const Fault no_nap("usleep", 1, EINTR, Fault::kAll);
        EXPECT_EQ(DBG_LockReg(fd.get(), DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, SEEK_SET, 0), 7u);
        EXPECT_GE(no_nap.asked(), 30'000'000u) << "microseconds that it would have taken";
    }
    const Fault fault("fcntl", 1, EINTR);
    EXPECT_EQ(DBG_LockReg(fd.get(), DBG_LOCK_SET, DBG_LOCK_RELEASE, 0, SEEK_SET, 0), 7u);
}

uint32_t Assemble(char* buffer, int size, uint32_t* length, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const uint32_t result = LOG_BuffAddTime(buffer, size, length, format, args);
    va_end(args);
    return result;
}

TEST_F(LogFile, AssemblesOnlyRecordsThatFit) {
    char buffer[601] = {};
    uint32_t length = 0;
    EXPECT_EQ(Assemble(buffer, 600, &length, "%s", std::string(571, 'x').c_str()), 0u);
    EXPECT_EQ(length, 599u);
    EXPECT_EQ(Assemble(buffer, 600, &length, "%s", std::string(572, 'x').c_str()), kAll);
    for (const int size : {28, 0, -1})
        EXPECT_EQ(Assemble(buffer, size, &length, "x"), kAll) << size;
}

TEST_F(LogFile, CutsAndRestartsPlainLogs) {
    WriteFile("big", std::string(3000, 'b'));
    const UniqueFd fd(open("big", O_RDWR | O_CLOEXEC));
    lseek(fd.get(), 0, SEEK_END);
    const Fault look = Fault::Meanwhile(
        "write", 1,
        [] {
            EXPECT_EQ(RunChild([] {
                          const UniqueFd same(open("big", O_RDWR | O_CLOEXEC));
                          return DBG_LockReg(same.get(), DBG_LOCK_SET, DBG_LOCK_WRITE, 0, SEEK_SET,
                                             0) == 7
                                     ? 0
                                     : 1;
                      }),
                      0)
                << "it is not locked";
        },
        3);
    EXPECT_EQ(LOG_Buff2File(fd.get(), "new", 3, 2000), 0u);
    EXPECT_EQ(ReadFile("big"), "new" + std::string(1997, 'b'));
    EXPECT_EQ(LOG_Buff2File(fd.get(), "er", 2, 2000), 0u);
    EXPECT_EQ(PLOG_Buff2File(fd.get(), "x", 1, 2000), 0u);
    EXPECT_EQ(ReadFile("big").substr(0, 7), "newerxb");
}

TEST_F(LogFile, KnowsItsProcesses) {
    EXPECT_EQ(ORX_PLOG_GetCompType("zelk"), 3u);
    for (const char* other : {"ZELK", "zelk ", "", "zelk_agen"})
        EXPECT_EQ(ORX_PLOG_GetCompType(other), 5u) << other;
}

}  // namespace
}  // namespace korx::test
