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

constexpr uint32_t kSeekFailed = 8;
constexpr uint32_t kCutFailed = 9;
constexpr uint32_t kShortHeader = 11;

constexpr uint32_t kMaxBlanks = 600;

constinit pthread_mutex_t start_log_mutex = PTHREAD_MUTEX_INITIALIZER;

bool HasUsableSections(const STLOG_HDR_S& header) {
    for (size_t i = 0; i < kSectionCount; ++i) {
        if (!IsUsableSection(header, i))
            return false;
    }
    return true;
}

uint32_t ResetLogFile() {
    if (lseek(g_iSTLogFileFd, 0, SEEK_SET) < 0)
        return kSeekFailed;
    if (ftruncate(g_iSTLogFileFd, 0) < 0)
        return kCutFailed;
    STLOG_LogSeperatorInit(&kStartDefaults);
    return kOk;
}

// The header's lock also keeps two processes from making the log file at once.
uint32_t OpenFiles() {
    if (OpenAtEnd(g_acSTLogFileHeadName, &g_iSTLogFileHeadFd) != kOk)
        return kRecordFailed;
    ReportedLock header_lock(g_iSTLogFileHeadFd);
    if (OpenAtEnd(g_acSTLogFileName, &g_iSTLogFileFd) != kOk)
        return kRecordFailed;
    header_lock.release();
    return kOk;
}

// At least a record's room is left behind the cursor, so a record never leaves its section. A
// failed write leaves the cursor where it is.
uint32_t StoreLine(uint32_t index, const void* record, uint32_t length) {
    if (index >= kSectionCount)
        return kRecordFailed;
    ReportedLock header_lock(g_iSTLogFileHeadFd);
    ReportedLock log_lock(g_iSTLogFileFd);

    STLOG_HDR_S header;
    if (STLOG_LogHdrGet(index, &header) != kOk)
        return kRecordFailed;
    const int written = LOG_Write(g_iSTLogFileFd, length, record);
    if (written > 0)
        header.astSec[index].uiCur += static_cast<uint32_t>(written);
    (void) STLOG_LogHdrPut(&header);

    log_lock.release();
    header_lock.release();
    return kOk;
}

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
    if (section >= kSectionCount)
        return kRecordFailed;
    Arguments args;
    va_start(args.list, format);
    return AppendRecord(
        start_log_mutex, [] { return OpenFiles() == kOk; },
        [=](const Record& record) { return StoreLine(section, record.text(), record.length()); },
        format, args.list);
}

uint32_t STLOG_CheckFileHandle(void) {
    const LogScope writing;
    const MutexGuard threads(start_log_mutex);
    return threads.error() == 0 ? OpenFiles() : kRecordFailed;
}

uint32_t STLOG_LogBuff2File(uint32_t section, const void* record, uint32_t length) {
    const LogScope writing;
    const MutexGuard threads(start_log_mutex);
    return threads.error() == 0 ? StoreLine(section, record, length) : kRecordFailed;
}

uint32_t STLOG_LogHdrGet(uint32_t section, STLOG_HDR_S* header) {
    if (section >= kSectionCount || !IsOpen(g_iSTLogFileHeadFd) || !IsOpen(g_iSTLogFileFd))
        return kSeekFailed;
    if (lseek(g_iSTLogFileHeadFd, 0, SEEK_SET) < 0)
        return kSeekFailed;
    STLOG_LoghdrInit(header);

    STLOG_HDR_S stored = {};
    const ssize_t got = read(g_iSTLogFileHeadFd, &stored, sizeof stored);
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
    return lseek(g_iSTLogFileFd, off_t{target.uiCur}, SEEK_SET) < 0 ? kSeekFailed : kOk;
}

uint32_t STLOG_LogHdrPut(const STLOG_HDR_S* header) {
    if (!IsOpen(g_iSTLogFileHeadFd) || lseek(g_iSTLogFileHeadFd, 0, SEEK_SET) < 0)
        return kSeekFailed;
    const int written = LOG_Write(g_iSTLogFileHeadFd, sizeof *header, header);
    return written == int{sizeof *header} ? kOk : kShortHeader;
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
