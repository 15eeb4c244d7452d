// The start log: four sections of one file, each a ring of its own, with their cursors in a header
// file beside it.
//
// Lock order: the mutex of this process's threads, the header file's lock, the log file's lock.
#include "korx/plog.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/lock.h"
#include "base/report.h"
#include "format/start.h"
#include "plog/file.h"
#include "plog/record.h"

namespace korx {
namespace {

constexpr uint32_t kMaxBlanks = 600;

constinit pthread_mutex_t start_log_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit ForkMutex fork_mutex(&start_log_mutex);

bool HasUsableSections(const STLOG_HDR_S& header) {
    for (size_t i = 0; i < kSectionCount; ++i) {
        if (!IsUsableSection(header, i))
            return false;
    }
    return true;
}

uint32_t ResetLogFile() {
    if (lseek(g_iSTLogFileFd, 0, SEEK_SET) < 0)
        return ORX_PLOG_ERR_SEEK;
    if (ftruncate(g_iSTLogFileFd, 0) < 0)
        return ORX_PLOG_ERR_CUT;
    STLOG_LogSeperatorInit(&kStartDefaults);
    return kOk;
}

// The header's lock also keeps two processes from making the log file at once.
uint32_t OpenFiles(LogFileLock* header_lock) {
    if (EnsureOpenAtEnd(g_acSTLogFileHeadName, &g_iSTLogFileHeadFd) != kOk ||
        !AcquireOrReport(header_lock))
        return kRecordFailed;
    return EnsureOpenAtEnd(g_acSTLogFileName, &g_iSTLogFileFd) == kOk ? kOk : kRecordFailed;
}

// Loads the header for a section. A log file that is new gets its separators whatever the header
// says: somebody may have taken the log away and left its cursors.
uint32_t LoadHeader(uint32_t section, off_t log_size, STLOG_HDR_S* header) {
    const uint32_t loaded = STLOG_LogHdrGet(section, header);
    if (loaded != kOk || log_size != 0)
        return loaded;
    STLOG_LogSeperatorInit(header);
    return lseek(g_iSTLogFileFd, off_t{header->astSec[section].uiCur}, SEEK_SET) < 0
               ? ORX_PLOG_ERR_SEEK
               : kOk;
}

// A failed write leaves the cursor where it is.
void StoreAtCursor(STLOG_HDR_S* header, uint32_t section, const void* record, uint32_t length) {
    const int written = LOG_Write(g_iSTLogFileFd, length, record);
    if (written > 0)
        header->astSec[section].uiCur += static_cast<uint32_t>(written);
    (void) STLOG_LogHdrPut(header);
}

// At least a record's room is left behind the cursor, so a record never leaves its section. What is
// longer than a record may still fit, or is refused.
uint32_t StoreLine(LogFileLock* header_lock, uint32_t section, const void* record,
                   uint32_t length) {
    if (!header_lock->is_held() && !AcquireOrReport(header_lock))
        return kRecordFailed;
    LogFileLock log_lock(g_acSTLogFileName, &g_iSTLogFileFd, OpenAtEnd);
    if (!AcquireOrReport(&log_lock))
        return kRecordFailed;

    STLOG_HDR_S header;
    if (LoadHeader(section, log_lock.size(), &header) != kOk)
        return kRecordFailed;
    const STLOG_SEC_S& target = header.astSec[section];
    if (uint64_t{target.uiCur} + length > target.uiEnd)
        return kRecordFailed;
    StoreAtCursor(&header, section, record, length);

    ReleaseOrReport(&log_lock);
    ReleaseOrReport(header_lock);
    return kOk;
}

// The lock that spans all that is done to the start log.
struct HeaderLock : LogFileLock {
    HeaderLock() : LogFileLock(g_acSTLogFileHeadName, &g_iSTLogFileHeadFd, OpenAtEnd) {}
};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_STLog(uint32_t module, uint32_t level, uint32_t value, const char* format, ...) {
    const LogScope writing;
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return kRecordFailed;

    if (KORX_IsImLibInited() == 1) {
        (void) KORX_ReportLogByImLib(kStartLogId, message.c_str());
        return kOk;
    }
    FixedText<8> name;
    (void) STLOG_GetMoudleBySecIndex(module, name.data(), name.capacity());
    return STLOG_LogFile(module, kStartFormat, LevelName(level), g_uiOrxLocationId, name.c_str(),
                         value, message.c_str());
}

uint32_t STLOG_LogFile(uint32_t section, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    if (section >= kSectionCount)
        return kRecordFailed;
    const RecordRoad road(fork_mutex);
    Record record;
    const bool fits = record.assemble(format, args.list);
    HeaderLock header_lock;
    if (!road || OpenFiles(&header_lock) != kOk)
        return kRecordFailed;
    // One hold from the opening of the log to the end of the record. Where the file cannot be
    // locked, opening and storing ask for themselves and each says so.
    if (!fits || !header_lock.is_held())
        ReleaseOrReport(&header_lock);
    return fits ? StoreLine(&header_lock, section, record.text(), record.length()) : kRecordFailed;
}

uint32_t STLOG_CheckFileHandle(void) {
    const RecordRoad road(fork_mutex);
    HeaderLock header_lock;
    if (!road || OpenFiles(&header_lock) != kOk)
        return kRecordFailed;
    ReleaseOrReport(&header_lock);
    return kOk;
}

uint32_t STLOG_LogBuff2File(uint32_t section, const void* record, uint32_t length) {
    const RecordRoad road(fork_mutex);
    if (!road || section >= kSectionCount ||
        ExamineSlot(&g_iSTLogFileHeadFd, 0) != SlotState::kOurs ||
        ExamineSlot(&g_iSTLogFileFd, 0) != SlotState::kOurs)
        return kRecordFailed;
    HeaderLock header_lock;
    return StoreLine(&header_lock, section, record, length);
}

uint32_t STLOG_LogHdrGet(uint32_t section, STLOG_HDR_S* header) {
    if (section >= kSectionCount || !IsOpen(g_iSTLogFileHeadFd) || !IsOpen(g_iSTLogFileFd))
        return ORX_PLOG_ERR_SEEK;
    STLOG_HDR_S stored = {};
    const ssize_t got = pread(g_iSTLogFileHeadFd, &stored, sizeof stored, 0);
    if (got < 0 && CannotSeek(g_iSTLogFileHeadFd, 0))
        return ORX_PLOG_ERR_SEEK;
    STLOG_LoghdrInit(header);
    if (got == 0)
        STLOG_LogSeperatorInit(header);
    const bool complete = got == ssize_t{sizeof stored} && HasUsableSections(stored);
    if (!complete || STLOG_LogValidCheck(&stored, header) == 0) {
        if (const uint32_t reset = ResetLogFile(); reset != kOk)
            return reset;
    }

    STLOG_SEC_S& target = header->astSec[section];
    if (target.uiCur + kRecordRoom > target.uiEnd)
        target.uiCur = target.uiStart;
    return lseek(g_iSTLogFileFd, off_t{target.uiCur}, SEEK_SET) < 0 ? ORX_PLOG_ERR_SEEK : kOk;
}

uint32_t STLOG_LogHdrPut(const STLOG_HDR_S* header) {
    if (!IsOpen(g_iSTLogFileHeadFd))
        return ORX_PLOG_ERR_SEEK;
    const int written = WriteAt(g_iSTLogFileHeadFd, sizeof *header, header, 0);
    if (written < 0 && CannotSeek(g_iSTLogFileHeadFd, 0))
        return ORX_PLOG_ERR_SEEK;
    return written == int{sizeof *header} ? kOk : ORX_PLOG_ERR_HEADER;
}

void STLOG_LoghdrInit(STLOG_HDR_S* header) {
    *header = kStartDefaults;
}

uint32_t STLOG_LogValidCheck(const STLOG_HDR_S* read, STLOG_HDR_S* header) {
    if (read->uiVersion != header->uiVersion || read->uiMagic != header->uiMagic)
        return 0;
    *header = *read;
    return 1;
}

void STLOG_LogSeperatorInit(const STLOG_HDR_S* header) {
    if (header == nullptr || !IsOpen(g_iSTLogFileFd))
        return;
    for (const STLOG_SEC_S& section : header->astSec) {
        if (lseek(g_iSTLogFileFd, off_t{section.uiStart} - kSeparatorLength, SEEK_SET) >= 0)
            (void) LOG_Write(g_iSTLogFileFd, kSeparatorLength, kSeparator);
    }
}

int STLOG_LogCleanupEnding(uint32_t count) {
    if (!IsOpen(g_iSTLogFileFd))
        return -1;
    char blanks[kMaxBlanks];
    memset(blanks, ' ', sizeof blanks);
    return LOG_Write(g_iSTLogFileFd, std::min(count, kMaxBlanks), blanks);
}

uint32_t STLOG_GetMoudleBySecIndex(uint32_t section, char* buffer, uint32_t size) {
    const char* const name = section < kSectionCount ? kModules[section] : "DEFAULT";
    return static_cast<uint32_t>(strncpy_s(buffer, size, name, strlen(name)));
}
