// The diagnostic record log, a ring that every process writes. The mutex is held from the
// open-or-create step to the end of the write, the file lock from the read of the head to its
// update.
#include "korx/plog.h"

#include <unistd.h>

#include "plog/agent.h"
#include "plog/file.h"
#include "plog/record.h"
#include "plog/report.h"

using namespace korx;

uint32_t KORX_DLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                   uint32_t value, const char* format, ...) {
    constexpr uint32_t kHookSet = 2;
    if (g_pfOrxDiagLogHook != nullptr)
        return kHookSet;
    const LogScope writing;
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return DbgFail(kRecordFailed, "[DLOG] Format string failed, err: %d.", -1);

    if (KORX_IsImLibInited() == 1) {
        (void) HandToAgent(AgentLog::kDiag, index, message.c_str());
        return kOk;
    }
    return DLOG_LogFile(kEventFormat, index, app_cid, LevelName(level), g_uiOrxLocationId, m_value,
                        value, message.c_str());
}

uint32_t KORX_DLogFsync(void) {
    if (!IsOpen(g_iDLogFileFd))
        return kOk;
    return fsync(g_iDLogFileFd) == 0 ? kOk : kRecordFailed;
}

uint32_t DLOG_LogFile(const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return AppendRecord(
        g_unDLogMutex,
        [] { return DLOG_CheckAndCreateFile(g_stDLogInfo.acFileName, &g_iDLogFileFd) == kOk; },
        [](const Record& record) {
            return DLOG_Buff2File(g_iDLogFileFd, record.text(), record.length(),
                                  g_stDLogInfo.uiMaxSize);
        },
        format, args.list);
}
