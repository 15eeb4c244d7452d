// Opening, heads and storing of the three rings.
//
// AppendToRing is the road of a record: the threads' mutex, the open file, the assembled text, the
// file's lock, and the store by the rule of its ring. What goes wrong on the way is reported once
// both locks are free.
//
// Lock order: a log's mutex, then its file lock. A discarded security or life-cycle record takes
// the diagnostic record log's pair inside its own; the diagnostic record log takes nobody else's.
#include "plog/ring.h"

#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/lock.h"
#include "base/report.h"
#include "format/ring.h"
#include "korx/fs.h"
#include "korx/plog.h"
#include "plog/file.h"
#include "plog/record.h"
#include "plog/report.h"

namespace korx {
namespace {

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

// The lap ends here; what is written next goes to the start of the data area.
void StartNewLap(LOG_HEAD_S* head) {
    head->uiTotalLen = head->uiLogLen;
    head->uiLogLen = 0;
}

// Stores a record where the head says and moves the head on, in memory only: the caller holds the
// file lock and writes the head back. On failure the head in the file still is the old one, and the
// next record tries the same step again. Reports begin with the tag; a place that the file does not
// have is a failed seek, as it always was, though nothing seeks here.
uint32_t StoreInRing(const char* tag, int fd, const void* record, uint32_t length, uint32_t limit,
                     LOG_HEAD_S* head) {
    if (ReachesLimit(*head, length, limit)) {
        if (ftruncate(fd, limit) < 0)
            return DbgFail(kRecordFailed, "%s ftruncate unsuccessfully, err:%d.", tag, errno);
        DBG_SysLog(LOG_INFO, "%s reach max size, log len:%u buffer len:%u.", tag, head->uiLogLen,
                   length);
        StartNewLap(head);
    }

    const off_t end = off_t{kRingHeadSize} + head->uiLogLen;
    if (WriteAt(fd, length, record, end) < 0)
        return CannotSeek(fd, end)
                   ? DbgFail(kRecordFailed, "%s lseek unsuccessfully, err:%d.", tag, errno)
                   : DbgFail(kRecordFailed, "%s log write unsuccessfully, err:%d.", tag, errno);
    head->uiLogLen += length;

    // From here on the old lap has nothing left that this one could still reach.
    if (head->uiTotalLen != 0 && head->uiLogLen >= head->uiTotalLen) {
        DBG_SysLog(LOG_INFO, "%s log len > uiTotalLen. log len:%u ,Total len:%u.", tag,
                   head->uiLogLen, head->uiTotalLen);
        StartNewLap(head);
    }
    return kOk;
}

// What cannot be read of the head counts as that of a new file: this log never stops.
uint32_t StoreOverOldest(int fd, const void* record, uint32_t length, uint32_t limit) {
    LOG_HEAD_S head = {};
    (void) !pread(fd, &head, sizeof head, 0);
    if (StoreInRing("DLOG", fd, record, length, limit, &head) != kOk)
        return kRecordFailed;
    (void) WriteAt(fd, sizeof head, &head, 0);
    return kOk;
}

constexpr char kDiscardText[] = "New log will wrap undumped log, discard";

// The loss is told where readers look: in the diagnostic record log, which takes neither this
// ring's mutex nor its file lock, so that the order of the locks has no cycle.
uint32_t Discard() {
    DBG_SysLog(LOG_ERR, "New log will wrap undumped log, discard and ret:%d.",
               static_cast<int>(ORX_PLOG_ERR_DISCARDED));
    (void) DLOG_LogFile("[Index:0x37741004][AppCid:0][WARNING][L:80100 M:0][0]%s and ret:%d.\n",
                        kDiscardText, static_cast<int>(ORX_PLOG_ERR_DISCARDED));
    return ORX_PLOG_ERR_DISCARDED;
}

uint32_t StoreUnlessUnread(int fd, const void* record, uint32_t length, uint32_t limit) {
    LOG_HEAD_S head = {};
    if (pread(fd, &head, sizeof head, 0) < 0)
        return DbgFail(kRecordFailed, "SLOG read log head failed, err:%d.", errno);
    if (LOG_IsReachUndump(head, length, limit) == 1)
        return Discard();
    if (StoreInRing("SLOG", fd, record, length, limit, &head) != kOk)
        return kRecordFailed;
    if (WriteAt(fd, sizeof head, &head, 0) < 0)
        DBG_SysLog(LOG_WARNING, "SLOG write head unsuccessfully, err:%d.", errno);
    return kOk;
}

}  // namespace

uint32_t AppendToRing(const RingLog& log, const char* format, va_list args) {
    const RecordRoad road(*log.mutex);
    const char* const path = log.info->acFileName;
    if (!road || (ExamineSlot(log.fd, -1) != SlotState::kOurs &&
                  DLOG_CheckAndCreateFile(path, log.fd) != kOk))
        return kRecordFailed;
    Record record;
    if (!record.assemble(format, args))
        return kRecordFailed;

    LogFileLock lock(path, log.fd, DLOG_CheckAndCreateFile);
    switch (lock.acquire()) {
        case LogFileLock::Result::kRefused:
            return log.report_refused_lock();
        case LogFileLock::Result::kNoFile:
            return kRecordFailed;
        case LogFileLock::Result::kHeld:
            break;
    }
    auto* const store = log.unread == Unread::kProtected ? StoreUnlessUnread : StoreOverOldest;
    const uint32_t result = store(*log.fd, record.text(), record.length(), log.info->uiMaxSize);
    if (!lock.release() && result == kOk)
        log.report_unlock();
    return result;
}

}  // namespace korx

using namespace korx;

uint32_t DLOG_CheckAndCreateFile(const char* path, int* fd) {
    if (path == nullptr || fd == nullptr)
        return ORX_PLOG_ERR_NULL_PARA;
    const LogScope writing;
    if (ExamineSlot(fd, -1) == SlotState::kOurs) {
        if (IsFileOfPath(fd, path))
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

uint32_t DLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit) {
    const HeldReports reports;
    const Uncancelled uncancelled;
    RecordLock lock(fd);
    if (!lock.acquire())
        return DbgFail(kRecordFailed, "DLOG lock file unsuccessfully.");
    const uint32_t result = StoreOverOldest(fd, record, length, limit);
    if (!lock.release() && result == kOk)
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
    return result;
}

uint32_t SLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit) {
    return StoreUnlessUnread(fd, record, length, limit);
}

uint32_t LOG_IsReachUndump(LOG_HEAD_S head, uint32_t length, uint32_t limit) {
    // The writer has wrapped and stands below the reader: all from uiDumpLen on is unread. The sum
    // wraps at 32 bits on purpose: processes of every age decide by it side by side in one file,
    // and only all alike do they agree on what may be written over.
    if (head.uiLogLen < head.uiDumpLen)
        return head.uiLogLen + length > head.uiDumpLen ? 1 : 0;
    // The unread records lie behind the writer, so only a wrap can reach them.
    return head.uiDumpLen < length && ReachesLimit(head, length, limit) ? 1 : 0;
}
