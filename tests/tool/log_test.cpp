// korx log, on logs that the library has written.
#include <poll.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <random>
#include <set>

#include "korx/reader.h"
#include "run.h"

namespace korx::test {
namespace {

std::vector<std::string> Messages(const Result& result) {
    std::vector<std::string> messages;
    for (const auto& record : result.json())
        messages.push_back(record.value("message", ""));
    return messages;
}

void WriteSecurity(int first, int count) {
    for (int i = first; i < first + count; ++i)
        ASSERT_EQ(KORX_SecurityEventLog(1, 2, 1, 3, 4, "event %d", i), 0u);
}

std::vector<std::string> Events(int first, int count) {
    std::vector<std::string> events;
    for (int i = first; i < first + count; ++i)
        events.push_back("event " + std::to_string(i));
    return events;
}

uint64_t Unread(const std::string& kind) {
    uint64_t unread = 0;
    for (const auto& log : Korx({"log", "list", "--json"}).json())
        if (log["kind"] == kind && log["present"])
            unread += log["unread"].get<uint64_t>();
    return unread;
}

struct LogShow : BoardTest {};
struct LogTake : BoardTest {};
struct LogVerify : BoardTest {};

TEST_F(LogShow, PrintsTheFieldsOfEveryKindAsJson) {
    setenv("TZ", "Asia/Kolkata", 1);
    KORX_DLog(11, 0x1234, 3, 5, 6, "a \"quoted\"\tword \\ \x01 \xff and \xc3\xa9");
    KORX_LifeCycleLog(11, 12, 9, 5, 6, "two\nlines");
    KORX_STLog(2, 0, 6, "starting");
    KORX_PLogInit(0, "zelk", 0);
    KORX_PLog(2, 5, 6, "process line");
    ORX_SpaceFull("/var", 87);
    ORX_LogInfo info = {};
    info.uiLogMode = 3;
    info.uiModuleId = 80101;
    info.uiMaxLogLen = 0x80000;
    strcpy(info.acLogDir, tree.path("log").c_str());
    strcpy(info.acLogFileName, "orx_app.log");
    KORX_LogInit(&info);

    const auto all = Korx({"log", "show", "all", "--json"}).json();
    ASSERT_EQ(all.size(), 6u);
    const auto& diag = all[0];
    EXPECT_EQ(diag["message"], "a \"quoted\"\tword \\ \x01 \xef\xbf\xbd and \xc3\xa9");
    EXPECT_EQ(diag["severity"], "error");
    EXPECT_EQ(diag["kind"], "diag");
    EXPECT_EQ(diag["index"], 0x1234);
    EXPECT_EQ(diag["app_cid"], 11);
    EXPECT_EQ(diag["location"], 7);
    EXPECT_EQ(diag["m"], 5);
    EXPECT_EQ(diag["value"], 6);
    const std::string time = diag["time"];
    const time_t now = ::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char today[32];
    strftime(today, sizeof today, "%Y-%m-%dT%H:", &local);
    EXPECT_EQ(time.substr(0, 14), today);
    EXPECT_EQ(time.substr(26), "+05:30");
    EXPECT_EQ(all[1]["message"], "two\nlines");
    EXPECT_EQ(all[1]["severity"], "fatal");
    EXPECT_EQ(all[2]["section"], "CFL");
    EXPECT_FALSE(all[2].contains("index"));
    EXPECT_EQ(all[3]["process"], "zelk");
    EXPECT_EQ(all[4]["mount"], "/var");
    EXPECT_EQ(all[4]["value"], 87);
    EXPECT_EQ(all[5]["pid"], getpid());
    EXPECT_EQ(all[5]["module"], 80101);
}

TEST_F(LogShow, ChoosesRecords) {
    for (int i = 0; i < 10; ++i)
        KORX_DLog(1, 2, static_cast<uint32_t>(i % 5), 0, 0, "number %d", i);
    KORX_STLog(0, 1, 0, "frame");
    KORX_STLog(3, 1, 0, "debug");
    KORX_PLogInit(0, "zelk", 0);
    KORX_PLog(1, 0, 0, "of zelk");
    KORX_PLogByProcName(1, "zelk", 0, 0, "%s", "by name");
    const struct {
        Args args;
        std::vector<std::string> messages;
    } kCases[] = {
        {{"diag", "-n", "2"}, {"number 8", "number 9"}},
        {{"diag", "-n", "0"}, {}},
        {{"diag", "--level", "error"}, {"number 3", "number 4", "number 8", "number 9"}},
        {{"diag", "--level", "FATAL", "-n", "1"}, {"number 9"}},
        {{"diag", "--grep", "[13]$"}, {"number 1", "number 3"}},
        {{"diag", "--grep", "NUMBER 7", "-i"}, {"number 7"}},
        {{"diag", "--grep", "nothing"}, {}},
        {{"diag", "--since", "1h", "--until", "now", "-n", "1"}, {"number 9"}},
        {{"diag", "--until", "1h"}, {}},
        {{"diag", "--since", "2030-01-01"}, {}},
        {{"start", "--section", "dbg"}, {"debug"}},
        {{"process", "--process", "zelk", "-n", "1"}, {"by name"}},
        {{log("KORX_DIAG_LOG"), "-n", "1"}, {"number 9"}},
    };
    for (const auto& row : kCases) {
        Args args{"log", "show", "--json"};
        args.insert(args.end(), row.args.begin(), row.args.end());
        const Result result = Korx(args);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(Messages(result), row.messages) << testing::PrintToString(row.args);
    }
}

TEST_F(LogShow, RefusesWhatItDoesNotUnderstandAndNamesWhatItCannotRead) {
    KORX_DLog(1, 2, 1, 0, 0, "x");
    WriteFile("foreign", "no log at all\n");
    MakeDirs("directory");
    const struct {
        Args args;
        int status;
        const char* text;
    } kCases[] = {
        {{"log", "show"}, 2, "what"},
        {{"log", "show", "nonsense"}, 2, "'nonsense'"},
        {{"log", "show", "diag", "--since", "25:99"}, 2, "25:99"},
        {{"log", "show", "diag", "--since", "2024-13-01"}, 2, "2024-13-01"},
        {{"log", "show", "diag", "--level", "loud"}, 2, "loud"},
        {{"log", "show", "diag", "--grep", "("}, 2, "("},
        {{"log", "show", "diag", "-n", "-1"}, 2, "-1"},
        {{"log", "show", "diag", "--section", "DBG"}, 2, "section"},
        {{"log", "show", "process", "--process", "none"}, 2, "none"},
        {{"log", "show", "./missing"}, 3, "./missing"},
        {{"log", "show", "foreign"}, 3, "foreign"},
        {{"log", "show", "directory"}, 3, "directory"},
        {{"log", "verify", "/dev/zero"}, 3, "/dev/zero"},
        {{"log", "list", "--dir", "/nowhere"}, 3, "/nowhere"},
    };
    for (const auto& row : kCases) {
        const Result result = Korx(row.args);
        EXPECT_EQ(result.status, row.status) << testing::PrintToString(row.args);
        EXPECT_NE(result.err.find(row.text), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(LogShow, KeepsALogLineFromDrivingTheTerminal) {
    KORX_DLog(1, 2, 1, 0, 0,
              "\033[2Jgone\r\xc2\x9b"
              "31m \x9b and \xe2\x82\xac");
    const std::string out = Korx({"log", "show", "diag"}).out;
    EXPECT_NE(out.find("\\x1b[2Jgone\\x0d\\xc2\\x9b31m \\x9b and \xe2\x82\xac\n"),
              std::string::npos)
        << out;
}

TEST_F(LogShow, EndsQuietlyWhenTheReaderHasSeenEnough) {
    for (int i = 0; i < 2000; ++i)
        KORX_DLog(1, 2, 1, 0, 0, "a line of some length, so that a pipe is full before the end %d",
                  i);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const Result result = Korx({"log", "show", "diag"}, ends[1]);
    close(ends[1]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(LogShow, ShowsOthersLogsToAUserWhoMayOnlyRead) {
    WriteSecurity(0, 3);
    chmod(tree.root().c_str(), 0755);
    chmod(log("korx_safe.log").c_str(), 0644);
    constexpr uid_t kNobody = 65534;
    const Result shown = Korx({"log", "show", "security", "--json"}, -1, kNobody);
    EXPECT_EQ(Messages(shown), Events(0, 3));
    const Result taken = Korx({"log", "take", "security"}, -1, kNobody);
    EXPECT_EQ(taken.status, 5);
    EXPECT_NE(taken.err.find(log("korx_safe.log")), std::string::npos) << taken.err;
    EXPECT_EQ(Unread("security"), 3u);
    chmod(log("korx_safe.log").c_str(), 0600);
    EXPECT_EQ(Korx({"log", "show", "security"}, -1, kNobody).status, 3);
}

TEST_F(LogTake, TakesEveryRecordOnce) {
    WriteSecurity(0, 5);
    EXPECT_EQ(Messages(Korx({"log", "take", "security", "--json"})), Events(0, 5));
    EXPECT_EQ(Korx({"log", "take", "security"}).out, "");
    WriteSecurity(5, 2);
    EXPECT_EQ(Korx({"log", "take", "all", "--json", "--output", "taken"}).status, 0);
    EXPECT_EQ(Korx({"log", "take", "all", "--json", "--output", "taken"}).status, 0);
    Result taken;
    taken.out = ReadFile("taken");
    EXPECT_EQ(Messages(taken), Events(5, 2));
    EXPECT_EQ(Messages(Korx({"log", "show", "security", "--json"})), Events(0, 7));
}

TEST_F(LogTake, AcknowledgesNothingThatWasNotDelivered) {
    WriteSecurity(0, 900);
    const Result full = Korx({"log", "take", "security", "--output", "/dev/full"});
    EXPECT_EQ(full.status, 4);
    EXPECT_NE(full.err.find("/dev/full"), std::string::npos);
    EXPECT_NE(full.err.find("No space left"), std::string::npos);
    EXPECT_EQ(Unread("security"), 900u);

    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const Result closed = Korx({"log", "take", "security"}, ends[1]);
    close(ends[1]);
    EXPECT_EQ(closed.status, 4);
    EXPECT_NE(closed.err.find("nothing acknowledged"), std::string::npos) << closed.err;
    EXPECT_EQ(Unread("security"), 900u);

    EXPECT_EQ(WEXITSTATUS(system((std::string(KORX_TOOL) + " log take security >&-").c_str())), 4);
    EXPECT_EQ(Unread("security"), 900u);

    const Result itself = Korx({"log", "take", "security", "--output", log("korx_safe.log")});
    EXPECT_EQ(itself.status, 2);
    EXPECT_EQ(Unread("security"), 900u);
}

// What a failed delivery left in the file would be there twice after the next one.
TEST_F(LogTake, TakesBackWhatAFullDiskKeptOfADelivery) {
    MakeDirs("disk");
    ASSERT_EQ(mount("small", "disk", "tmpfs", 0, "size=64k"), 0);
    WriteSecurity(0, 900);
    WriteFile("disk/taken", "before\n");
    EXPECT_EQ(Korx({"log", "take", "security", "--json", "--output", "disk/taken"}).status, 4);
    EXPECT_EQ(ReadFile("disk/taken"), "before\n");
    EXPECT_EQ(Unread("security"), 900u);
    umount("disk");
}

TEST_F(LogTake, RefusesAHeadThatCannotBeAcknowledged) {
    WriteSecurity(0, 3);
    std::string bytes = ReadFile(log("korx_safe.log"));
    bytes[3] = '\x7f';  // uiLogLen
    WriteFile(log("korx_safe.log"), bytes);
    const Result result = Korx({"log", "take", "security", "--json"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("offset 0"), std::string::npos) << result.err;
    EXPECT_EQ(Messages(Korx({"log", "show", "security", "--json"})), Events(0, 3));
}

TEST_F(LogTake, TellsOfRecordsThatNobodyTookInTime) {
    KORX_DLog(1, 2, 1, 0, 0, "first");
    EXPECT_EQ(Korx({"log", "take", "diag"}).status, 0);
    for (int i = 0; i < 9000; ++i)
        KORX_DLog(1, 2, 1, 0, 0, "filling the ring more than twice with lines of this size %d", i);
    const Result result = Korx({"log", "take", "diag", "--json"});
    const auto records = result.json();
    ASSERT_FALSE(records.empty());
    EXPECT_TRUE(records[0].value("gap", false));
    EXPECT_GT(records[0].value("lost", 0), 0);
    EXPECT_NE(result.err.find("gap"), std::string::npos);
    EXPECT_EQ(Korx({"log", "take", "diag", "--json"}).out, "");
}

class Follow {
  public:
    explicit Follow(const Args& args) {
        EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
        command_.emplace(args, ends_[1]);
        close(ends_[1]);
    }
    ~Follow() { close(ends_[0]); }

    // The next line's message; "" when none comes in time.
    std::string next() {
        while (buffer_.find('\n') == std::string::npos) {
            pollfd waiting{ends_[0], POLLIN, 0};
            char piece[4096];
            ssize_t count = 0;
            if (poll(&waiting, 1, 5000) <= 0 || (count = read(ends_[0], piece, sizeof piece)) <= 0)
                return "";
            buffer_.append(piece, static_cast<size_t>(count));
        }
        const size_t end = buffer_.find('\n');
        const auto record = nlohmann::json::parse(buffer_.substr(0, end));
        buffer_.erase(0, end + 1);
        return record.value("message", "");
    }
    void close_output() { close(std::exchange(ends_[0], -1)); }
    int stop(int signal) {
        kill(command_->pid(), signal);
        return command_->wait();
    }
    int wait() { return command_->wait(); }
    std::string switches() const {
        std::ifstream status("/proc/" + std::to_string(command_->pid()) + "/status");
        std::string all;
        for (std::string line; std::getline(status, line);)
            if (line.find("ctxt_switches") != std::string::npos)
                all += line;
        return all;
    }

  private:
    int ends_[2];
    std::optional<Command> command_;
    std::string buffer_;
};

TEST_F(LogTake, FollowsWithoutWakingUpForNothing) {
    WriteSecurity(0, 2);
    Follow follow({"log", "take", "all", "-f", "--json"});
    EXPECT_EQ(follow.next(), "event 0");
    EXPECT_EQ(follow.next(), "event 1");
    WriteSecurity(2, 1);
    EXPECT_EQ(follow.next(), "event 2");
    KORX_DLog(1, 2, 1, 0, 0, "a log that was not there");
    EXPECT_EQ(follow.next(), "a log that was not there");
    WriteFile(log("other"), "not a log of ours");
    usleep(300000);
    const std::string before = follow.switches();
    EXPECT_NE(before, "");
    WriteFile(log("other"), "but written to");
    usleep(500000);
    EXPECT_EQ(follow.switches(), before);
    EXPECT_EQ(follow.stop(SIGTERM), 0);
    EXPECT_EQ(Unread("security") + Unread("diag"), 0u);
}

TEST_F(LogTake, EndsWhenItsReaderGoesAndTakesNothingMore) {
    WriteSecurity(0, 1);
    Follow follow({"log", "take", "security", "-f", "--json"});
    EXPECT_EQ(follow.next(), "event 0");
    usleep(200000);
    follow.close_output();
    EXPECT_EQ(follow.wait(), 0);
    WriteSecurity(1, 1);
    EXPECT_EQ(Unread("security"), 1u);
}

TEST_F(LogTake, LosesNothingWhenKilledAgainAndAgain) {
    constexpr int kRecords = 3000;
    const pid_t writer = fork();
    if (writer == 0) {
        for (int i = 0; i < kRecords; ++i)
            while (usleep(100), KORX_SecurityEventLog(1, 2, 1, 3, 4, "event %d", i) != 0)
                continue;
        _exit(0);
    }
    // Some are killed before they have taken anything, some in the middle, some later.
    timespec before, after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(Korx({"log", "take", "security", "--json", "--output", "taken"}).status, 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto one = static_cast<unsigned>((after.tv_sec - before.tv_sec) * 1000000 +
                                           (after.tv_nsec - before.tv_nsec) / 1000);
    std::mt19937 random(1);
    int status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        Command taker({"log", "take", "security", "-f", "--json", "--output", "taken"});
        usleep(random() % (4 * one));
    }
    EXPECT_EQ(Korx({"log", "take", "security", "--json", "--output", "taken"}).status, 0);
    std::set<std::string> taken;
    std::istringstream lines(ReadFile("taken"));
    for (std::string line; std::getline(lines, line);)
        if (const auto record = nlohmann::json::parse(line, nullptr, false); record.is_object())
            taken.insert(record.value("message", ""));
    for (const std::string& event : Events(0, kRecords))
        EXPECT_EQ(taken.count(event), 1u) << event;
}

TEST_F(LogShow, FollowsAcrossLapsAndStopsOnInterrupt) {
    for (int i = 0; i < 20; ++i)
        KORX_DLog(1, 2, 1, 0, 0, "old %d", i);
    Follow follow({"log", "show", "diag", "-f", "--json"});
    for (int i = 10; i < 20; ++i)
        EXPECT_EQ(follow.next(), "old " + std::to_string(i));
    for (int i = 0; i < 4000; ++i) {  // more than a lap
        KORX_DLog(1, 2, 1, 0, 0, "%d and a tail that makes the ring wrap soon enough", i);
        if (i % 10 != 9)
            continue;
        for (int j = i - 9; j <= i; ++j)
            ASSERT_EQ(atoi(follow.next().c_str()), j);
    }
    EXPECT_EQ(follow.stop(SIGINT), 0);
}

TEST_F(LogVerify, NamesEachDamageAndItsOffset) {
    WriteSecurity(0, 20);
    KORX_STLog(0, 1, 0, "start");
    EXPECT_EQ(Korx({"log", "verify"}).status, 0);
    const std::string good = ReadFile(log("korx_safe.log"));
    const size_t record = (good.size() - 12) / 20;  // those of one digit are shorter by one
    const struct {
        const char* rule;
        size_t offset;
        std::string bytes;
    } kCases[] = {
        {"head-length", 0,
         [&] {
             auto b = good;
             b[2] = 'x';
             return b;
         }()},
        {"head-short", 0, good.substr(0, 7)},
        {"zeros", good.size() - record * 2,
         [&] {
             auto b = good;
             b.replace(good.size() - record * 2, 40, 40, '\0');
             return b;
         }()},
    };
    for (const auto& row : kCases) {
        WriteFile(log("korx_safe.log"), row.bytes);
        const Result result = Korx({"log", "verify", "security", "--json"});
        EXPECT_EQ(result.status, 1);
        bool found = false;
        for (const auto& damage : result.json())
            found |= damage["rule"] == row.rule && damage["file"] == log("korx_safe.log") &&
                     damage["offset"].get<size_t>() / record == row.offset / record;
        EXPECT_TRUE(found) << row.rule << "\n" << result.out;
        EXPECT_NE(Korx({"log", "verify"}).out.find(row.rule), std::string::npos);
    }
}

// Every bit of the heads and some hundred random changes, printed in both forms.
TEST_F(LogVerify, SurvivesAnyBytes) {
    WriteSecurity(0, 5);
    KORX_STLog(1, 1, 0, "start");
    std::mt19937 random(7);
    const auto check = [](const std::string& file) {
        for (const Args& args : {Args{"log", "verify", file},
                                 {"log", "show", "--json", file},
                                 {"log", "show", file, "-n", "3"}}) {
            const Result result = Korx(args);
            ASSERT_TRUE(result.status == 0 || result.status == 1 || result.status == 3)
                << result.status << " " << result.err;
            ASSERT_LT(result.out.size(), 4u << 20);
            if (args[2] == "--json") {
                ASSERT_NO_THROW(result.json());
            }
        }
    };
    const struct {
        std::string file;
        std::string log;
        size_t head;
    } kFiles[] = {{log("korx_safe.log"), log("korx_safe.log"), 12},
                  {log(".korxloghdr"), log("KORX_START_LOG"), 76}};
    for (const auto& row : kFiles) {
        const std::string good = ReadFile(row.file);
        for (size_t bit = 0; bit < row.head * 8; bit += row.head == 12 ? 1 : 5) {
            std::string bad = good;
            bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
            WriteFile(row.file, bad);
            check(row.log);
        }
        for (int i = 0; i < 60; ++i) {
            std::string bad = good.substr(0, i % 3 == 0 ? random() % good.size() : good.size());
            for (unsigned n = random() % 20; n > 0 && !bad.empty(); --n)
                bad[random() % bad.size()] = static_cast<char>(random());
            WriteFile(row.file, bad);
            check(row.log);
        }
        WriteFile(row.file, good);
    }
}

}  // namespace
}  // namespace korx::test
