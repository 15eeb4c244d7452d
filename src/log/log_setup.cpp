// Set-up of the diagnostic log, its reserve for a full disk, and the crash dump.
#include <execinfo.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "korx/fs.h"
#include "korx/log.h"
#include "korx/path.h"

namespace korx {
namespace {

constexpr uint32_t kAgentModule = 80100;
constexpr uint32_t kMaxLogLength = 0x80000;
constexpr char kAgentLogFile[] = "orx_agent.log";
constexpr char kAppLogFile[] = "orx_app.log";

constexpr char kSpaceFullLog[] = "orx_spacefull.log";
constexpr size_t kSpaceFullSize = 5120;
constexpr mode_t kSpaceFullMode = 0640;

constexpr int kCrashStatus = 0x71000005;
constexpr int kMaxFrames = 32;
constexpr unsigned kDumpSeconds = 5;

void PutInForce(const ORX_LogInfo* record) {
    (void) memcpy_s(&g_stLogInfo, sizeof g_stLogInfo, record, sizeof *record);
    Log(kLevelInfo, "**********************LogInit***********************");
}

// The crash may have left a lock of the C library or of another thread held, and the dump needs
// them: whatever it then waits for, the process ends.
void ArmDumpWatchdog() {
    struct sigaction action = {};
    action.sa_handler = [](int) { _exit(kCrashStatus); };
    (void) sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm_only;
    (void) sigemptyset(&alarm_only);
    (void) sigaddset(&alarm_only, SIGALRM);
    (void) pthread_sigmask(SIG_UNBLOCK, &alarm_only, nullptr);
    (void) alarm(kDumpSeconds);
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_LogInit(const ORX_LogInfo* record) {
    PutInForce(record);
}

uint32_t KORX_OrxLogInit(uint32_t module_id, const char* process_name) {
    const bool agent = module_id == kAgentModule;
    ORX_LogInfo record = {};
    record.uiLogLevel = agent ? kLevelWarning : kLevelErr;
    record.uiLogMode = ORX_LOG_MODE_DIAG;
    record.uiModuleId = module_id;
    record.uiMaxLogLen = kMaxLogLength;

    const uint32_t got = KORX_GetLogPath(record.acLogDir, sizeof record.acLogDir);
    if (got != kOk)
        return SysFail(got, "Get log path unsuccessfully when orx log init, ret=[%u]", got);
    const int named =
        strncpy_s(record.acProcName, sizeof record.acProcName, process_name, strlen(process_name));
    if (named != 0)
        return SysFail(static_cast<uint32_t>(named),
                       "cpy procName unsuccessfully when orx log init, errCode:%d, procName:%s",
                       named, process_name);
    const char* const file = agent ? kAgentLogFile : kAppLogFile;
    const int filed =
        strncpy_s(record.acLogFileName, sizeof record.acLogFileName, file, strlen(file));
    if (filed != 0)
        return SysFail(static_cast<uint32_t>(filed),
                       "cpy procName unsuccessfully when orx log init, errCode:%d, logFile:%s",
                       filed, file);

    PutInForce(&record);
    return kOk;
}

void ORX_SpaceFullLogInit(void) {
    FixedText<256> directory;
    (void) KORX_GetLogPath(directory.data(), directory.capacity());

    const MallocPtr<char> blanks(static_cast<char*>(malloc(kSpaceFullSize)));
    if (!blanks)
        return Log(kLevelErr, "spacefull malloc unsuccessfully.");
    memset(blanks.get(), ' ', kSpaceFullSize);

    FixedText<256> path;
    if (!path.format("%s/%s", directory.c_str(), kSpaceFullLog))
        return SysLog("Print LogSpacefullDir unsuccessfully.LogSpacefullDir=%s/%s",
                      directory.c_str(), kSpaceFullLog);
    FixedText<256> absolute;
    if (ORX_GetAbsolutePathAndFileName(path.c_str(), absolute.data(), absolute.capacity()) != kOk)
        return Log(kLevelErr,
                   "Get abolute path and file name of file %s unsuccessfully when space full init.",
                   path.c_str());

    const UniqueFile file(fopen(absolute.c_str(), "w+e"));
    if (!file)
        return Log(kLevelErr, "spacefull fopen unsuccessfully, errno=%d.", errno);
    const size_t written = fwrite(blanks.get(), 1, kSpaceFullSize, file.get());
    // Flushed here so that a full disk shows now and not, unseen, in fclose.
    if (written != kSpaceFullSize || fflush(file.get()) != 0)
        Log(kLevelErr, "Spacefulllog init fwrite unsuccessfully, retCode=%d, ferror=%d.",
            static_cast<int>(written), ferror(file.get()));
    (void) fchmod(fileno(file.get()), kSpaceFullMode);
}

void KORX_DumpBacktraceHandler(void) {
    ArmDumpWatchdog();
    Log(kLevelInfo, "*******Start to get backtrace info*******");
    void* frames[kMaxFrames];
    const int depth = backtrace(frames, kMaxFrames);
    if (depth < 0) {
        Log(kLevelErr, "Get backtrace depth unsuccessfully");
        exit(kCrashStatus);
    }
    Log(kLevelInfo, "Current stack depth is %d", depth);

    const MallocPtr<char*> symbols(backtrace_symbols(frames, depth));
    if (!symbols) {
        Log(kLevelErr, "Get backtrace_symbols unsuccessfully");
        exit(kCrashStatus);
    }
    for (int i = 0; i < depth; ++i)
        Log(kLevelErr, "%s", symbols.get()[i]);
    _exit(kCrashStatus);
}
