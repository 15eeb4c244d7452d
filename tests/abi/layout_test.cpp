// What other processes read directly: sizes and offsets as their compilers see them.
#include <gtest/gtest.h>
#include <stddef.h>

#include "korx/basic.h"

namespace korx::test {
namespace {

TEST(Abi, KeepsTheLayoutsThatOthersRead) {
    struct Row {
        const char* name;
        size_t actual;
        size_t expected;
    };
    for (const Row& row : {
             Row{"log record", sizeof(ORX_LogInfo), 464},
             Row{"its directory", offsetof(ORX_LogInfo, acLogDir), 80},
             Row{"its file name", offsetof(ORX_LogInfo, acLogFileName), 336},
             Row{"paths", sizeof(KORX_PtnPath), 512},
             Row{"log file", sizeof(LOG_INFO_S), 260},
             Row{"all process logs", sizeof g_stPLogInfo, 1300},
             Row{"ring head", sizeof(LOG_HEAD_S), 12},
             Row{"unread from", offsetof(LOG_HEAD_S, uiDumpLen), 4},
             Row{"start header", sizeof(STLOG_HDR_S), 76},
             Row{"its sections", offsetof(STLOG_HDR_S, astSec), 12},
             Row{"cursor", offsetof(STLOG_SEC_S, uiCur), 12},
             Row{"key", sizeof(KORX_IniKey), 336},
             Row{"section", sizeof(KORX_IniSection), 88},
             Row{"vector", sizeof(ORX_VEC_Vector), 16},
         })
        EXPECT_EQ(row.actual, row.expected) << row.name;
    EXPECT_EQ(g_stLogInfo.uiLogLevel, 4u);
    EXPECT_EQ(g_stLogInfo.uiLogMode, 2u);
}

}  // namespace
}  // namespace korx::test
