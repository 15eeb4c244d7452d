// Lock order: a log's mutex, then its file lock. A discarded security or life-cycle record takes
// the diagnostic record log's pair inside its own; the diagnostic record log takes nobody else's.
#include "plog/ring.h"

#include <errno.h>
#include <stddef.h>
#include <unistd.h>

#include "base/lock.h"
#include "base/report.h"

namespace korx {
namespace {

[[gnu::format(printf, 2, 3)]] uint32_t AppendFormatted(const RingLog& log, const char* format,
                                                       ...) {
    va_list args;
    va_start(args, format);
    const uint32_t result = AppendRecord(log, format, args);
    va_end(args);
    return result;
}

// The lap ends here; what is written next goes to the start of the data area.
void StartNewLap(LOG_HEAD_S* head) {
    head->uiTotalLen = head->uiLogLen;
    head->uiLogLen = 0;
}

}  // namespace

uint32_t RingStore(const char* tag, int fd, const void* record, uint32_t length, uint32_t limit,
                   LOG_HEAD_S* head) {
    if (ReachesLimit(*head, length, limit)) {
        if (ftruncate(fd, limit) < 0)
            return DbgFail(kRecordFailed, "%s ftruncate unsuccessfully, err:%d.", tag, errno);
        DBG_SysLog(LOG_INFO, "%s reach max size, log len:%u buffer len:%u.", tag, head->uiLogLen,
                   length);
        StartNewLap(head);
    }

    if (lseek(fd, off_t{kRingHeadSize} + head->uiLogLen, SEEK_SET) < 0)
        return DbgFail(kRecordFailed, "%s lseek unsuccessfully, err:%d.", tag, errno);
    if (LOG_Write(fd, length, record) < 0)
        return DbgFail(kRecordFailed, "%s log write unsuccessfully, err:%d.", tag, errno);
    head->uiLogLen += length;

    // From here on the old lap has nothing left that this one could still reach.
    if (head->uiTotalLen != 0 && head->uiLogLen >= head->uiTotalLen) {
        DBG_SysLog(LOG_INFO, "%s log len > uiTotalLen. log len:%u ,Total len:%u.", tag,
                   head->uiLogLen, head->uiTotalLen);
        StartNewLap(head);
    }
    return kOk;
}

uint32_t AppendRecord(const RingLog& log, const char* format, va_list args) {
    const LogScope writing;
    const MutexGuard threads(*log.mutex);
    if (threads.error() != 0)
        return kRecordFailed;
    if (DLOG_CheckAndCreateFile(log.info->acFileName, log.fd) != kOk)
        return kRecordFailed;
    Record record;
    if (!record.assemble(format, args))
        return kRecordFailed;
    return log.store(*log.fd, record, log.info->uiMaxSize);
}

uint32_t AppendEvent(const RingLog& log, const EventFields& fields, const MessageText& message) {
    return AppendFormatted(log, "[Index:%#x][AppCid:%u][%s][L:%u M:%u][%u]%s\n", fields.index,
                           fields.app_cid, LevelName(fields.level), g_uiOrxLocationId,
                           fields.m_value, fields.value, message.c_str());
}

}  // namespace korx
