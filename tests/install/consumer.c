/* A C program that builds on the installed library. It reads the exported globals and must see what
 * the library does to them, also where the linker has copied them into a program that is not
 * position-independent. */
#include <korx/basic.h>
#include <string.h>

int main(void) {
    if (g_stLogInfo.uiLogLevel != 4 || g_stLogInfo.uiLogMode != ORX_LOG_MODE_SYSLOG)
        return 1;
    ORX_LogInfo record = g_stLogInfo;
    record.uiLogMode = 9; /* silent */
    record.uiModuleId = 80101;
    KORX_LogInit(&record);
    if (g_stLogInfo.uiModuleId != 80101)
        return 2;
    ORX_LOG_SetSlotId(7);
    if (g_uiOrxSelfSlotId != 7 || LOG_GetCurrPath() != g_acLogPath)
        return 3;
    char path[] = "/a//b/../c";
    ORX_CutPathStr(path);
    return strcmp(path, "/a/c");
}
