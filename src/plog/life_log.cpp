// The life-cycle log: the security event log's ring under another name, mutex and choice between
// file and agent.
#include "korx/plog.h"

#include "plog/agent.h"
#include "plog/record.h"
#include "plog/report.h"
#include "plog/ring.h"
#include "plog/state.h"

namespace korx {
namespace {

constinit ForkMutex life_mutex(&g_unLLogMutex);

uint32_t ReportRefusedLock() {
    return DbgFail(ORX_PLOG_ERR_LOCK, "LifeLOG lock file unsuccessfully, ret = %u.",
                   ORX_PLOG_ERR_LOCK);
}

constexpr RingLog kLifeLog = {.info = &g_stLifeLogInfo,
                              .fd = &g_lifeLogFileFd,
                              .mutex = &life_mutex,
                              .unread = KindOf(KORX_LOG_LIFE).unread,
                              .report_refused_lock = ReportRefusedLock,
                              .report_unlock = [] {}};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_LifeCycleLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                           uint32_t value, const char* format, ...) {
    const LogScope writing;
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return DbgFail(kRecordFailed, "LifeCycleLog, format string failed.");

    if (IsLocalMode())
        return LLOG_LogFile(kEventFormat, index, app_cid, LevelName(level), g_uiOrxLocationId,
                            m_value, value, message.c_str());
    if (KORX_IsImLibInited() != 0)
        return HandToAgent(AgentLog::kLife, index, message.c_str());
    return kOk;
}

uint32_t LLOG_LogFile(const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return AppendToRing(kLifeLog, format, args.list);
}
