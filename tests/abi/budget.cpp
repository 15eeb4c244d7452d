// What calls cost in system calls, and the library in room: an upper limit for each, and a lower
// one is always welcome.
#include <dlfcn.h>
#include <link.h>
#include <signal.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "korx/basic.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

struct Budget : RoomTest {};

// In a traced child, between two stops, once what happens only at first has happened. The second
// stop costs some, too.
int CallsToTheNextStop(const std::function<bool()>& works) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && works() && works() &&
            raise(SIGSTOP) == 0 && works())
            raise(SIGSTOP);
        _exit(1);
    }
    int status = 0;
    int stops = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (;; ++stops) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80))
            break;
    }
    EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP) << status;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return (stops + 1) / 2;
}

std::string Profile(int keys) {
    std::string text = "[A]\n";
    for (int i = 0; i < keys; ++i)
        text += "key" + std::to_string(i) + "=value\n";
    return text;
}

void SetUpLogs(const TempTree& tree) {
    for (const char* directory : {"log", "conf/config", "run"})
        MakeDirs(directory);
    WriteFile("conf/config/korx_sdk_init.conf", "");
    WriteFile("/etc/base.d/base.conf", "[PATH]\nLOG_PATH=" + tree.path("log") + "\n");
    ASSERT_EQ(chdir("run"), 0);
    LOG_FileInit();
    KORX_PLogInit(0, "zelk", 0);
    strcpy(g_stLogInfo.acLogDir, tree.path("log").c_str());
    strcpy(g_stLogInfo.acLogFileName, "orx_app.log");
    g_stLogInfo.uiMaxLogLen = 1 << 19;
    g_stLogInfo.uiLogLevel = 0;
    WriteFile("p.ini", Profile(100));
    WriteFile("from", std::string(4096, 'c'));
}

TEST_F(Budget, OfSystemCalls) {
    setenv("TZ", "UTC0", 1);  // no file of the machine's is looked at
    SetUpLogs(tree);
    int copies = 0;
    const auto line = [](uint32_t mode) {
        g_stLogInfo.uiLogMode = mode;
        ORX_Log2File(1, "%s", "text");
        return true;
    };
    const struct {
        const char* what;
        int most;
        std::function<bool()> works;
    } kBudget[] = {
        {"diagnostic record", 7, [] { return KORX_DLog(0, 1, 1, 0, 0, "%s", "text") == 0; }},
        {"security record", 7,
         [] { return KORX_SecurityEventLog(0, 1, 1, 0, 0, "%s", "text") == 0; }},
        {"life-cycle record", 8,
         [] { return KORX_LifeCycleLog(0, 1, 1, 0, 0, "%s", "text") == 0; }},
        {"process record", 6, [] { return KORX_PLog(1, 0, 0, "%s", "text") == 0; }},
        {"start record", 12, [] { return KORX_STLog(3, 1, 0, "%s", "text") == 0; }},
        {"text line", 10, [&] { return line(ORX_LOG_MODE_FILE); }},
        {"text line and record", 19, [&] { return line(ORX_LOG_MODE_DIAG); }},
        {"profile lookup", 6,
         [] {
             char value[256] = {};
             return KORX_IniGetValue("./p.ini", "[A]", "key99", value, sizeof value) == 0 &&
                    strcmp(value, "value") == 0;
         }},
        {"profile change", 44,
         [] { return KORX_IniSetOrAddValue("./p.ini", "[A]", "key99", "value") == 0; }},
        {"copied small file", 22, [&] {
             const std::string to = "./to" + std::to_string(copies++);
             return KORXFS_CopyFile("./from", 6, to.c_str(), ORXFS_OVERWRITE,
                                    static_cast<uint32_t>(to.size())) == 0;
         }}};
    const int stop = CallsToTheNextStop([] { return true; });
    for (const auto& row : kBudget)
        EXPECT_LE(CallsToTheNextStop(row.works) - stop, row.most) << row.what;
    // What was counted did its work: each of the rows three times, the ring also for the lines.
    EXPECT_EQ(ReadFile("to2"), ReadFile("from"));
    for (const auto& [log, lines] : {std::pair("KORX_DIAG_LOG", 6),
                                     {"korx_safe.log", 3},
                                     {"korx_life.log", 3},
                                     {"zelk.log", 3},
                                     {"orx_app.log", 6}}) {
        const std::string text = ReadFile(tree.path("log/") + log);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), lines) << log;
    }
}

// As it is shipped.
TEST_F(Budget, OfTheLibrarysFile) {
    Dl_info info = {};
    ASSERT_NE(dladdr(reinterpret_cast<const void*>(&KORX_DLog), &info), 0);
    ASSERT_EQ(system(("strip -o stripped " + std::string(info.dli_fname)).c_str()), 0);
    struct stat st;
    ASSERT_EQ(stat("stripped", &st), 0);
    EXPECT_LE(st.st_size, 150 * 1024);
}

// All pages that it can ever touch, so that it does not matter which ones it has.
TEST_F(Budget, OfTheLibrarysMemory) {
    constexpr size_t kPage = 4096;
    size_t pages = 0;
    const auto add = [](dl_phdr_info* module, size_t, void* sum) {
        for (int i = 0; i < module->dlpi_phnum; ++i) {
            const auto& part = module->dlpi_phdr[i];
            if (part.p_type == PT_LOAD && strstr(module->dlpi_name, "libkorx_basic") != nullptr)
                *static_cast<size_t*>(sum) +=
                    (part.p_vaddr % kPage + part.p_memsz + kPage - 1) / kPage;
        }
        return 0;
    };
    dl_iterate_phdr(add, &pages);
    EXPECT_GT(pages, 0u);
    EXPECT_LE(pages * kPage, 200u * 1024);
}

}  // namespace
}  // namespace korx::test
