// The diagnostic log's writer.
//
// Every line opens, locks, writes and closes its file: nothing is cached, so any process may remove
// or replace the file at any time. The flock spans everything from the read of the file's length to
// its update; what goes wrong under it is reported after its release.
#include "korx/log.h"

#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "base/alloc.h"
#include "base/codes.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "format/record.h"
#include "korx/fs.h"
#include "korx/plog.h"
#include "korx/str.h"

static_assert(sizeof(ORX_LogInfo) == 464);
static_assert(offsetof(ORX_LogInfo, uiLogLevel) == 0);
static_assert(offsetof(ORX_LogInfo, uiLogMode) == 4);
static_assert(offsetof(ORX_LogInfo, uiModuleId) == 8);
static_assert(offsetof(ORX_LogInfo, uiMaxLogLen) == 12);
static_assert(offsetof(ORX_LogInfo, acProcName) == 16);
static_assert(offsetof(ORX_LogInfo, acLogDir) == 80);
static_assert(offsetof(ORX_LogInfo, acLogFileName) == 336);

constinit ORX_LogInfo g_stLogInfo = {
    .uiLogLevel = 4,
    .uiLogMode = ORX_LOG_MODE_SYSLOG,
    .uiModuleId = 0,
    .uiMaxLogLen = 0,
    .acProcName = {},
    .acLogDir = {},
    .acLogFileName = {},
};
constinit char* g_pcORXCrcEnv = nullptr;
constinit void* g_pstOrxLogCfgHead = nullptr;

namespace korx {

constinit thread_local uint32_t LogScope::depth_ = 0;

namespace {

constexpr size_t kMessageSize = 1023;
constexpr size_t kMaxMessage = 1021;
constexpr size_t kMaxLine = 1022;
constexpr size_t kLineSize = kMaxLine + 2;  // the longest line, its newline and the terminator
constexpr size_t kPathSize = 512;
constexpr mode_t kLogFileMode = 0640;
constexpr mode_t kLogDirMode = 0750;

constexpr uint32_t kDlogTaken = 0;
constexpr uint32_t kDlogHooked = 2;

constexpr uint32_t kUpdateWrite = 1;
constexpr uint32_t kUpdateRead = 0;

struct Level {
    const char* name;
    int priority;
};
constexpr Level kLevels[] = {
    {"DEBUG", LOG_INFO}, {"INFO", LOG_INFO}, {"WARNING", LOG_WARNING}, {"ERR", LOG_ERR}};

// Where this thread's line goes. Read once per line: the record may be replaced meanwhile.
uint32_t EffectiveMode() {
    const uint32_t mode = g_stLogInfo.uiLogMode;
    const bool writes_files = mode == ORX_LOG_MODE_DIAG || mode == ORX_LOG_MODE_FILE;
    return writes_files && LogScope::inside() ? uint32_t{ORX_LOG_MODE_SYSLOG} : mode;
}

// Moves the length at the start of a log file. Returns the bytes moved, or the full count where the
// seek failed: that is silent.
ssize_t MoveLength(int fd, uint32_t operation, uint32_t* length) {
    if (lseek(fd, 0, SEEK_SET) < 0)
        return sizeof *length;
    return operation == kUpdateWrite ? ORX_Write(fd, length, sizeof *length)
                                     : read(fd, length, sizeof *length);
}

void ReportLength(ssize_t moved) {
    if (moved != ssize_t{sizeof(uint32_t)})
        SysLog("ORX_UpdatelogLen failed, actually write len is %d.", static_cast<int>(moved));
}

// What happened under the file's lock, for the report after it.
struct Append {
    enum Step { kDone, kTruncate, kSeek, kWrite } failed = kDone;
    int64_t result = 0;
    int error = 0;
    ssize_t length_read = 0;
    ssize_t length_written = sizeof(uint32_t);

    Append& fail(Step step, int64_t value) {
        failed = step;
        result = value;
        error = errno;
        return *this;
    }
};

Append AppendText(int fd, uint32_t limit, const char* text) {
    Append append;
    uint32_t length = 0;
    append.length_read = MoveLength(fd, kUpdateRead, &length);
    if (length > limit) {
        if (const int cut = ftruncate(fd, limit); cut < 0)
            return append.fail(Append::kTruncate, cut);
        length = 0;
    }

    const off_t position = off_t{sizeof length} + length;
    if (const off_t moved = lseek(fd, position, SEEK_SET); moved < 0)
        return append.fail(Append::kSeek, moved);
    const int32_t written = ORX_Write(fd, text, static_cast<uint32_t>(strlen(text)));
    if (written < 0)
        return append.fail(Append::kWrite, written);

    length += static_cast<uint32_t>(written);
    append.length_written = MoveLength(fd, kUpdateWrite, &length);
    return append;
}

uint32_t ReportAppend(int fd, const Append& append) {
    ReportLength(append.length_read);
    ReportLength(append.length_written);
    const auto code = static_cast<uint32_t>(append.result);
    const int result = static_cast<int>(append.result);
    switch (append.failed) {
        case Append::kTruncate:
            return SysFail(code, "Ftruncate unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result, fd,
                           append.error);
        case Append::kSeek:
            return SysFail(code, "Lseek unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result, fd,
                           append.error);
        case Append::kWrite:
            return SysFail(code, "Write file unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result,
                           fd, append.error);
        case Append::kDone:
            break;
    }
    return kOk;
}

uint32_t ResolveLogPath(const char* path, FixedText<kPathSize>* absolute) {
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(path, absolute->data(), absolute->capacity());
    if (code != kOk)
        return SysFail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", path, code);
    return kOk;
}

void WriteLineToFile(const char* path, char* line, size_t length) {
    line[length] = '\n';
    line[length + 1] = '\0';
    (void) ORX_WriteLogfile(path, g_stLogInfo.uiMaxLogLen, line);
}

// To the agent when it is bound; else a diagnostic record, and the file too as long as nobody
// outside collects those records.
void WriteLineToDiag(uint32_t level, uint32_t slot, const char* path, char* line, size_t length) {
    if (KORX_IsImLibInited() == 1) {
        (void) KORX_ReportLogByImLib(kDiagIndex, line);
        return;
    }
    if (KORX_IsFileExist(path) == 0 &&
        ORX_CreateLogfile(g_stLogInfo.acLogDir, g_stLogInfo.acLogFileName) != kOk)
        return SysLog("Create log file unsuccessfully, file=%s", path);

    const uint32_t taken = KORX_DLog(0, kDiagIndex, level, 0, 0, "[SlotId=%u]%s", slot, line);
    if (taken != kDlogTaken && taken != kDlogHooked)
        return SysLog("Write log to diaglog unsuccessfully.");
    if (taken == kDlogTaken && KORX_IsPkgPoolReady() == 1)
        return;
    WriteLineToFile(path, line, length);
}

}  // namespace

void SysLogV(const char* format, va_list args) {
    const ErrnoSaver keep;
    vsyslog(LOG_ERR, format, args);
}

void LogV(uint32_t level, const char* format, va_list args) {
    const ErrnoSaver keep;
    const uint32_t slot = ORX_LOG_GetSlotId();
    level = std::min(level, kLevelErr);

    const MallocPtr<char> line(static_cast<char*>(AllocateZeroed(kLineSize)));
    if (!line)
        return SysLog("Malloc Memory unsuccessfully.");
    const MallocPtr<char> message(static_cast<char*>(AllocateZeroed(kMessageSize)));
    if (!message)
        return SysLog("Malloc Memory unsuccessfully.");
    if (vsnprintf_s(message.get(), kMessageSize, kMaxMessage, format, args) < 0)
        return SysLog("Get Parametron unsuccessfully.");

    FixedText<64> now;
    ORX_GetLogTimeStr(now.data(), now.capacity());
    const uint32_t mode = EffectiveMode();
    if (mode == ORX_LOG_MODE_SYSLOG_LINE) {
        syslog(LOG_INFO, "%s [ProcID:%d|%u|%s] : %s\n", now.c_str(), getpid(),
               g_stLogInfo.uiModuleId, kLevels[level].name, message.get());
        (void) fflush(stdout);
    }
    if (mode == ORX_LOG_MODE_SYSLOG)
        ORX_syslog(kLevels[level].priority, "[%u] %s\n", g_stLogInfo.uiModuleId, message.get());
    if (mode != ORX_LOG_MODE_DIAG && mode != ORX_LOG_MODE_FILE)
        return;

    const LogScope writing;
    const int length =
        snprintf_s(line.get(), kLineSize, kMaxLine, "%s [ProcID:%d|%u|%s] : %s", now.c_str(),
                   getpid(), g_stLogInfo.uiModuleId, kLevels[level].name, message.get());
    if (length < 0)
        return SysLog("Print ORX_LOG_FMT unsuccessfully.");
    FixedText<1023> path;
    if (!path.format("%s/%s", g_stLogInfo.acLogDir, g_stLogInfo.acLogFileName))
        return SysLog("Print LogFileDir unsuccessfully.LogFileDir=%s/%s", g_stLogInfo.acLogDir,
                      g_stLogInfo.acLogFileName);

    const auto line_length = static_cast<size_t>(length);
    if (mode == ORX_LOG_MODE_FILE)
        WriteLineToFile(path.c_str(), line.get(), line_length);
    else
        WriteLineToDiag(level, slot, path.c_str(), line.get(), line_length);
}

}  // namespace korx

using namespace korx;

void ORX_Log2File(uint32_t level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(level, format, args);
    va_end(args);
}

void ORX_syslog(int priority, const char* format, ...) {
    const ErrnoSaver keep;
    va_list args;
    va_start(args, format);
    vsyslog(priority, format, args);
    va_end(args);
}

void ORX_GetLogTimeStr(char* buffer, uint32_t size) {
    struct timeval now = {};
    struct tm local = {};
    (void) gettimeofday(&now, nullptr);
    tzset();  // a changed time zone takes effect at once
    (void) localtime_r(&now.tv_sec, &local);

    const auto number = [](int value) { return static_cast<unsigned>(value); };
    const size_t limit = size == 0 ? 0 : size - 1;
    if (sprintf_s(buffer, limit, "[%02u%02u%02u-%02u:%02u:%02u.%06lu]", number(local.tm_year - 100),
                  number(local.tm_mon + 1), number(local.tm_mday), number(local.tm_hour),
                  number(local.tm_min), number(local.tm_sec),
                  static_cast<unsigned long>(now.tv_usec)) < 0)
        return SysLog("Print time unsuccessfully.");
    buffer[size - 1] = '\0';
}

uint32_t ORX_LogLevelSwitch2SysLogLevel(uint32_t level) {
    return static_cast<uint32_t>(level < std::size(kLevels) ? kLevels[level].priority : LOG_INFO);
}

void ORX_UpdatelogLen(int fd, uint32_t operation, uint32_t* length) {
    ReportLength(MoveLength(fd, operation, length));
}

uint32_t ORX_CreateLogfile(const char* directory, const char* name) {
    const LogScope writing;
    FixedText<kPathSize> path;
    if (!path.format("%s/%s", directory, name))
        return SysFail(kFailed, "print Dir unsuccessfully, Dir=%s/%s.", directory, name);
    if (KORX_IsFileExist(path.c_str()) == 1)
        return kOk;
    if (KORX_IsDirExist(directory) == 0 && ORX_MkDir(directory, kLogDirMode) != kOk)
        return SysFail(kFailed, "mkdir %s unsuccessfully", directory);

    FixedText<kPathSize> absolute;
    if (ResolveLogPath(path.c_str(), &absolute) != kOk)
        return kFailed;
    const UniqueFd fd(open(absolute.c_str(), O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, kLogFileMode));
    if (!fd)
        return SysFail(kFailed, "Open %s unsuccessfully, errno=%d.", path.c_str(), errno);

    // Another process may have made the file, and written to it, since it was found missing.
    FlockGuard lock(fd.get());
    struct stat st;
    ssize_t moved = sizeof(uint32_t);
    if (lock.acquire() && fstat(fd.get(), &st) == 0 && st.st_size == 0) {
        uint32_t length = 0;
        moved = MoveLength(fd.get(), kUpdateWrite, &length);
    }
    lock.release();
    ReportLength(moved);
    return kOk;
}

uint32_t ORX_WriteLogfile(const char* path, uint32_t limit, const char* text) {
    const LogScope writing;
    FixedText<kPathSize> absolute;
    if (ResolveLogPath(path, &absolute) != kOk)
        return kFailed;
    const UniqueFd fd(open(absolute.c_str(), O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, kLogFileMode));
    if (!fd)
        return SysFail(kFailed, "Open [%s] unsuccessfully, errno=%d.", path, errno);

    FlockGuard lock(fd.get());
    if (!lock.acquire())
        return kFailed;
    const Append append = AppendText(fd.get(), limit, text);
    lock.release();
    return ReportAppend(fd.get(), append);
}

uint32_t ORX_IsCrcClosed() {
    return g_pcORXCrcEnv != nullptr ? 1 : 0;
}
