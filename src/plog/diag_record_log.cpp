// The diagnostic record log, a ring that every process writes, and the opening and head of the
// other two ring logs. The mutex is held from the open-or-create step to the end of the write, the
// file lock from the read of the head to its update.
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/lock.h"
#include "base/report.h"
#include "korx/fs.h"
#include "korx/plog.h"
#include "plog/file.h"
#include "plog/ring.h"

namespace korx {
namespace {

constexpr uint32_t kNullArgument = 1;
constexpr uint32_t kHookSet = 2;

uint32_t Store(int fd, const Record& record, uint32_t limit) {
    return DLOG_Buff2File(fd, record.text(), record.length(), limit);
}

constexpr RingLog kDiagLog = {&g_stDLogInfo, &g_iDLogFileFd, &g_unDLogMutex, Store};

// Another process may have made the same file, and written into it, since it was found missing.
bool WriteFirstHead(int fd) {
    RecordLock lock(fd);
    if (!lock.acquire())
        return false;
    struct stat st;
    constexpr LOG_HEAD_S kEmpty = {};
    if (fstat(fd, &st) == 0 && st.st_size == 0)
        (void) DLOG_WriteHead(fd, &kEmpty);
    return true;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_DLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                   uint32_t value, const char* format, ...) {
    if (g_pfOrxDiagLogHook != nullptr)
        return kHookSet;
    const LogScope writing;
    MessageText message;
    va_list args;
    va_start(args, format);
    const bool fits = message.vformat(format, args);
    va_end(args);
    if (!fits)
        return DbgFail(kRecordFailed, "[DLOG] Format string failed, err: %d.", -1);

    if (KORX_IsImLibInited() == 1) {
        (void) g_KorxImAgentReportLogByIdFunc(kAgentDiag, index, "%s", message.c_str());
        return kOk;
    }
    return AppendEvent(kDiagLog, {app_cid, index, level, m_value, value}, message);
}

uint32_t KORX_DLogFsync(void) {
    if (!IsOpen(g_iDLogFileFd))
        return kOk;
    return fsync(g_iDLogFileFd) == 0 ? kOk : kRecordFailed;
}

uint32_t DLOG_LogFile(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const uint32_t result = AppendRecord(kDiagLog, format, args);
    va_end(args);
    return result;
}

uint32_t DLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit) {
    RecordLock lock(fd);
    if (!lock.acquire())
        return DbgFail(kRecordFailed, "DLOG lock file unsuccessfully.");

    LOG_HEAD_S head = {};  // what cannot be read counts as a new file
    (void) DLOG_ReadHead(fd, &head);
    if (RingStore("DLOG", fd, record, length, limit, &head) != kOk)
        return kRecordFailed;
    (void) DLOG_WriteHead(fd, &head);

    if (!lock.release())
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
    return kOk;
}

uint32_t DLOG_CheckAndCreateFile(const char* path, int* fd) {
    if (path == nullptr || fd == nullptr)
        return kNullArgument;
    const LogScope writing;
    if (IsOpen(*fd)) {
        if (IsFileOfPath(*fd, path))
            return kOk;
        DBG_SysLog(LOG_ERR, "[DLOG] file(%s) not exist and not closed.", path);
        CloseSlot(fd, -1);
    } else if (KORX_IsFileExist(path) == 1) {
        return LOG_OpenFile(path, kLogOpenFlags, fd) == kOk ? kOk : kRecordFailed;
    }

    if (LOG_OpenFile(path, kLogOpenFlags, fd) != kOk)
        return kRecordFailed;
    return WriteFirstHead(*fd) ? kOk : kRecordFailed;
}

int DLOG_WriteHead(int fd, const LOG_HEAD_S* head) {
    if (lseek(fd, 0, SEEK_SET) < 0)
        return -1;
    return LOG_Write(fd, sizeof *head, head);
}

int DLOG_ReadHead(int fd, LOG_HEAD_S* head) {
    if (lseek(fd, 0, SEEK_SET) < 0)
        return -1;
    return static_cast<int>(read(fd, head, sizeof *head));
}
