#include "korx/path.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/fixture.h"

namespace korx::test {
namespace {

constexpr char kDefaultLog[] = "/opt/veltra/quarn/common/log";
constexpr char kDefaultData[] = "/opt/veltra/quarn/common/data";
constexpr char kTarget[] = "/opt/tarnos/var/log";

std::string LinkText(const char* path) {
    char text[256] = {};
    return readlink(path, text, sizeof text - 1) < 0 ? "" : text;
}

using PlatformPath = RoomTest;

TEST_F(PlatformPath, FallsBackKeyByKey) {
    struct Row {
        const char* conf;
        const char* log;
        const char* data;
    };
    for (const Row& row : {
             Row{"[PATH]\nLOG_PATH=/l\nDATA_PATH = \" /d \"\n", "/l", "/d"},
             Row{"[PATH]\nDATA_PATH=/d\n", kDefaultLog, "/d"},
             Row{"[PATH]\nLOG_PATH=relative\nDATA_PATH=\n", kDefaultLog, kDefaultData},
             Row{"LOG_PATH=/l\n", kDefaultLog, kDefaultData},
         }) {
        WriteFile("/etc/base.d/base.conf", row.conf);
        KORX_ParsePathConf();
        EXPECT_STREQ(g_stPtnPath.acLogPath, row.log) << row.conf;
        EXPECT_STREQ(g_stPtnPath.acDataPath, row.data) << row.conf;
        EXPECT_EQ(syslog.texts().back(), std::string("[0] Log path is [") + row.log +
                                             "], data path is [" + row.data + "].\n");
    }
}

TEST_F(PlatformPath, TakesTheDefaultsQuietlyWithoutAConfiguration) {
    EXPECT_EQ(KORX_IsPathInit(), 0u);
    strcpy(g_stPtnPath.acDataPath, "/alone");
    EXPECT_EQ(KORX_IsPathInit(), 1u);
    g_stPtnPath = {};
    char path[256];
    ASSERT_EQ(KORX_GetDataPath(path, sizeof path), 0u);
    EXPECT_STREQ(path, kDefaultData);
    EXPECT_STREQ(g_stPtnPath.acLogPath, kDefaultLog);
    EXPECT_EQ(syslog.texts(), std::vector<std::string>{std::string("[0] File: ") + kDefaultLog +
                                                       " is not link.\n"});
    EXPECT_EQ(KORX_IsPathInit(), 1u);
}

TEST_F(PlatformPath, HandsOutCleanPathsThatFit) {
    WriteFile("/etc/base.d/base.conf", "[PATH]\nLOG_PATH=/a//b/../c\n");
    char path[32] = "untouched";
    EXPECT_EQ(KORX_GetLogPath(path, 10), 0x71000007u);
    EXPECT_STREQ(path, "untouched");
    EXPECT_EQ(KORX_GetLogPath(path, 11), 0u);
    EXPECT_STREQ(path, "/a/c");
    EXPECT_STREQ(g_stPtnPath.acLogPath, "/a//b/../c");
    EXPECT_EQ(KORX_GetLogPath(nullptr, 10), 0x71000001u);

    const std::string local = "/opt/veltra/quarn/common/tmp/korx_local_data.ini";
    char full[64];
    EXPECT_EQ(KORX_GetLocalDataFileFullPath(full, local.size()), 0x0FFFFFFFu);
    EXPECT_EQ(KORX_GetLocalDataFileFullPath(full, local.size() + 1), 0u);
    EXPECT_EQ(full, local);
    EXPECT_EQ(KORX_GetCommTmpPath(nullptr, 64), 0x0FFFFFFFu);
    EXPECT_EQ(KORX_GetCommTmpPath(full, 0), 0x0FFFFFFFu);
}

TEST_F(PlatformPath, RepairsOnlyLinks) {
    MakeDirs("/opt/veltra/quarn/common/log");
    KORX_CreateLinkFileForPath(kDefaultLog, 0);
    EXPECT_EQ(syslog.texts().back(), std::string("[0] File: ") + kDefaultLog + " is not link.\n");

    rmdir(kDefaultLog);
    ASSERT_EQ(symlink("/elsewhere", kDefaultLog), 0);
    KORX_CreateLinkFileForPath(kDefaultLog, 0);
    EXPECT_EQ(syslog.texts().back(), "[0] Log path link unsuccessfully. ret=4\n");
    EXPECT_FALSE(Exists(kDefaultLog));

    MakeDirs(kTarget);
    ASSERT_EQ(symlink("/elsewhere", kDefaultLog), 0);
    KORX_ParsePathConf();
    EXPECT_EQ(LinkText(kDefaultLog), kTarget);
    KORX_ParsePathConf();
    EXPECT_EQ(syslog.texts().back(), "[0] Log path is link right.\n");
}

}  // namespace
}  // namespace korx::test
