#include <signal.h>
#include <syslog.h>

#include "korx/log.h"
#include "korx/plog.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr int kCrashStatus = 5;  // the low byte of the dump's exit status

struct LogSetup : RoomTest {
    LogSetup() {
        MakeDirs(tree.path("logs"));
        SetLogPath(tree.path("logs"));
    }
};

TEST_F(LogSetup, PutsAgentAndApplicationRecordsInForce) {
    ASSERT_EQ(KORX_OrxLogInit(80100, "zelk_agent"), 0u);
    EXPECT_EQ(g_stLogInfo.uiLogLevel, 2u);
    EXPECT_STREQ(g_stLogInfo.acLogDir, tree.path("logs").c_str());
    EXPECT_TRUE(Exists("logs/orx_agent.log"));

    ASSERT_EQ(KORX_OrxLogInit(80101, std::string(63, 'p').c_str()), 0u);
    EXPECT_EQ(g_stLogInfo.uiLogLevel, 3u);
    EXPECT_STREQ(g_stLogInfo.acLogFileName, "orx_app.log");

    const std::string before = BytesOf(g_stLogInfo), name(64, 'p');
    EXPECT_NE(KORX_OrxLogInit(80100, name.c_str()), 0u);
    EXPECT_EQ(BytesOf(g_stLogInfo), before);
}

TEST_F(LogSetup, ReservesTheSpaceFullLogAnew) {
    WriteFile("logs/orx_spacefull.log", std::string(9000, 'r'));
    ORX_SpaceFullLogInit();
    EXPECT_EQ(ReadFile("logs/orx_spacefull.log"), std::string(5120, ' '));
}

// Runs the dump where a process would: in the handler of a fatal signal on a small stack.
template <typename Crash>
int CrashStatus(Crash crash) {
    return RunChild([&] {
        static char stack[64 * 1024];
        stack_t alternate = {};
        alternate.ss_sp = stack;
        alternate.ss_size = sizeof stack;
        sigaltstack(&alternate, nullptr);
        struct sigaction action = {};
        action.sa_flags = SA_ONSTACK;
        action.sa_handler = [](int) { KORX_DumpBacktraceHandler(); };
        sigfillset(&action.sa_mask);
        sigaction(SIGUSR1, &action, nullptr);
        crash();
        return 0;
    });
}

TEST_F(LogSetup, DumpsTheStackAndEndsTheProcess) {
    EXPECT_EQ(CrashStatus([] { raise(SIGUSR1); }), kCrashStatus);
    const auto lines = syslog.lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, "[0] *******Start to get backtrace info*******\n");
    EXPECT_EQ(lines[1].text,
              "[0] Current stack depth is " + std::to_string(lines.size() - 2) + "\n");
    EXPECT_EQ(lines[2].priority, LOG_ERR);
}

uint32_t CrashingAgent(uint32_t, uint32_t, const char*, ...) {
    return raise(SIGUSR1) != 0;
}

TEST_F(LogSetup, DumpsFromInsideTheWriter) {
    ASSERT_EQ(KORX_OrxLogInit(80100, "zelk_agent"), 0u);
    LOG_FileInit();
    syslog.clear();
    g_KorxImAgentReportLogByIdFunc = CrashingAgent;
    EXPECT_EQ(CrashStatus([] { ORX_Log2File(3, "the line that crashes"); }), kCrashStatus);
    EXPECT_EQ(syslog.texts()[0], "[80100] *******Start to get backtrace info*******\n");
}

TEST_F(LogSetup, EndsADumpThatHangs) {
    ASSERT_EQ(KORX_OrxLogInit(80101, "zelk"), 0u);
    LOG_FileInit();
    g_KorxImAgentReportLogByIdFunc = nullptr;
    const auto crash = [] {
        pthread_mutex_lock(&g_unDLogMutex);
        raise(SIGUSR1);
    };
    EXPECT_EQ(CrashStatus(crash), kCrashStatus);
}

}  // namespace
}  // namespace korx::test
