// The security event log: a ring whose unread records are never overwritten. A record that would do
// so is refused with 99, and the loss is written into the diagnostic record log while this log's
// mutex and file lock are held; that log never takes these, so the order has no cycle.
#include <errno.h>

#include "base/lock.h"
#include "base/report.h"
#include "korx/plog.h"
#include "plog/ring.h"

namespace korx {
namespace {

constexpr uint32_t kDiscarded = 99;
constexpr char kDiscardText[] = "New log will wrap undumped log, discard";

uint32_t Store(int fd, const Record& record, uint32_t limit) {
    RecordLock lock(fd);
    if (!lock.acquire())
        return DbgFail(kRecordFailed, "SLOG lock file unsuccessfully.");
    const uint32_t result = SLOG_Buff2File(fd, record.text(), record.length(), limit);
    if (!lock.release() && result == kOk)
        DBG_SysLog(LOG_ERR, "SLOG unlock file unsuccessfully.");
    return result;
}

constexpr RingLog kSecurityLog = {&g_stSLogInfo, &g_iSLogFileFd, &g_unSLogMutex, Store};

uint32_t Discard() {
    DBG_SysLog(LOG_ERR, "New log will wrap undumped log, discard and ret:%d.",
               static_cast<int>(kDiscarded));
    (void) DLOG_LogFile("[Index:0x37741004][AppCid:0][WARNING][L:80100 M:0][0]%s and ret:%d.\n",
                        kDiscardText, static_cast<int>(kDiscarded));
    return kDiscarded;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_SecurityEventLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                               uint32_t value, const char* format, ...) {
    if (g_pfOrxSafeLogHook != nullptr)
        return kRecordFailed;
    const LogScope writing;
    MessageText message;
    va_list args;
    va_start(args, format);
    const bool fits = message.vformat(format, args);
    va_end(args);
    if (!fits)
        return DbgFail(kRecordFailed, "[SLOG] Format string failed, err: %d.", -1);

    if (KORX_IsImLibInited() == 1)
        return g_KorxImAgentReportLogByIdFunc(kAgentSecurity, index, "%s", message.c_str());
    return AppendEvent(kSecurityLog, {app_cid, index, level, m_value, value}, message);
}

uint32_t SLOG_LogFile(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const uint32_t result = AppendRecord(kSecurityLog, format, args);
    va_end(args);
    return result;
}

uint32_t SLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit) {
    LOG_HEAD_S head = {};
    if (DLOG_ReadHead(fd, &head) < 0)
        return DbgFail(kRecordFailed, "SLOG read log head failed, err:%d.", errno);
    if (LOG_IsReachUndump(head, length, limit) == 1)
        return Discard();
    if (RingStore("SLOG", fd, record, length, limit, &head) != kOk)
        return kRecordFailed;
    if (DLOG_WriteHead(fd, &head) < 0)
        DBG_SysLog(LOG_WARNING, "SLOG write head unsuccessfully, err:%d.", errno);
    return kOk;
}

uint32_t LOG_IsReachUndump(LOG_HEAD_S head, uint32_t length, uint32_t limit) {
    // The writer has wrapped and stands below the reader: all from uiDumpLen on is unread.
    if (head.uiLogLen < head.uiDumpLen)
        return head.uiLogLen + length > head.uiDumpLen ? 1 : 0;
    // The unread records lie behind the writer, so only a wrap can reach them.
    return head.uiDumpLen < length && ReachesLimit(head, length, limit) ? 1 : 0;
}
