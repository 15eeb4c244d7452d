#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>

#include "korx/log.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

std::string agent_text;
uint32_t Agent(uint32_t, uint32_t, const char*, ...) {
    ORX_Log2File(3, "from inside the agent");
    agent_text += "called ";
    return 0;
}

// The text of a log file as its length header counts it.
std::string CountedText(const std::string& file) {
    const std::string bytes = ReadFile(file);
    return bytes.size() < 4 ? "no header" : bytes.substr(4, HeadOf<uint32_t>(file));
}

struct DiagLog : RoomTest {
    void use(uint32_t mode, const std::string& directory) {
        g_stLogInfo = {};
        g_stLogInfo.uiLogMode = mode;
        g_stLogInfo.uiModuleId = 7;
        g_stLogInfo.uiMaxLogLen = 0x80000;
        strcpy(g_stLogInfo.acLogDir, directory.c_str());
        strcpy(g_stLogInfo.acLogFileName, "run.log");
    }
    void use(uint32_t mode) { use(mode, tree.root()); }
    std::string log() const { return tree.path("run.log"); }
};

TEST_F(DiagLog, SendsShortLinesToTheSystemLogBeforeSetUp) {
    for (const uint32_t level : {0u, 1u, 2u, 3u, 9u})
        ORX_Log2File(level, "x%u", level);
    EXPECT_EQ(syslog.lines(), (std::vector<SyslogLine>{{LOG_INFO, "[0] x0\n"},
                                                       {LOG_INFO, "[0] x1\n"},
                                                       {LOG_WARNING, "[0] x2\n"},
                                                       {LOG_ERR, "[0] x3\n"},
                                                       {LOG_ERR, "[0] x9\n"}}));
    EXPECT_EQ(ORX_LogLevelSwitch2SysLogLevel(3), unsigned{LOG_ERR});
    EXPECT_EQ(ORX_LogLevelSwitch2SysLogLevel(4), unsigned{LOG_INFO});
}

TEST_F(DiagLog, RefusesMessagesAndLinesThatDoNotFit) {
    const std::string longest(1021, 'm');
    ORX_Log2File(1, "%s", longest.c_str());
    ORX_Log2File(1, "%sm", longest.c_str());
    EXPECT_EQ(syslog.texts(), (std::vector<std::string>{"[0] " + longest + "\n",
                                                        "Get Parametron unsuccessfully."}));

    // The longest line still has its newline in the file.
    use(ORX_LOG_MODE_FILE);
    ORX_Log2File(1, "p");
    const size_t prefix = CountedText(log()).size() - 2;
    const std::string fits(1022 - prefix, 'f');
    ORX_Log2File(1, "%s", fits.c_str());
    EXPECT_TRUE(CountedText(log()).ends_with(fits + "\n"));
    syslog.clear();
    ORX_Log2File(1, "%sf", fits.c_str());
    EXPECT_EQ(syslog.texts(), std::vector<std::string>{"Print ORX_LOG_FMT unsuccessfully."});
}

TEST_F(DiagLog, WritesFullLinesInTheirForm) {
    const std::regex line(
        R"(\[\d{6}-\d\d:\d\d:\d\d\.\d{6}\] \[ProcID:(\d+)\|7\|(DEBUG|INFO|WARNING|ERR)\] : hello\n)");
    use(ORX_LOG_MODE_SYSLOG_LINE);
    ORX_Log2File(3, "hello");
    ASSERT_EQ(syslog.lines().size(), 1u);
    EXPECT_EQ(syslog.lines()[0].priority, LOG_INFO);
    EXPECT_TRUE(std::regex_match(syslog.texts()[0], line)) << syslog.texts()[0];

    use(ORX_LOG_MODE_FILE);
    ORX_Log2File(9, "hello");
    std::smatch match;
    const std::string text = CountedText(log());
    ASSERT_TRUE(std::regex_match(text, match, line)) << text;
    EXPECT_EQ(match[1], std::to_string(getpid()));
    EXPECT_EQ(match[2], "ERR");
    EXPECT_EQ(Mode(log()), 0640u);
}

TEST_F(DiagLog, StartsAgainAtTheBeginningOnceTheLimitIsPassed) {
    const std::string first(100, 'a');
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, first.c_str()), 0u);
    const Fault look = Fault::Meanwhile("pwrite", 1, [] {
        EXPECT_TRUE(std::ranges::any_of(
            OpenFiles(), [](int fd) { return (fcntl(fd, F_GETFL) & O_SYNC) == O_SYNC; }));
    });
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, "b"), 0u);
    EXPECT_EQ(CountedText(log()), first + "b");
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, "new\n"), 0u);
    EXPECT_EQ(CountedText(log()), "new\n");
    EXPECT_EQ(ReadFile(log()).substr(4), "new\n" + std::string(92, 'a'));

    // A corrupt length near 2^32 is one more reason to start again, not to make a huge file.
    WriteFile(log(), "\xff\xff\xff\xff");
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, "new\n"), 0u);
    EXPECT_EQ(CountedText(log()), "new\n");
    EXPECT_EQ(ReadFile(log()).size(), 100u);
}

TEST_F(DiagLog, MakesAnEmptyLogOnceAndNeverEmptiesOne) {
    EXPECT_EQ(ORX_CreateLogfile(tree.path("a/b").c_str(), "run.log"), 0u);
    EXPECT_EQ(ReadFile("a/b/run.log"), std::string(4, '\0'));
    EXPECT_EQ(Mode("a/b/run.log"), 0640u);
    EXPECT_EQ(Mode("a/b"), 0750u);
    WriteFile("a/b/run.log", "kept");
    EXPECT_EQ(ORX_CreateLogfile(tree.path("a/b").c_str(), "run.log"), 0u);
    EXPECT_EQ(ReadFile("a/b/run.log"), "kept");

    use(ORX_LOG_MODE_FILE);
    {
        const Fault fault("realpath", 1, EIO);
        EXPECT_NE(ORX_CreateLogfile(tree.path("a/b").c_str(), "other"), 0u);
        EXPECT_FALSE(Exists(log())) << "it is inside the writer, and its lines go elsewhere";
        const Fault refused("flock", 1, ENOLCK);
        EXPECT_EQ(ORX_CreateLogfile(tree.path("a/b").c_str(), "other"), 0u);
        EXPECT_EQ(ReadFile("a/b/other"), "") << "without the lock it may be another one's";
    }
    // The file is found missing and then is there, with another process's line.
    const Fault missing("stat", 1, ENOENT);
    WriteFile(log(), std::string("\4\0\0\0line", 8));
    EXPECT_EQ(ORX_CreateLogfile(tree.root().c_str(), "run.log"), 0u);
    EXPECT_EQ(missing.hits(), 1u);
    EXPECT_EQ(CountedText(log()), "line");
}

TEST_F(DiagLog, ReturnsAndReportsEachFailureOfAnAppend) {
    struct Row {
        const char* call;
        unsigned nth;
        uint32_t code;
        const char* report;
    };
    WriteFile(log(), std::string("\x10\0\0\0", 4) + std::string(16, 'o'));
    for (const Row& row :
         {Row{"open", 1, 0x0FFFFFFF, "Open [/"}, Row{"flock", 1, 0x0FFFFFFF, nullptr},
          Row{"ftruncate", 1, 0xFFFFFFFF, "Ftruncate unsuccessfully, iRet=-1,"},
          Row{"lseek", 1, 0xFFFFFFFF, "Lseek unsuccessfully, iRet=-1,"},
          Row{"pwrite", 1, 0xFFFFFFFF, "Write file unsuccessfully, iRet=-1,"}}) {
        const std::string before = ReadFile(log());
        syslog.clear();
        const uint32_t limit = strcmp(row.call, "ftruncate") == 0 ? 8 : 100;
        const Fault unnamed("syscall", strcmp(row.call, "open") == 0 ? 1 : 99, EIO);
        const Fault nowhere("pwrite", strcmp(row.call, "lseek") == 0 ? 1 : 99, ESPIPE);
        const Fault fault(row.call, row.nth, EIO);
        EXPECT_EQ(ORX_WriteLogfile(log().c_str(), limit, "text\n"), row.code) << row.call;
        EXPECT_EQ(fault.hits(), 1u) << row.call;
        EXPECT_EQ(ReadFile(log()), before) << row.call;
        const auto texts = syslog.texts();
        ASSERT_EQ(texts.size(), row.report == nullptr ? 0u : 1u) << row.call;
        EXPECT_TRUE(texts.empty() || texts[0].starts_with(row.report)) << texts[0];
        EXPECT_TRUE(texts.empty() || texts[0].ends_with("errno=5.")) << texts[0];
    }
    const Fault interrupted("flock", 1, EINTR);
    const Fault uncounted("pwrite", 4, EIO);
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, "text\n"), 0u);
    EXPECT_EQ(ORX_WriteLogfile(log().c_str(), 100, "text\n"), 0u);
    EXPECT_EQ(syslog.texts().back(), "ORX_UpdatelogLen failed, actually write len is -1.");
    EXPECT_TRUE(CountedText(log()).ends_with("text\n"));
}

// What is there after two lines, which the tree then is rid of.
std::string Harvest() {
    std::string found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
        if (entry.symlink_status().type() != std::filesystem::file_type::regular)
            continue;
        found += entry.path().string() + ":" + ReadFile(entry.path()) + "\n";
        unlink(entry.path().c_str());
    }
    return found;
}

// The road that opens a name as it is, and the one that resolves, as where openat2 is missing.
TEST_F(DiagLog, ComesToTheSameFileOnBothRoads) {
    const std::string root = tree.root(), n127(127, 'n'), d120(120, 'd');
    MakeDirs("a/b\\c");
    MakeDirs("a/" + n127);
    MakeDirs(d120 + "/" + d120);
    EXPECT_EQ(mkfifo("a/fifo", 0600), 0);
    for (const auto& [link, target] :
         {std::pair{"a/l", "b\\c"}, std::pair{"a/lf", "../a/l/f"}, std::pair{"a/lost", "none/f"},
          std::pair{"a/loop", "loop"}, std::pair{"a/magic", "/proc/self/cwd/a"}})
        EXPECT_EQ(symlink(target, link), 0);
    const auto outcome = [&](const std::string& path, int error) {
        syslog.clear();
        const int status = RunChild([&] {
            const Fault fault("syscall", 1, error, error == 0 ? 0 : 1);
            const bool failed = ORX_WriteLogfile(path.c_str(), 9, "text\n") != 0;
            return ORX_WriteLogfile(path.c_str(), 9, "more\n") != 0 || failed ? 1 : 0;
        });
        std::string all = std::to_string(status);
        for (const std::string& line : syslog.texts())
            all += "\n" + line;
        return all + "\n" + Harvest();
    };
    const std::string slashes = root + "/a" + std::string(250 - root.size(), '/');
    for (const std::string& name : {root + "/a/f",
                                    root + "/a/l/f",
                                    root + "/a/lf",
                                    root + "/a/lost",
                                    root + "/a/loop",
                                    root + "/a/loop/f",
                                    root + "/a/fifo",
                                    root + "/a/magic/f",
                                    root + "/a",
                                    root + "/a/",
                                    root + "/a/f/",
                                    root + "//a/f",
                                    root + "/a/./f",
                                    root + "/a/l/../f",
                                    root + "/a/l/.",
                                    root + "/a/l/..",
                                    root + "/a/none/f",
                                    root + "/a/b\\c",
                                    root + "/a/b\\f",
                                    root + "/a/b\\c/f",
                                    root + "/a/" + n127,
                                    root + "/a/" + n127 + "/" + n127,
                                    root + "/a/" + n127 + "n",
                                    slashes + "f",
                                    slashes + "//////f",
                                    root + "/" + d120 + "/" + d120 + "/f",
                                    std::string("a/f"),
                                    std::string("./f"),
                                    std::string("f"),
                                    std::string("/"),
                                    std::string(),
                                    root + "/a/..f",
                                    root + "/a/.f"}) {
        const std::string resolved = outcome(name, ENOSYS);
        EXPECT_EQ(outcome(name, 0), resolved) << name;
        EXPECT_EQ(outcome(name, EAGAIN), resolved) << name;
    }
}

TEST_F(DiagLog, FailsWithoutRecursionWhereItsDirectoryIsMissing) {
    for (const uint32_t mode : {ORX_LOG_MODE_FILE, ORX_LOG_MODE_DIAG}) {
        use(mode, "/proc/no/such/directory");
        syslog.clear();
        ORX_Log2File(1, "lost");
        const size_t lines = syslog.lines().size();
        EXPECT_TRUE(lines >= 2 && lines < 8) << lines;
    }
    use(ORX_LOG_MODE_FILE);
    ORX_Log2File(1, "found");  // the mark of being inside the writer is gone again
    EXPECT_NE(CountedText(log()).find(": found\n"), std::string::npos);
}

TEST_F(DiagLog, ChoosesBetweenAgentRingAndFile) {
    use(ORX_LOG_MODE_DIAG);
    ORX_Log2File(1, "no ring");
    EXPECT_EQ(syslog.texts().back(), "Write log to diaglog unsuccessfully.");
    EXPECT_EQ(CountedText(log()), "");

    strcpy(g_stDLogInfo.acFileName, tree.path("ring").c_str());
    g_stDLogInfo.uiMaxSize = 262144;
    ORX_LOG_SetSlotId(3);
    ORX_Log2File(9, "both");
    const std::string ring = ReadFile("ring");
    const char form[] = "[Index:0x37741004][AppCid:0][ERROR][L:0 M:0][0][SlotId=3][";
    EXPECT_NE(ring.find(form), std::string::npos);
    EXPECT_NE(ring.find("|7|ERR] : both\n"), std::string::npos);
    EXPECT_TRUE(CountedText(log()).ends_with("|7|ERR] : both\n"));

    MakeDirs("/dev/shm/korx");
    WriteFile("/dev/shm/korx/PkgPoolReady", "");
    ORX_Log2File(1, "ring only");
    EXPECT_NE(ReadFile("ring").find("ring only"), std::string::npos);
    EXPECT_EQ(CountedText(log()).find("ring only"), std::string::npos);

    ORX_LOG_SetDiagLogHook([] {});
    ORX_Log2File(1, "file only");
    EXPECT_EQ(ReadFile("ring").find("file only"), std::string::npos);
    EXPECT_TRUE(CountedText(log()).ends_with(": file only\n"));

    // An agent that logs must not be called again by its own line.
    g_KorxImAgentReportLogByIdFunc = Agent;
    syslog.clear();
    ORX_Log2File(1, "agent only");
    EXPECT_EQ(agent_text, "called ");
    EXPECT_EQ(syslog.texts(), std::vector<std::string>{"[7] from inside the agent\n"});
    EXPECT_EQ(CountedText(log()).find("agent only"), std::string::npos);
}

TEST_F(DiagLog, KeepsErrno) {
    use(ORX_LOG_MODE_FILE, "/proc/no/such/directory");
    errno = EPIPE;
    ORX_Log2File(1, "x");
    ORX_syslog(LOG_INFO, "x");
    DBG_SysLog(LOG_INFO, "x");
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(DiagLog, RefusesATimeBufferThatIsTooSmall) {
    char buffer[27];
    memset(buffer, '#', sizeof buffer);
    ORX_GetLogTimeStr(buffer, 26);
    EXPECT_EQ(strlen(buffer), 24u);
    EXPECT_EQ(buffer[26], '#');
    for (const uint32_t size : {25u, 1u, 0u}) {
        buffer[0] = buffer[size] = '#';
        ORX_GetLogTimeStr(buffer, size);
        EXPECT_EQ(buffer[size], '#') << size;
    }
}

TEST_F(DiagLog, LosesAndTearsNothingBetweenProcessesAndThreads) {
    constexpr int kProcesses = 4, kThreads = 3, kLines = 40;
    use(ORX_LOG_MODE_FILE);
    const auto write = [](int process) {
        RunThreads(kThreads, [=](int thread) {
            for (int i = 0; i < kLines; ++i)
                ORX_Log2File(1, "<%d.%d.%d>", process, thread, i);
        });
        return 0;
    };
    EXPECT_EQ(RunChildren(kProcesses, write), 0);
    const auto found = Matches(CountedText(log()),
                               R"(\[[\d:.-]{22}\] \[ProcID:\d+\|7\|INFO\] : <(\d+\.\d+\.\d+)>\n)");
    EXPECT_EQ(found.size(), size_t{kProcesses * kThreads * kLines});
    EXPECT_EQ(std::set(found.begin(), found.end()).size(), found.size());
}

TEST_F(DiagLog, StaysOffTheStandardStreams) {
    const std::string file = tree.path("line.log");
    EXPECT_EQ(RunChild([&] {
                  for (const int fd : {0, 1, 2})
                      close(fd);
                  bool taken = true;
                  const Fault writing = Fault::Meanwhile("flock", 1, [&] {
                      taken = fcntl(0, F_GETFD) != -1 || fcntl(1, F_GETFD) != -1 ||
                              fcntl(2, F_GETFD) != -1;
                  });
                  return ORX_WriteLogfile(file.c_str(), 100, "x") == 0 && !taken ? 0 : 1;
              }),
              0);
    EXPECT_EQ(CountedText(file), "x");
}

}  // namespace
}  // namespace korx::test
