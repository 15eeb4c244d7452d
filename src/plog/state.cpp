// The state that the five product logs share, and its set-up: names, limits, descriptors, mutexes,
// hooks and the identity of this process.
#include "plog/state.h"

#include <stddef.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <iterator>

#include "base/bounded.h"
#include "base/codes.h"
#include "format/board.h"
#include "format/kinds.h"
#include "korx/fs.h"
#include "korx/path.h"
#include "korx/plog.h"

static_assert(sizeof(LOG_INFO_S) == 260);
static_assert(offsetof(LOG_INFO_S, acFileName) == 0);
static_assert(offsetof(LOG_INFO_S, uiMaxSize) == 256);
static_assert(std::size(g_stPLogInfo) == korx::kComponentCount);

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

constexpr uint32_t kNoComponentName = kAllBits;

// A name that does not fit is left empty: the log is then not configured, and its writers fail.
template <size_t N>
bool NameInLogDir(const char* file, char (&name)[N]) {
    return snprintf_s(name, N, N - 1, "%s/%s", g_acLogPath, file) >= 0;
}

void ConfigureLog(korx_log_kind kind, LOG_INFO_S* info) {
    if (NameInLogDir(KindOf(kind).files[0], info->acFileName))
        info->uiMaxSize = KindOf(kind).limit;
}

}  // namespace

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
    ConfigureLog(KORX_LOG_DIAG, &g_stDLogInfo);
}

void SLOG_LogFileInit(void) {
    ConfigureLog(KORX_LOG_SECURITY, &g_stSLogInfo);
}

void LLOG_LogFileInit(void) {
    ConfigureLog(KORX_LOG_LIFE, &g_stLifeLogInfo);
}

void STLOG_LogFileInit(void) {
    (void) NameInLogDir(kStartHeaderFile, g_acSTLogFileHeadName);
    (void) NameInLogDir(kStartLogFile, g_acSTLogFileName);
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
