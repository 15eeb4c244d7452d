// Binding of the platform's agent library, which takes the records on boards where it runs. The
// report function is set once at set-up and never cleared, so it is read without a lock.
#include "plog/agent.h"

#include <dlfcn.h>
#include <syslog.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "format/board.h"
#include "format/record.h"
#include "korx/fs.h"
#include "korx/plog.h"

constinit KORX_ImReportFunc g_KorxImAgentReportLogByIdFunc = nullptr;

namespace korx {

// As text, never as a format: a percent sign in a message is the message's. Under the mark: an
// agent that logs would come back here without end.
uint32_t HandToAgent(AgentLog log, uint32_t id, const char* text) {
    const LogScope writing;
    return g_KorxImAgentReportLogByIdFunc(static_cast<uint32_t>(log), id, "%s", text);
}

}  // namespace korx

using namespace korx;

void KORX_ImDiagLogFuncInit(void) {
    void* const library = dlopen(kAgentLibrary, RTLD_LAZY | RTLD_GLOBAL);
    if (library == nullptr) {
        const char* const error = dlerror();
        DBG_SysLog(LOG_WARNING, "Load %s unsuccessfully.", kAgentLibrary);
        if (error != nullptr)
            DBG_SysLog(LOG_WARNING, "Load %s unsuccessfully, err:%s.", kAgentLibrary, error);
        return;
    }

    g_KorxImAgentReportLogByIdFunc =
        reinterpret_cast<KORX_ImReportFunc>(dlsym(library, kAgentReportFunction));
    if (g_KorxImAgentReportLogByIdFunc != nullptr)
        return DBG_SysLog(LOG_INFO, "Lookup symbol IM_Agent_ReportLogById successfully.");

    const char* const error = dlerror();
    DBG_SysLog(LOG_ERR, "Lookup symbol IM_Agent_ReportLogById unsuccessfully.");
    if (error != nullptr)
        DBG_SysLog(LOG_ERR, "Lookup symbol IM_Agent_ReportLogById unsuccessfully, err:%s.", error);
    (void) dlclose(library);
}

uint32_t KORX_IsImLibInited(void) {
    return g_KorxImAgentReportLogByIdFunc != nullptr ? 1 : 0;
}

uint32_t KORX_IsPkgPoolReady(void) {
    return KORX_IsFileExist(kPoolReadyFile);
}

uint32_t KORX_ReportLogByImLib(uint32_t log_id, const char* text) {
    const uint32_t slot = g_uiOrxSelfSlotId;
    if (KORX_IsImLibInited() != 1)
        return kAllBits;
    FixedText<kMaxTextLength + 1> line;
    if (!line.format("%s[SlotId=%u]", text, slot))
        return SysFail(kAllBits, "Print logContent unsuccessfully. pcLogBuf=%s, slotId=%u", text,
                       slot);
    return HandToAgent(AgentLog::kDiag, log_id, line.c_str());
}

uint32_t KORX_ReportDiagLogByImLib(uint32_t log_id, const char* text) {
    if (KORX_IsImLibInited() != 1)
        return kAllBits;
    return HandToAgent(AgentLog::kDiag, log_id, text);
}
