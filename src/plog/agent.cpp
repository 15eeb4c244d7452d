// Binding of the platform's agent library, which takes the records on boards where it runs. The
// report function is set once at set-up and never cleared, so it is read without a lock.
#include <dlfcn.h>
#include <syslog.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "korx/fs.h"
#include "korx/plog.h"
#include "plog/record.h"

constinit KORX_ImReportFunc g_KorxImAgentReportLogByIdFunc = nullptr;

namespace korx {
namespace {

constexpr char kAgentLibrary[] = "libimagent.so";
constexpr char kReportFunction[] = "IM_Agent_ReportLogById";
constexpr char kPoolReadyFile[] = "/dev/shm/korx/PkgPoolReady";

}  // namespace
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
        reinterpret_cast<KORX_ImReportFunc>(dlsym(library, kReportFunction));
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
        return kRecordFailed;
    FixedText<1023> line;
    if (!line.format("%s[SlotId=%u]", text, slot))
        return SysFail(kRecordFailed, "Print logContent unsuccessfully. pcLogBuf=%s, slotId=%u",
                       text, slot);
    return g_KorxImAgentReportLogByIdFunc(kAgentDiag, log_id, "%s", line.c_str());
}

uint32_t KORX_ReportDiagLogByImLib(uint32_t log_id, const char* text) {
    if (KORX_IsImLibInited() != 1)
        return kRecordFailed;
    return g_KorxImAgentReportLogByIdFunc(kAgentDiag, log_id, "%s", text);
}
