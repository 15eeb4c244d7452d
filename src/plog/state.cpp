// What the five product logs share: names and identity of this process, opening, locking, time
// stamps, record assembly and the reports to the system log.
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "base/codes.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "korx/fs.h"
#include "korx/path.h"
#include "korx/plog.h"
#include "plog/state.h"
#include "plog/record.h"
#include "plog/file.h"

static_assert(sizeof(LOG_INFO_S) == 260);
static_assert(offsetof(LOG_INFO_S, acFileName) == 0);
static_assert(offsetof(LOG_INFO_S, uiMaxSize) == 256);

constinit char g_acLogPath[256] = {};
constinit LOG_INFO_S g_stDLogInfo = {};
constinit LOG_INFO_S g_stSLogInfo = {};
constinit LOG_INFO_S g_stLifeLogInfo = {};
constinit LOG_INFO_S g_stPLogInfo[5] = {};
constinit char g_acSTLogFileHeadName[256] = {};
constinit char g_acSTLogFileName[256] = {};
constinit int g_iPLogFileFd[5] = {};
constinit int g_iDLogFileFd = 0;
constinit int g_iSLogFileFd = 0;
constinit int g_lifeLogFileFd = 0;
constinit int g_iSTLogFileFd = 0;
constinit int g_iSTLogFileHeadFd = 0;
constinit pthread_mutex_t g_unDLogMutex = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_mutex_t g_unSLogMutex = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_mutex_t g_unLLogMutex = PTHREAD_MUTEX_INITIALIZER;
constinit ORX_LOG_Hook g_pfOrxDiagLogHook = nullptr;
constinit ORX_LOG_Hook g_pfOrxSafeLogHook = nullptr;
constinit uint32_t g_uiOrxLocationId = 0;
constinit uint32_t g_uiOrxSelfSlotId = 0;

namespace korx {
namespace {

constexpr char kLocalModeFile[] = "../conf/config/korx_sdk_init.conf";
constexpr uint32_t kDiagLogSize = 262144;
constexpr uint32_t kSecurityLogSize = 131072;
constexpr uint32_t kLifeLogSize = 262144;

constexpr uint32_t kNullArgument = 1;
constexpr uint32_t kOpenFailed = 6;
constexpr uint32_t kLockFailed = 7;
constexpr uint32_t kNoComponentName = kAllBits;

constexpr mode_t kLogMode = 0640;
constexpr int kLowestLogFd = STDERR_FILENO + 1;
constexpr size_t kPathSize = 512;
constexpr size_t kSysLogText = 600;

constexpr const char* kLevelNames[] = {"DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};
constexpr const char* kPriorityNames[] = {"LOG_EMERG",   "LOG_ALERT",  "LOG_CRIT", "LOG_ERR",
                                          "LOG_WARNING", "LOG_NOTICE", "LOG_INFO", "LOG_DEBUG"};

// A name that does not fit is left empty: the log is then not configured, and its writers fail.
template <size_t N>
bool NameInLogDir(const char* file, char (&name)[N]) {
    return snprintf_s(name, N, N - 1, "%s/%s", g_acLogPath, file) >= 0;
}

void ConfigureLog(const char* file, uint32_t max_size, LOG_INFO_S* info) {
    if (NameInLogDir(file, info->acFileName))
        info->uiMaxSize = max_size;
}

int FormatStamp(char* buffer, size_t size) {
    struct timeval now = {};
    struct tm local = {};
    (void) gettimeofday(&now, nullptr);
    tzset();
    (void) localtime_r(&now.tv_sec, &local);
    return snprintf_s(buffer, size, size - 1, "[%04d-%02d-%02d %02d:%02d:%02d.%06lu]",
                      local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                      local.tm_min, local.tm_sec, static_cast<unsigned long>(now.tv_usec));
}

// Standard input, output and error are other people's: text meant for them would go into the log.
bool MoveAboveStandardStreams(UniqueFd* fd) {
    if (fd->get() >= kLowestLogFd)
        return true;
    const int moved = fcntl(fd->get(), F_DUPFD_CLOEXEC, kLowestLogFd);
    fd->reset(moved);
    return moved >= 0;
}

}  // namespace

void DbgSysLogV(int priority, const char* format, va_list args) {
    const ErrnoSaver keep;
    FixedText<kSysLogText> text;
    if (!text.vformat(format, args))
        return;
    if (priority < LOG_EMERG || priority > LOG_DEBUG)
        priority = LOG_ERR;
    syslog(priority, "%s", text.c_str());

    FixedText<kSysLogText> named;
    if (!named.format("[%s] %s\n", kPriorityNames[priority], text.c_str()))
        return;
    syslog(LOG_INFO, "%s", named.c_str());
    (void) fflush(stdout);
}

const char* LevelName(uint32_t level) {
    return kLevelNames[std::min<size_t>(level, std::size(kLevelNames) - 1)];
}

bool Record::assemble(const char* format, va_list args) {
    return LOG_BuffAddTime(text_, kRecordLimit, &length_, format, args) == kOk;
}

bool IsLocalMode() {
    return KORX_IsFileExist(kLocalModeFile) == 1;
}

}  // namespace korx

using namespace korx;

void LOG_FileInit(void) {
    if (g_acLogPath[0] != '\0')
        return DBG_SysLog(LOG_WARNING, "LOG FileInit, already init successfully.");
    if (KORX_GetLogPath(g_acLogPath, sizeof g_acLogPath) != kOk)
        return DBG_SysLog(LOG_ERR, "LOG FileInit, get log path unsuccessfully.");
    STLOG_LogFileInit();
    DLOG_LogFileInit();
    SLOG_LogFileInit();
    LLOG_LogFileInit();
    if (!IsLocalMode())
        KORX_ImDiagLogFuncInit();
}

void DLOG_LogFileInit(void) {
    ConfigureLog("KORX_DIAG_LOG", kDiagLogSize, &g_stDLogInfo);
}

void SLOG_LogFileInit(void) {
    ConfigureLog("korx_safe.log", kSecurityLogSize, &g_stSLogInfo);
}

void LLOG_LogFileInit(void) {
    ConfigureLog("korx_life.log", kLifeLogSize, &g_stLifeLogInfo);
}

void STLOG_LogFileInit(void) {
    (void) NameInLogDir(".korxloghdr", g_acSTLogFileHeadName);
    (void) NameInLogDir("KORX_START_LOG", g_acSTLogFileName);
}

void ORX_LOG_SetDiagLogHook(ORX_LOG_Hook hook) {
    g_pfOrxDiagLogHook = hook;
}

void ORX_LOG_SetSafeLogHook(ORX_LOG_Hook hook) {
    g_pfOrxSafeLogHook = hook;
}

void ORX_LOG_SetLocId(uint32_t location_id) {
    g_uiOrxLocationId = location_id;
}

void ORX_LOG_SetSlotId(uint32_t slot_id) {
    g_uiOrxSelfSlotId = slot_id;
}

uint32_t ORX_LOG_GetSlotId(void) {
    return g_uiOrxSelfSlotId;
}

char* LOG_GetCurrPath(void) {
    return g_acLogPath;
}

LOG_INFO_S* DLOG_GetLogInfo(void) {
    return &g_stDLogInfo;
}

LOG_INFO_S* SLOG_GetLogInfo(void) {
    return &g_stSLogInfo;
}

LOG_INFO_S* LLOG_GetLogInfo(void) {
    return &g_stLifeLogInfo;
}

uint32_t ORX_PLOG_GetCompType(const char* process_name) {
    const auto* const found =
        std::find_if(std::begin(kComponents), std::end(kComponents),
                     [=](const char* name) { return strcmp(name, process_name) == 0; });
    return static_cast<uint32_t>(found - std::begin(kComponents));
}

uint32_t ORX_PLOG_GetProcName(char* buffer, uint32_t size) {
    for (size_t i = 0; i < kComponentCount; ++i) {
        if (g_stPLogInfo[i].acFileName[0] != '\0')
            return static_cast<uint32_t>(
                strncpy_s(buffer, size, kComponents[i], strlen(kComponents[i])));
    }
    return kNoComponentName;
}

void DBG_SysLog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    DbgSysLogV(priority, format, args);
    va_end(args);
}

uint32_t DBG_LockReg(int fd, int command, short type, off_t start, short whence, off_t length) {
    const int result = SetRecordLock(fd, command, type, start, whence, length, OnDeadlock::kRepeat);
    return result < 0 ? kLockFailed : kOk;
}

int LOG_SetCloexecFlag(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    return flags < 0 ? flags : fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

uint32_t LOG_OpenFile(const char* path, int flags, int* fd) {
    const LogScope writing;
    FixedText<kPathSize> absolute;
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(path, absolute.data(), absolute.capacity());
    if (code != kOk)
        return SysFail(kAllBits, "get absolutepath %s unsuccessfully, uiret=%u.", path, code);

    UniqueFd opened(open(absolute.c_str(), flags | O_CLOEXEC, kLogMode));
    *fd = -1;
    if (!opened)
        return kOpenFailed;
    *fd = 0;
    if (!MoveAboveStandardStreams(&opened) || LOG_SetCloexecFlag(opened.get()) < 0)
        return kAllBits;
    *fd = opened.release();
    return kOk;
}

uint32_t LOG_CheckAndCreateFile(const char* path, int* fd) {
    if (path == nullptr || fd == nullptr)
        return kNullArgument;
    const LogScope writing;
    return OpenAtEnd(path, fd);
}

int LOG_Write(int fd, uint32_t length, const void* data) {
    if (fd < 0 || data == nullptr)
        return -1;
    return static_cast<int>(write(fd, data, length));
}

uint32_t LOG_CheckAndTruncate(int fd, uint32_t limit) {
    struct stat st;
    if (fstat(fd, &st) < 0 || static_cast<int32_t>(st.st_size) < 0)
        return kAllBits;
    if (st.st_size > off_t{limit}) {
        (void) ftruncate(fd, limit);
        (void) lseek(fd, 0, SEEK_SET);
    }
    return kOk;
}

uint32_t LOG_Buff2File(int fd, const void* data, uint32_t length, uint32_t limit) {
    RecordLock lock(fd);
    if (!lock.acquire())
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
    (void) LOG_CheckAndTruncate(fd, limit);
    (void) LOG_Write(fd, length, data);
    if (!lock.release())
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
    return kOk;
}

int LOG_GetCurTime(char* buffer, uint32_t size) {
    return FormatStamp(buffer, size);
}

uint32_t LOG_BuffAddTime(char* buffer, int size, uint32_t* length, const char* format,
                         va_list args) {
    if (size <= 0)
        return kAllBits;
    const auto room = static_cast<size_t>(size);
    const int stamp = FormatStamp(buffer, room);
    if (stamp < 0)
        return kAllBits;
    const auto used = static_cast<size_t>(stamp);
    const int text = vsprintf_s(buffer + used, room - used, format, args);
    if (text < 0)
        return kAllBits;
    *length = static_cast<uint32_t>(stamp + text);
    return kOk;
}
