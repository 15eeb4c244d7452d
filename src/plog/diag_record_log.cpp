// The diagnostic record log, a ring that every process writes. The mutex is held from the
// open-or-create step to the end of the write, the file lock from the read of the head to its
// update.
#include "korx/plog.h"

#include <syslog.h>
#include <unistd.h>

#include "plog/agent.h"
#include "plog/file.h"
#include "plog/record.h"
#include "plog/report.h"
#include "plog/ring.h"

namespace korx {
namespace {

constinit ForkMutex diag_mutex(&g_unDLogMutex);

uint32_t ReportRefusedLock() {
    return DbgFail(kRecordFailed, "DLOG lock file unsuccessfully.");
}

void ReportUnlock() {
    DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
}

constexpr RingLog kDiagLog = {.info = &g_stDLogInfo,
                              .fd = &g_iDLogFileFd,
                              .mutex = &diag_mutex,
                              .unread = KindOf(KORX_LOG_DIAG).unread,
                              .report_refused_lock = ReportRefusedLock,
                              .report_unlock = ReportUnlock};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_DLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                   uint32_t value, const char* format, ...) {
    if (g_pfOrxDiagLogHook != nullptr)
        return ORX_PLOG_ERR_HOOK;
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
    // Read once: a writer may be about to replace it.
    const int fd = __atomic_load_n(&g_iDLogFileFd, __ATOMIC_RELAXED);
    return !IsOpen(fd) || fsync(fd) == 0 ? kOk : kRecordFailed;
}

uint32_t DLOG_LogFile(const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return AppendToRing(kDiagLog, format, args.list);
}
