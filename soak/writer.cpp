// The writers: every log from every thread, from forked children too, under signals.
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <random>
#include <thread>
#include <vector>

#include "korx/basic.h"
#include "tickets.h"

// The library calls this one. A writer that comes to stand exactly where the reader stands makes a
// whole unread lap look like none, and the next record goes over it: the format cannot tell the two
// apart, so such records may be missing, and nobody else's.
extern "C" ssize_t pwrite(int fd, const void* data, size_t count, off_t offset) {
    if (soak::g_shared != nullptr && offset == 0 && count == sizeof(LOG_HEAD_S) &&
        (fd == g_iSLogFileFd || fd == g_lifeLogFileFd)) {
        LOG_HEAD_S head;
        memcpy(&head, data, sizeof head);
        const uint32_t end = head.uiLogLen == 0 ? head.uiTotalLen : head.uiLogLen;
        const bool is_there = head.uiDumpLen == head.uiLogLen || head.uiDumpLen == end;
        if (is_there && head.uiTotalLen != 0)
            ++soak::g_shared->hidden_laps[fd == g_iSLogFileFd ? soak::kSecurity : soak::kLife];
    }
    return syscall(SYS_pwrite64, fd, data, count, offset);
}

namespace soak {
namespace {

using Random = std::minstd_rand;

constexpr size_t kKeptOpen = kLogs;  // all logs but the text log, and the start log's header

void SetUp(unsigned process) {
    ORX_LogInfo info = {};
    info.uiLogMode = ORX_LOG_MODE_FILE;
    info.uiModuleId = 80101;
    info.uiMaxLogLen = kRingLimit;
    KORX_GetLogPath(info.acLogDir, sizeof info.acLogDir);
    strcpy(info.acLogFileName, FileOf(kText));
    KORX_LogInit(&info);
    LOG_FileInit();
    for (LOG_INFO_S* log : {&g_stDLogInfo, &g_stSLogInfo, &g_stLifeLogInfo})
        log->uiMaxSize = kRingLimit;
    if (process < std::size(kProcessNames))
        KORX_PLogInit(0, kProcessNames[process], kRingLimit);
}

uint32_t Write(const Name& name, const char* message) {
    switch (name.log) {
        case kText:
            ORX_Log2File(1, "%s", message);
            return 0;
        case kDiag:
            return KORX_DLog(1, 2, 1, 0, 0, "%s", message);
        case kSecurity:
            return KORX_SecurityEventLog(1, 2, 1, 0, 0, "%s", message);
        case kLife:
            return KORX_LifeCycleLog(1, 2, 1, 0, 0, "%s", message);
        case kStart:
            return KORX_STLog(name.writer % kSlots % kThreads, 1, 0, "%s", message);
        default:
            return KORX_PLog(1, 0, 0, "%s", message);
    }
}

void WriteOne(unsigned log, unsigned writer) {
    const Name name{log, writer, g_shared->drawn[log][writer]++};
    if (name.number >= kMostCalls)
        return;
    const std::string message = MessageOf(name);
    name.call().begun = ++g_shared->tickets;
    const uint32_t result = Write(name, message.c_str());
    name.call().outcome = result == 0                        ? Outcome::kAccepted
                          : result == ORX_PLOG_ERR_DISCARDED ? Outcome::kRefused
                                                             : Outcome::kFailed;
    name.call().ended = ++g_shared->tickets;
    if (result == 0)
        g_shared->bytes[log] += message.size();
    if (result == ORX_PLOG_ERR_DISCARDED)
        usleep(3000);
    else if (result != 0)
        Complain("record %u of writer %u in log %u: result %x", name.number, writer, log, result);
}

void WriteInChild(unsigned process) {
    const pid_t child = fork();
    if (child == 0) {
        DBG_SysLog(LOG_INFO, "child");
        for (unsigned log = 0; log < kProcess; ++log)
            WriteOne(log, process * kSlots + kThreads);
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    if (status != 0)
        Complain("a forked child has ended with status %x", status);
}

void RunThread(unsigned process, unsigned thread, unsigned seed) {
    Random random(seed + thread);
    const unsigned logs = process < std::size(kProcessNames) ? kLogs : kProcess;
    while (!g_shared->stops) {
        WriteOne(random() % logs, process * kSlots + thread);
        if (thread == 0 && random() % 64 == 0)
            WriteInChild(process);
        if (thread == 1 && random() % 64 == 0)
            ORX_SpaceFull("/soak", random() % 100);
        DBG_SysLog(LOG_INFO, "thread %u", thread);  // a fork must not copy its locks
        usleep(random() % 2000);
    }
}

}  // namespace

void RunWriter(unsigned process, unsigned seed) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const Descriptors descriptors;
    SetUp(process);
    const itimerval often{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread)
        threads.emplace_back(RunThread, process, thread, seed);
    for (std::thread& thread : threads)
        thread.join();
    descriptors.judge("writer", kKeptOpen);
    _exit(0);
}

}  // namespace soak
