// The life-cycle log: the security event log's ring under another name, mutex and choice between
// file and agent.
#include "base/lock.h"
#include "base/report.h"
#include "korx/plog.h"
#include "plog/state.h"
#include "plog/ring.h"

namespace korx {
namespace {

constexpr uint32_t kLockFailed = 7;

uint32_t Store(int fd, const Record& record, uint32_t limit) {
    RecordLock lock(fd);
    if (!lock.acquire())
        return DbgFail(kLockFailed, "LifeLOG lock file unsuccessfully, ret = %u.", kLockFailed);
    return SLOG_Buff2File(fd, record.text(), record.length(), limit);
}

constexpr RingLog kLifeLog = {&g_stLifeLogInfo, &g_lifeLogFileFd, &g_unLLogMutex, Store};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_LifeCycleLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                           uint32_t value, const char* format, ...) {
    const LogScope writing;
    MessageText message;
    va_list args;
    va_start(args, format);
    const bool fits = message.vformat(format, args);
    va_end(args);
    if (!fits)
        return DbgFail(kRecordFailed, "LifeCycleLog, format string failed.");

    if (IsLocalMode())
        return AppendEvent(kLifeLog, {app_cid, index, level, m_value, value}, message);
    if (KORX_IsImLibInited() != 0)
        return g_KorxImAgentReportLogByIdFunc(kAgentLife, index, "%s", message.c_str());
    return kOk;
}

uint32_t LLOG_LogFile(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const uint32_t result = AppendRecord(kLifeLog, format, args);
    va_end(args);
    return result;
}
