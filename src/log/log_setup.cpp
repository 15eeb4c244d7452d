// Set-up of the diagnostic log.
#include "korx/log.h"

#include <string.h>

#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "format/kinds.h"
#include "korx/path.h"

namespace korx {
namespace {

void PutInForce(const ORX_LogInfo* record) {
    (void) memcpy_s(&g_stLogInfo, sizeof g_stLogInfo, record, sizeof *record);
    Log(kLevelInfo, "**********************LogInit***********************");
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_LogInit(const ORX_LogInfo* record) {
    PutInForce(record);
}

uint32_t KORX_OrxLogInit(uint32_t module_id, const char* process_name) {
    const bool agent = module_id == ORX_LOG_MODULE_AGENT;
    ORX_LogInfo record = {};
    record.uiLogLevel = agent ? kLevelWarning : kLevelErr;
    record.uiLogMode = ORX_LOG_MODE_DIAG;
    record.uiModuleId = module_id;
    record.uiMaxLogLen = KindOf(KORX_LOG_TEXT).limit;

    const uint32_t got = KORX_GetLogPath(record.acLogDir, sizeof record.acLogDir);
    if (got != kOk)
        return SysFail(got, "Get log path unsuccessfully when orx log init, ret=[%u]", got);
    const int named =
        strncpy_s(record.acProcName, sizeof record.acProcName, process_name, strlen(process_name));
    if (named != 0)
        return SysFail(static_cast<uint32_t>(named),
                       "cpy procName unsuccessfully when orx log init, errCode:%d, procName:%s",
                       named, process_name);
    const char* const file = agent ? kAgentLogFile : kAppLogFile;
    const int filed =
        strncpy_s(record.acLogFileName, sizeof record.acLogFileName, file, strlen(file));
    if (filed != 0)
        return SysFail(static_cast<uint32_t>(filed),
                       "cpy procName unsuccessfully when orx log init, errCode:%d, logFile:%s",
                       filed, file);

    PutInForce(&record);
    return kOk;
}
