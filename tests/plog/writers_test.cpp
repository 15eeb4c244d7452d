// What all logs promise to processes and threads that write at the same time.
#include <set>

#include "korx/plog.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

struct Row {
    const char* file;
    uint32_t (*write)(const char* id);
    int processes = 3;
};

constexpr Row kRows[] = {
    {"KORX_DIAG_LOG", [](const char* id) { return KORX_DLog(0, 1, 1, 0, 0, "%s", id); }},
    {"korx_safe.log",
     [](const char* id) { return KORX_SecurityEventLog(0, 1, 1, 0, 0, "%s", id); }},
    {"korx_life.log", [](const char* id) { return KORX_LifeCycleLog(0, 1, 1, 0, 0, "%s", id); }},
    {"zelk.log", [](const char* id) { return KORX_PLog(1, 0, 0, "%s", id); },
     1},  // each has its own
    // Its two last sections, by the thread.
    {"KORX_START_LOG",
     [](const char* id) { return KORX_STLog(2 + (id[3] - '0'), 1, 0, "%s", id); }},
};

struct Writers : RoomTest {};

TEST_F(Writers, LoseNoneOfTheirRecordsToEachOther) {
    constexpr int kThreads = 2, kRecords = 300;
    MakeDirs("conf/config");
    MakeDirs("run");
    WriteFile("conf/config/korx_sdk_init.conf", "");  // or no life-cycle log is written
    ASSERT_EQ(chdir("run"), 0);
    SetLogPath(tree.root());
    LOG_FileInit();
    g_stSLogInfo.uiMaxSize = 1u << 20;  // room for all of them
    KORX_PLogInit(0, "zelk", 0);
    for (const Row& row : kRows) {
        const auto write = [&](int process) {
            RunThreads(kThreads, [&](int thread) {
                for (int i = 0; i < kRecords; ++i) {
                    char id[32];
                    snprintf(id, sizeof id, "<%d.%d.%d>", process, thread, i);
                    EXPECT_EQ(row.write(id), 0u);
                }
            });
            return 0;
        };
        EXPECT_EQ(RunChildren(row.processes, write), 0) << row.file;
        const std::string text = ReadFile(tree.path(row.file));
        const std::regex form(R"(\[[\d :.-]{26}\]\[[^\n<]*\](<\d\.\d\.\d+>)\n)");
        std::set<std::string> found;
        for (std::sregex_iterator it(text.begin(), text.end(), form), end; it != end; ++it)
            EXPECT_TRUE(found.insert(it->str(1)).second) << row.file << it->str(1);
        EXPECT_EQ(found.size(), size_t(row.processes * kThreads * kRecords)) << row.file;
    }
}

}  // namespace
}  // namespace korx::test
