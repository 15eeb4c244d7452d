#include <signal.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <thread>

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
int CrashStatus(Crash crash, int flags = SA_ONSTACK) {
    return RunChild([&] {
        constexpr size_t kGuard = 4096;
        constexpr size_t kStack = 64 * 1024;
        void* const memory =
            mmap(nullptr, kGuard + kStack, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        stack_t alternate = {};
        alternate.ss_sp = static_cast<char*>(memory) + kGuard;
        alternate.ss_size = kStack;
        EXPECT_EQ(mprotect(alternate.ss_sp, kStack, PROT_READ | PROT_WRITE), 0);
        if ((flags & SA_ONSTACK) != 0)
            sigaltstack(&alternate, nullptr);
        struct sigaction action = {};
        action.sa_flags = flags;
        action.sa_handler = [](int) { KORX_DumpBacktraceHandler(); };
        if ((flags & SA_NODEFER) == 0)
            sigfillset(&action.sa_mask);
        for (const int number : {SIGUSR1, SIGSEGV, SIGABRT})
            sigaction(number, &action, nullptr);
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
        // A thread that swallows every signal of the process and puts its alarms off.
        std::thread([] {
            sigset_t all;
            sigfillset(&all);
            for (int number = 0;; (void) sigwait(&all, &number))
                (void) alarm(1000);
        }).detach();
        pthread_mutex_lock(&g_unDLogMutex);
        raise(SIGUSR1);
    };
    EXPECT_EQ(CrashStatus(crash), kCrashStatus);
}

uint32_t FaultingAgent(uint32_t, uint32_t id, const char*, ...) {
    if (id != 0)
        *reinterpret_cast<volatile int*>(uintptr_t{id}) = 0;
    return 0;
}

uint32_t AbortingAgent(uint32_t, uint32_t, const char*, ...) {
    abort();
}

uint32_t OverflowingAgent(uint32_t type, uint32_t id, const char* format, ...) {
    volatile char room[1024];
    if (type == UINT32_MAX)
        return 0;
    room[0] = static_cast<char>(type);
    return OverflowingAgent(type + 1, id, format) + static_cast<uint32_t>(room[0]);
}

TEST_F(LogSetup, AFaultInsideTheDumpEndsItWithItsStatus) {
    ASSERT_EQ(KORX_OrxLogInit(80101, "zelk"), 0u);
    LOG_FileInit();
    for (auto* const agent : {FaultingAgent, AbortingAgent, OverflowingAgent}) {
        g_KorxImAgentReportLogByIdFunc = agent;
        for (const int flags : {0, SA_NODEFER, SA_ONSTACK, SA_ONSTACK | SA_NODEFER})
            EXPECT_EQ(CrashStatus([] { raise(SIGUSR1); }, flags), kCrashStatus) << flags;
    }
}

bool IsAsleep(pid_t thread) {
    const std::string state = ReadFile("/proc/self/task/" + std::to_string(thread) + "/stat");
    return state.find(") S ") != std::string::npos;
}

uint32_t AgentOfTwoCrashes(uint32_t, uint32_t, const char*, ...) {
    static int lines = 0;
    if (++lines == 1) {
        static std::atomic<pid_t> other = 0;
        std::thread([] {
            other = gettid();
            KORX_DumpBacktraceHandler();
        }).detach();
        while (other == 0 || !IsAsleep(other))
            usleep(1000);
    }
    WriteFile("lines", std::to_string(lines));
    return 0;
}

TEST_F(LogSetup, AThreadThatCrashesBesideTheDumpDoesNotCutIt) {
    ASSERT_EQ(KORX_OrxLogInit(80101, "zelk"), 0u);
    LOG_FileInit();
    g_KorxImAgentReportLogByIdFunc = AgentOfTwoCrashes;
    EXPECT_EQ(CrashStatus([] { raise(SIGUSR1); }), kCrashStatus);
    EXPECT_GT(std::stoi("0" + ReadFile("lines")), 2);
}

}  // namespace
}  // namespace korx::test
