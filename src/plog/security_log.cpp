// The security event log: a ring whose unread records are never overwritten. A record that would do
// so is refused with 99, and the loss is written into the diagnostic record log while this log's
// mutex and file lock are held.
#include "korx/plog.h"

#include <syslog.h>

#include "plog/agent.h"
#include "plog/record.h"
#include "plog/report.h"
#include "plog/ring.h"

namespace korx {
namespace {

constinit ForkMutex security_mutex(&g_unSLogMutex);

uint32_t ReportRefusedLock() {
    return DbgFail(kRecordFailed, "SLOG lock file unsuccessfully.");
}

void ReportUnlock() {
    DBG_SysLog(LOG_ERR, "SLOG unlock file unsuccessfully.");
}

constexpr RingLog kSecurityLog = {.info = &g_stSLogInfo,
                                  .fd = &g_iSLogFileFd,
                                  .mutex = &security_mutex,
                                  .unread = KindOf(KORX_LOG_SECURITY).unread,
                                  .report_refused_lock = ReportRefusedLock,
                                  .report_unlock = ReportUnlock};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_SecurityEventLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                               uint32_t value, const char* format, ...) {
    if (g_pfOrxSafeLogHook != nullptr)
        return kRecordFailed;
    const LogScope writing;
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return DbgFail(kRecordFailed, "[SLOG] Format string failed, err: %d.", -1);

    if (KORX_IsImLibInited() == 1)
        return HandToAgent(AgentLog::kSecurity, index, message.c_str());
    return SLOG_LogFile(kEventFormat, index, app_cid, LevelName(level), g_uiOrxLocationId, m_value,
                        value, message.c_str());
}

uint32_t SLOG_LogFile(const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return AppendToRing(kSecurityLog, format, args.list);
}
