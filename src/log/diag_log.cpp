// A line of the diagnostic log: what it is made of, and which road it takes.
#include "korx/log.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/local_time.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "format/record.h"
#include "format/stamp.h"
#include "korx/fs.h"
#include "korx/plog.h"

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

namespace {

constexpr size_t kMessageSize = 1023;
constexpr size_t kMaxMessage = 1021;
constexpr size_t kStampSize = 64;
constexpr size_t kLineSize =
    kMaxTextLength + 2;  // the longest line, its newline and the terminator

constexpr int kPriorities[] = {LOG_INFO, LOG_INFO, LOG_WARNING, LOG_ERR};
static_assert(std::size(kPriorities) == std::size(kTextLevels));

// Where this thread's line goes. Read once per line: the record may be replaced meanwhile.
uint32_t EffectiveMode() {
    const uint32_t mode = g_stLogInfo.uiLogMode;
    const bool writes_files = mode == ORX_LOG_MODE_DIAG || mode == ORX_LOG_MODE_FILE;
    return writes_files && LogScope::inside() ? uint32_t{ORX_LOG_MODE_SYSLOG} : mode;
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
    if (taken != kOk && taken != ORX_PLOG_ERR_HOOK)
        return SysLog("Write log to diaglog unsuccessfully.");
    if (taken == kOk && KORX_IsPkgPoolReady() == 1)
        return;
    WriteLineToFile(path, line, length);
}

// What a line is made of.
struct Line {
    uint32_t level;
    uint32_t slot;
    const char* stamp;
    const char* message;
};

void WriteLine(uint32_t mode, const Line& parts, char* line) {
    const LogScope writing;
    const int length =
        snprintf_s(line, kLineSize, kMaxTextLength, kTextFormat, parts.stamp, getpid(),
                   g_stLogInfo.uiModuleId, kTextLevels[parts.level], parts.message);
    if (length < 0)
        return SysLog("Print ORX_LOG_FMT unsuccessfully.");
    FixedText<kMessageSize> path;
    if (!path.format("%s/%s", g_stLogInfo.acLogDir, g_stLogInfo.acLogFileName))
        return SysLog("Print LogFileDir unsuccessfully.LogFileDir=%s/%s", g_stLogInfo.acLogDir,
                      g_stLogInfo.acLogFileName);

    const auto line_length = static_cast<size_t>(length);
    if (mode == ORX_LOG_MODE_FILE)
        WriteLineToFile(path.c_str(), line, line_length);
    else
        WriteLineToDiag(parts.level, parts.slot, path.c_str(), line, line_length);
}

}  // namespace

void SysLogV(const char* format, va_list args) {
    Report(LOG_ERR, AfterReport::kNothing, format, args);
}

void LogV(uint32_t level, const char* format, va_list args) {
    const ErrnoSaver keep;
    const Uncancelled uncancelled;
    const uint32_t slot = ORX_LOG_GetSlotId();
    level = std::min(level, kLevelErr);

    // On the heap: the crash dump logs on an alternate stack of 64 KiB, threads of callers may have
    // little more, and below this the road still needs its own path and record buffers.
    const MallocPtr<char> line(static_cast<char*>(malloc(kLineSize)));
    if (!line)
        return SysLog("Malloc Memory unsuccessfully.");
    const MallocPtr<char> message(static_cast<char*>(malloc(kMessageSize)));
    if (!message)
        return SysLog("Malloc Memory unsuccessfully.");
    if (vsnprintf_s(message.get(), kMessageSize, kMaxMessage, format, args) < 0)
        return SysLog("Get Parametron unsuccessfully.");

    FixedText<kStampSize> now;
    ORX_GetLogTimeStr(now.data(), now.capacity());
    const Line parts = {level, slot, now.c_str(), message.get()};
    switch (const uint32_t mode = EffectiveMode()) {
        case ORX_LOG_MODE_SYSLOG_LINE:
            return ReportLine(LOG_INFO, AfterReport::kFlushOutput, "%s [ProcID:%d|%u|%s] : %s\n",
                              now.c_str(), getpid(), g_stLogInfo.uiModuleId, kTextLevels[level],
                              message.get());
        case ORX_LOG_MODE_SYSLOG:
            return ReportLine(kPriorities[level], AfterReport::kNothing, "[%u] %s\n",
                              g_stLogInfo.uiModuleId, message.get());
        case ORX_LOG_MODE_DIAG:
        case ORX_LOG_MODE_FILE:
            return WriteLine(mode, parts, line.get());
        default:
            return;
    }
}

}  // namespace korx

using namespace korx;

void ORX_Log2File(uint32_t level, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    LogV(level, format, args.list);
}

void ORX_syslog(int priority, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    Report(priority, AfterReport::kNothing, format, args.list);
}

void ORX_GetLogTimeStr(char* buffer, uint32_t size) {
    const LocalNow now;
    const struct tm& local = now.local;
    const auto number = [](int value) { return static_cast<unsigned>(value); };
    const size_t limit = size == 0 ? 0 : size - 1;
    if (sprintf_s(buffer, limit, kShortFormat, number(local.tm_year - 100),
                  number(local.tm_mon + 1), number(local.tm_mday), number(local.tm_hour),
                  number(local.tm_min), number(local.tm_sec), now.micros()) < 0)
        return SysLog("Print time unsuccessfully.");
    buffer[size - 1] = '\0';
}

uint32_t ORX_LogLevelSwitch2SysLogLevel(uint32_t level) {
    return static_cast<uint32_t>(level < std::size(kPriorities) ? kPriorities[level] : LOG_INFO);
}

uint32_t ORX_IsCrcClosed() {
    return g_pcORXCrcEnv != nullptr ? 1 : 0;
}
