// The three ring logs against a model of their arithmetic, and between processes.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <random>

#include "base/unique.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr uint32_t kHead = sizeof(LOG_HEAD_S);
constexpr uint32_t kAll = 0xFFFFFFFF;
constexpr char kSdkConf[] = "../conf/config/korx_sdk_init.conf";

LOG_HEAD_S Head(const std::string& file) {
    return HeadOf<LOG_HEAD_S>(file);
}

struct RingLogs : RoomTest {
    RingLogs() {
        // Every process works below "run", so that the local-mode marker is the test's own.
        MakeDirs(tree.path("run"));
        EXPECT_EQ(chdir(tree.path("run").c_str()), 0);
        strcpy(g_acLogPath, tree.root().c_str());
        DLOG_LogFileInit();
        SLOG_LogFileInit();
        LLOG_LogFileInit();
    }
    void local_mode() {
        MakeDirs(tree.path("conf/config"));
        WriteFile(kSdkConf, "");
    }
    void seed(const LOG_INFO_S& info, const LOG_HEAD_S& head) {
        WriteFile(info.acFileName, BytesOf(head));
    }
    // The three logs, which differ in names and codes only.
    const struct Log {
        LOG_INFO_S* info;
        int* fd;
        decltype(&DLOG_LogFile) write;
    } logs[3] = {{&g_stDLogInfo, &g_iDLogFileFd, DLOG_LogFile},
                 {&g_stSLogInfo, &g_iSLogFileFd, SLOG_LogFile},
                 {&g_stLifeLogInfo, &g_lifeLogFileFd, LLOG_LogFile}};
};

// A ring as its readers see it.
struct RingView {
    LOG_HEAD_S head = {};
    std::string data;  // behind the head

    explicit RingView(const std::string& bytes)
        : data(bytes, std::min<size_t>(bytes.size(), kHead)) {
        memcpy(&head, bytes.data(), std::min<size_t>(bytes.size(), kHead));
    }
    // What is left of the old lap, behind the place where the new one ends, and the new one.
    std::string kept() const {
        const uint32_t end = std::max(head.uiTotalLen, head.uiLogLen);
        return data.substr(head.uiLogLen, end - head.uiLogLen) + data.substr(0, head.uiLogLen);
    }
    // Where the newest record ends.
    uint32_t end() const { return head.uiLogLen != 0 ? head.uiLogLen : head.uiTotalLen; }
    bool reader_is_in_old_lap() const { return head.uiLogLen < head.uiDumpLen; }
    std::string unread() const {
        const uint32_t from = head.uiDumpLen;
        if (!reader_is_in_old_lap())
            return data.substr(from, head.uiLogLen - from);
        return data.substr(from, head.uiTotalLen - from) + data.substr(0, head.uiLogLen);
    }
    // Moves the head on behind so many of the unread bytes and returns these.
    std::string take(size_t count) {
        const std::string taken = unread().substr(0, count);
        const bool in_old_lap = reader_is_in_old_lap();
        head.uiDumpLen += static_cast<uint32_t>(taken.size());
        if (in_old_lap && head.uiDumpLen > head.uiTotalLen)
            head.uiDumpLen -= head.uiTotalLen;
        return taken;
    }
};

// A ring that is written to and read, and what it promises at any time.
struct RingTrial {
    static constexpr uint32_t kLongest = 599;
    const bool is_protected;
    const uint32_t limit;
    const UniqueFd fd;
    std::string written = "";  // all that was accepted
    size_t taken = 0;          // and how much of it the reader has had
    uint32_t reader = 0;       // where it stands

    void append(const std::string& record) {
        const uint32_t result = (is_protected ? SLOG_Buff2File : DLOG_Buff2File)(
            fd.get(), record.data(), static_cast<uint32_t>(record.size()), limit);
        written += result == 0 ? record : "";
        const std::string bytes = ReadFile("ring");
        const RingView ring(bytes);
        ASSERT_LE(bytes.size(), limit);
        ASSERT_TRUE(ring.head.uiTotalLen == 0 || ring.head.uiLogLen < ring.head.uiTotalLen);
        // Without a gap, the newest last, and never less than the ring has room for.
        ASSERT_TRUE(written.ends_with(ring.kept()));
        ASSERT_GE(ring.kept().size(), std::min<size_t>(written.size(), limit - kHead - kLongest));
        ASSERT_EQ(ring.head.uiDumpLen, reader);
        ASSERT_TRUE(result == 0 || (is_protected && result == 99));
        if (!is_protected)
            return;
        // A record that ends where the reader stands makes a head that tells of nothing unread.
        if (result == 0 && ring.end() == reader)
            taken = written.size();
        ASSERT_EQ(written.substr(taken), ring.unread());
        if (result != 0) {  // never while there is room behind the newest and before the oldest
            ASSERT_GT(ring.unread().size() + record.size() + kLongest, limit - kHead);
        }
    }
    void take(size_t count) {
        RingView ring(ReadFile("ring"));
        taken += ring.take(count).size();
        reader = ring.head.uiDumpLen;
        ASSERT_EQ(pwrite(fd.get(), &ring.head, kHead, 0), ssize_t{kHead});
    }
};

TEST_F(RingLogs, KeepTheirPromisesThroughAnyLaps) {
    const uint32_t seed_value = std::random_device()();
    std::mt19937 random(seed_value);
    const auto pick = [&](uint32_t most) { return static_cast<uint32_t>(random() % (most + 1)); };
    g_stDLogInfo.uiMaxSize = 1u << 20;  // room for the warnings about discards

    for (int round = 0; round < 24; ++round) {
        unlink("ring");
        int fd = 0;
        ASSERT_EQ(DLOG_CheckAndCreateFile(tree.path("run/ring").c_str(), &fd), 0u);
        RingTrial trial{round % 2 == 1, 1500 + pick(3000), UniqueFd(fd)};
        for (int i = 0; i < 400; ++i) {
            SCOPED_TRACE("seed " + std::to_string(seed_value) + ", record " + std::to_string(i));
            trial.append(std::string(1 + pick(RingTrial::kLongest - 1), char('a' + pick(25))));
            if (trial.is_protected && pick(3) == 0)
                trial.take(pick(1) == 0 ? trial.limit : pick(trial.limit));
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_GT(trial.written.size(), 3 * trial.limit) << "no laps";
        syslog.clear();
    }
}

TEST_F(RingLogs, RefuseExactlyWhatWouldOverwriteUnreadRecords) {
    struct Row {
        LOG_HEAD_S head;
        uint32_t length, refused;
    };
    constexpr uint32_t kLimit = 131072;
    for (const Row& row : {Row{{4950, 5000, 0}, 50, 0}, Row{{4950, 5000, 0}, 51, 1},
                           Row{{kLimit - 112, 0, 0}, 100, 0}, Row{{kLimit - 111, 0, 0}, 100, 1},
                           Row{{kLimit - 111, 99, 0}, 100, 1}, Row{{kLimit - 111, 100, 0}, 100, 0},
                           Row{{131000, 5000, 0}, 100, 0}, Row{{kAll - 10, 0, 0}, 100, 1},
                           Row{{kAll - 10, kAll, 0}, 100, 0}})
        EXPECT_EQ(LOG_IsReachUndump(row.head, row.length, kLimit), row.refused)
            << row.head.uiLogLen << " " << row.head.uiDumpLen << " " << row.length;
}

TEST_F(RingLogs, WriteTheirRecordForm) {
    local_mode();
    ORX_LOG_SetLocId(80100);
    EXPECT_EQ(KORX_DLog(1, 0x37741004, 9, 3, 4, "started %d", 5), 0u);
    EXPECT_EQ(KORX_SecurityEventLog(1, 0, 2, 3, 4, "login"), 0u);
    EXPECT_EQ(KORX_LifeCycleLog(1, 16, 3, 3, 4, "up"), 0u);
    const std::string stamp = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\])";
    const char* const forms[] = {
        R"(\[Index:0x37741004\]\[AppCid:1\]\[FATAL\]\[L:80100 M:3\]\[4\]started 5\n)",
        R"(\[Index:0\]\[AppCid:1\]\[WARNING\]\[L:80100 M:3\]\[4\]login\n)",
        R"(\[Index:0x10\]\[AppCid:1\]\[ERROR\]\[L:80100 M:3\]\[4\]up\n)"};
    for (const Log& log : logs) {
        const char* const file = log.info->acFileName;
        const std::string bytes = ReadFile(file);
        EXPECT_TRUE(std::regex_match(bytes.substr(kHead), std::regex(stamp + forms[&log - logs])))
            << bytes;
        const auto length = static_cast<uint32_t>(bytes.size() - kHead);
        EXPECT_EQ(bytes.substr(0, kHead), BytesOf(LOG_HEAD_S{length, 0, 0}));
        EXPECT_EQ(Mode(file), 0640u);
    }
    EXPECT_TRUE(syslog.lines().empty());
}

TEST_F(RingLogs, RefuseWhatDoesNotFitOrIsNotForThem) {
    EXPECT_EQ(KORX_DLogFsync(), 0u) << "there is nothing yet";
    const std::string long_message(601, 'm');
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "%s", long_message.c_str()), kAll);
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "%s", std::string(600, 'm').c_str()), kAll);
    EXPECT_EQ(Head(g_stDLogInfo.acFileName).uiLogLen, 0u);
    EXPECT_EQ(KORX_LifeCycleLog(0, 0, 0, 0, 0, "nowhere"), 0u);
    EXPECT_FALSE(Exists(g_stLifeLogInfo.acFileName));

    ORX_LOG_SetDiagLogHook([] {});
    ORX_LOG_SetSafeLogHook([] {});
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "hooked"), 2u);
    EXPECT_EQ(KORX_SecurityEventLog(0, 0, 0, 0, 0, "hooked"), kAll);
    EXPECT_FALSE(Exists(g_stSLogInfo.acFileName));
}

TEST_F(RingLogs, LeaveALossInTheDiagnosticRecordLog) {
    seed(g_stSLogInfo, {g_stSLogInfo.uiMaxSize - 20, 0, 0});
    const std::string before = ReadFile(g_stSLogInfo.acFileName);
    EXPECT_EQ(KORX_SecurityEventLog(0, 0, 0, 0, 0, "lost"), 99u);
    EXPECT_EQ(ReadFile(g_stSLogInfo.acFileName), before);
    const std::string loss = "New log will wrap undumped log, discard and ret:99.";
    EXPECT_TRUE(
        ReadFile(g_stDLogInfo.acFileName)
            .ends_with("][Index:0x37741004][AppCid:0][WARNING][L:80100 M:0][0]" + loss + "\n"));
    EXPECT_EQ(syslog.lines(),
              (std::vector<SyslogLine>{{3, loss}, {6, "[LOG_ERR] " + loss + "\n"}}));
}

TEST_F(RingLogs, TheProtectedOnesOverwriteNothingUnread) {
    for (const Log& log : {logs[1], logs[2]}) {
        seed(*log.info, {log.info->uiMaxSize - 20, 0, 0});
        const std::string before = ReadFile(log.info->acFileName);
        EXPECT_EQ(log.write("%s", "lost"), 99u);
        const Fault unknown("pread", 1, EIO);
        EXPECT_EQ(log.write("%s", "lost"), kAll) << "who cannot read the head knows no place";
        EXPECT_EQ(ReadFile(log.info->acFileName), before);
    }
    int fd = -1;
    const Fault refused("fcntl", 3, ENOLCK);
    EXPECT_EQ(DLOG_CheckAndCreateFile(tree.path("new").c_str(), &fd), kAll);
    EXPECT_EQ(ReadFile(tree.path("new")), "") << "without the lock it may be another one's";
    close(fd);
}

TEST_F(RingLogs, ReturnAndReportEachFailureWithTheOldHead) {
    local_mode();
    const std::string text(100, 't');
    const LOG_HEAD_S kNearlyFull = {131000, 5000, 0};
    struct Row {
        const char* call;
        unsigned nth;
        uint32_t life;       // the life cycle log has its own code for a lock
        const char* report;  // behind the log's tag
    };
    for (const Row& row : {Row{"fcntl", 1, 7, "lock file unsuccessfully"},
                           Row{"ftruncate", 1, kAll, "ftruncate unsuccessfully, err:28."},
                           Row{"lseek", 1, kAll, "lseek unsuccessfully, err:28."},
                           Row{"pwrite", 1, kAll, "log write unsuccessfully, err:28."}}) {
        for (const Log& log : logs) {
            log.info->uiMaxSize = 131072;
            seed(*log.info, kNearlyFull);
            ASSERT_EQ(DLOG_CheckAndCreateFile(log.info->acFileName, log.fd), 0u);
            syslog.clear();
            const Fault fault(row.call, row.nth, ENOSPC);
            const Fault nowhere("pwrite", strcmp(row.call, "lseek") == 0 ? 1 : 99, ESPIPE);
            const bool is_life = log.info == &g_stLifeLogInfo;
            EXPECT_EQ(log.write("%s", text.c_str()), is_life ? row.life : kAll) << row.call;
            EXPECT_EQ(fault.hits(), 1u) << row.call;
            EXPECT_EQ(ReadFile(log.info->acFileName).substr(0, kHead), BytesOf(kNearlyFull));
            EXPECT_TRUE(std::ranges::any_of(syslog.texts(), [&](const std::string& line) {
                return line.find(row.report) != std::string::npos;
            })) << row.call;
        }
    }
}

TEST_F(RingLogs, TellThatALockIsGivenBackInAnotherWay) {
    const std::vector<std::string> reports[] = {
        {"DLOG lock file unsuccessfully."}, {"SLOG unlock file unsuccessfully."}, {}};
    for (const Log& log : logs) {
        ASSERT_EQ(log.write("one"), 0u);
        syslog.clear();
        const Fault refused("fcntl", 2, ENOLCK);
        EXPECT_EQ(log.write("two"), 0u);
        auto lines = syslog.texts();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("[LOG_"); });
        EXPECT_EQ(lines, reports[&log - logs]);
    }
}

TEST_F(RingLogs, NoticeVanishedAndReplacedFiles) {
    ASSERT_EQ(KORX_DLog(0, 0, 0, 0, 0, "one"), 0u);
    unlink(g_stDLogInfo.acFileName);
    ASSERT_EQ(KORX_DLog(0, 0, 0, 0, 0, "two"), 0u);
    EXPECT_EQ(syslog.texts()[0], std::string("[DLOG] file(") + g_stDLogInfo.acFileName +
                                     ") not exist and not closed.");
    EXPECT_TRUE(ReadFile(g_stDLogInfo.acFileName).ends_with("]two\n"));

    // Somebody else's ring now stands there: its records stay, and ours goes behind them.
    WriteFile("other", BytesOf(LOG_HEAD_S{5, 0, 0}) + "kept\n");
    ASSERT_EQ(rename("other", g_stDLogInfo.acFileName), 0);
    ASSERT_EQ(KORX_DLog(0, 0, 0, 0, 0, "three"), 0u);
    const std::string bytes = ReadFile(g_stDLogInfo.acFileName);
    EXPECT_EQ(bytes.substr(kHead, 5), "kept\n");
    EXPECT_TRUE(bytes.ends_with("]three\n"));

    unlink(g_stDLogInfo.acFileName);
    const Fault full("open", 1, EMFILE);
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "x"), kAll);
    EXPECT_EQ(g_iDLogFileFd, -1);
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "x"), 0u) << "a failed open is tried again";

    // It is removed again and again: more reports than are held while a log is locked.
    syslog.clear();
    const Fault removed = Fault::Meanwhile(
        "stat", 1, [] { unlink(g_stDLogInfo.acFileName); }, Fault::kAll);
    EXPECT_EQ(KORX_DLog(0, 0, 0, 0, 0, "x"), kAll);
    EXPECT_EQ(syslog.texts().size(), 34u);
}

std::string g_agent_calls;
uint32_t Agent(uint32_t type, uint32_t id, const char* format, ...) {
    va_list args;
    va_start(args, format);
    char text[700];
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    g_agent_calls += std::to_string(type) + ":" + std::to_string(id) + ":" + text + ";";
    return 42;
}

TEST_F(RingLogs, HandTheMessageAloneToABoundAgent) {
    g_KorxImAgentReportLogByIdFunc = Agent;
    EXPECT_EQ(KORX_DLog(0, 5, 0, 0, 0, "100%%"), 0u);
    EXPECT_EQ(KORX_SecurityEventLog(0, 6, 0, 0, 0, "s"), 42u);
    EXPECT_EQ(KORX_LifeCycleLog(0, 7, 0, 0, 0, "l"), 42u);
    EXPECT_EQ(g_agent_calls, "9:5:100%;1:6:s;22:7:l;");
    local_mode();
    EXPECT_EQ(KORX_LifeCycleLog(0, 7, 0, 0, 0, "file"), 0u);
    EXPECT_TRUE(Exists(g_stLifeLogInfo.acFileName));
    EXPECT_FALSE(Exists(g_stDLogInfo.acFileName));
}

TEST_F(RingLogs, StayWholeWhenWritersAreKilledAndRecordsDiscarded) {
    local_mode();
    seed(g_stSLogInfo, {g_stSLogInfo.uiMaxSize - 300, 0, 0});  // every other event is a discard
    for (unsigned nth = 1; nth <= 30; ++nth) {
        const int status = RunChild([&] {
            const Fault kill = Fault::Kill("*", nth);
            std::thread other([] { KORX_DLog(0, 1, 1, 0, 0, "d"); });
            KORX_SecurityEventLog(0, 1, 1, 0, 0, "s");
            KORX_LifeCycleLog(0, 1, 1, 0, 0, "l");
            other.join();
            return 0;
        });
        EXPECT_TRUE(status == Fault::kKilled || status == 0) << status;
    }
    // Whatever was cut off, the heads lead to whole records only.
    EXPECT_EQ(KORX_DLog(0, 1, 1, 0, 0, "last"), 0u);
    const LOG_HEAD_S head = Head(g_stDLogInfo.acFileName);
    const std::string text = ReadFile(g_stDLogInfo.acFileName).substr(kHead, head.uiLogLen);
    Matches(text, R"(\[[\d :.-]{26}\]\[Index:[^\n]*\n)");
}

}  // namespace
}  // namespace korx::test
