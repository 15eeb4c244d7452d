// korx log take: what was acknowledged has arrived.
#include <stdlib.h>
#include <sys/file.h>
#include <sys/mount.h>

#include <chrono>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "base/unique.h"
#include "common.h"
#include "log_commands.h"
#include "logs.h"
#include "support/faults.h"
#include "support/processes.h"

namespace korx::test {
namespace {

struct LogTake : BoardTest {};

TEST_F(LogTake, TakesEveryRecordOnce) {
    WriteSecurity(0, 5);
    EXPECT_EQ(Messages(Korx("log take security --json")), Events(0, 5));
    WriteSecurity(5, 2);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Korx("log take all --json --output taken").status, 0);
    EXPECT_EQ(Messages({0, ReadFile("taken"), ""}), Events(5, 2));
    EXPECT_EQ(Messages(Korx("log show security --json")), Events(0, 7));
}

TEST_F(LogTake, AcknowledgesNothingThatWasNotDelivered) {
    MakeDirs("disk");
    const bool disk_is_small = mount("small", "disk", "tmpfs", 0, "size=64k") == 0;
    WriteFile("disk/taken", "before\n");
    uint64_t written = 0;
    const auto fails = [&](const Result& result, int status, const char* text) {
        Expect(result, status, text);
        EXPECT_EQ(Unread("security"), written) << text;
    };
    for (const int count : {3, 897}) {  // few fail at their end, many in the middle
        WriteSecurity(int(written), count);
        written += unsigned(count);
        fails(Korx("log take security --output /dev/full"), 4, "/dev/full");
        fails(KorxUnheard("log take security"), 4, "nothing acknowledged");
    }
    fails({system(KORX_TOOL " log take security >&- 2>&-") / 256, "", ""}, 4, "");
    fails(Korx("log take security --output ../log/korx_safe.log"), 2, "");
    // What a failed delivery left would be there twice after the next one, and a second writer's
    // records would be cut off with it.
    const char* const ways[][3] = {
        {" --output disk/taken; }", "torn", "torn"},
        {"; } >>disk/taken", "torn", "torn"},
        {"; status=$?; printf after; exit $status; } 1<>disk/taken", "", "after"}};
    for (const auto& [way, before, after] : ways) {
        for (const bool is_locked : {true, false}) {
            SCOPED_TRACE(way);
            WriteFile("disk/taken", before);
            const UniqueFd other(is_locked ? open("disk/taken", O_RDONLY) : -1);
            if (flock(other.get(), LOCK_SH) < 0 && !disk_is_small)
                continue;
            const std::string take = "{ " KORX_TOOL " log take security 2>cmd.err";
            fails({system((take + way).c_str()) / 256, "", ReadFile("cmd.err")}, 4,
                  is_locked ? "another korx" : "No space left");
            EXPECT_EQ(ReadFile("disk/taken"), after);
        }
    }
    umount("disk");
    // A head that cannot be acknowledged.
    WriteFile(log("korx_safe.log"), ReadFile(log("korx_safe.log")).replace(3, 1, "\x7f"));
    Expect("log take security --json", 5, "offset 0");
    EXPECT_EQ(ReadFile("cmd.out"), "");
    EXPECT_EQ(Messages(Korx("log show security --json -n 900")), Events(0, 900));
    if (!disk_is_small)
        GTEST_SKIP() << "all but the full disk passed: cannot mount here";
}

// The command's work in a child, where its calls can be made to fail: the nth one, all from there
// on, or it never happens because the process is killed.
enum class Way { kFails, kAllFail, kKilled };
constexpr int kUnharmed = 50;

int TakeHarmed(const std::string& file, unsigned nth, Way way, const char* call = "*",
               const char* command = "") {
    return RunChild([&] {
        dup2(creat("cmd.err", 0600), STDERR_FILENO);
        const auto fault = way == Way::kKilled
                               ? Fault::Kill(call, nth)
                               : Fault(call, nth, EIO, way == Way::kFails ? 1 : Fault::kAll);
        tool::Globals globals;
        globals.json = true;
        tool::TakeOptions options;
        options.what = file;
        options.command = command;
        options.output = options.command.empty() ? "taken" : "";
        int status = 0;
        try {
            status = tool::RunLogTake(globals, options);
        } catch (const tool::Failure& failure) {
            status = failure.status;
        }
        return fault.hits() == 0 ? kUnharmed : status;
    });
}

TEST_F(LogTake, TakesBackAFailedBatchAndNothingElse) {
    WriteSecurity(0, 3);
    const Fault other =
        Fault::Meanwhile("fsync", 1, [] { std::ofstream("taken", std::ios::app) << "other\n"; });
    EXPECT_EQ(TakeHarmed(log("korx_safe.log"), 1, Way::kAllFail, "fsync"), 4);
    EXPECT_TRUE(Has(ReadFile("taken"), "other\n"));
    // A command must not take the end of half a batch for the end of a whole one.
    const char* const command = "sh -c 'cat >half; touch whole'";
    EXPECT_EQ(TakeHarmed(log("korx_safe.log"), 1, Way::kFails, "write", command), 4);
    EXPECT_FALSE(Exists("whole"));
    EXPECT_EQ(Unread("security"), 3u);
}

struct HarmedTake : BoardTest, testing::WithParamInterface<const char*> {
    static constexpr int kRecords = 20;

    // How often each record is in the output, behind what somebody else left there.
    std::map<std::string, int> taken() const {
        std::map<std::string, int> counts;
        std::istringstream lines(ReadFile("taken"));
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(line, "torn");
        while (std::getline(lines, line))
            ++counts[nlohmann::json::parse(line, nullptr, false).value("message", line)];
        return counts;
    }
};

TEST_P(HarmedTake, LosesAndTearsNothingWhateverCallFails) {
    const std::string kind = GetParam();
    const std::string file = log(kind == "text" ? "orx_app.log" : "korx_safe.log");
    if (kind == "security")
        WriteSecurity(0, kRecords);
    else
        WriteText(tree.path("log"), 0, kRecords);
    const std::string bytes = ReadFile(file);
    for (const Way way : {Way::kFails, Way::kAllFail, Way::kKilled}) {
        int status = 0;
        for (unsigned nth = 1; status != kUnharmed; ++nth) {
            SCOPED_TRACE(kind + " call " + std::to_string(nth) + " way " +
                         std::to_string(int(way)));
            WriteFile(file, bytes);
            WriteFile("taken", "torn");
            unlink((file + ".cursor").c_str());
            status = TakeHarmed(file, nth, way);
            EXPECT_EQ(TakeHarmed(file, 0, Way::kFails), kUnharmed) << ReadFile("cmd.err");
            const auto counts = taken();
            EXPECT_EQ(counts.size(), size_t{kRecords});
            for (const std::string& event : Events(0, kRecords)) {
                const auto found = counts.find(event);
                ASSERT_NE(found, counts.end()) << event << " is lost";
                const bool once = way == Way::kFails && status != tool::kUnchanged;
                ASSERT_LE(found->second, once ? 1 : 2) << event << " status " << status;
            }
            ASSERT_LT(nth, 500u);
        }
    }
}

TEST_F(LogTake, AcknowledgesOnlyWhatIsOnDisk) {
    WriteSecurity(0, 1);
    for (const unsigned nth : {1u, 2u})  // the file and its name
        EXPECT_EQ(TakeHarmed("security", nth, Way::kFails, "fsync"), tool::kOutput) << nth;
    EXPECT_EQ(ReadFile("taken"), "");
    EXPECT_EQ(Unread("security"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HarmedTake, testing::Values("security", "text"));

TEST_F(LogTake, TellsOfRecordsThatNobodyTookInTime) {
    KORX_DLog(1, 2, 1, 0, 0, "first");
    Expect("log take diag", 0, "first");
    for (int i = 0; i < 9000; ++i)
        KORX_DLog(1, 2, 1, 0, 0, "filling the ring more than twice with lines of this size %d", i);
    const Result result = Korx("log take diag --json");
    const auto records = result.json();
    EXPECT_TRUE(records.at(0).value("gap", false));
    EXPECT_EQ(records.at(0)["lost"], nullptr) << "nobody counts the laps";
    EXPECT_TRUE(Has(result.err, "gap: an unknown number"));
    EXPECT_EQ(Korx("log take diag --json").out, "");
}

TEST_F(LogTake, FollowsWithoutWakingUpForNothingUntilItsReaderGoes) {
    WriteSecurity(0, 2);
    Follow follow("log take all -f --json");
    EXPECT_EQ(follow.next(), "event 0");
    EXPECT_EQ(follow.next(), "event 1");
    WriteSecurity(2, 1);
    EXPECT_EQ(follow.next(), "event 2");
    KORX_DLog(1, 2, 1, 0, 0, "a log that was not there");
    EXPECT_EQ(follow.next(), "a log that was not there");
    WriteText(tree.path("log"), 0, 1);
    EXPECT_EQ(follow.next(), "event 0");
    const auto is_acknowledged = [&] { return Unread("text") == 0; };
    for (int i = 0; i < 1000 && !is_acknowledged(); ++i)
        usleep(10000);
    unlink(log("orx_app.log.cursor").c_str());  // nothing says any more that it was taken
    ORX_Log2File(2, "event 1");
    EXPECT_EQ(follow.next(), "event 0");
    EXPECT_EQ(follow.next(), "event 1");
    WriteFile(log("other"), "not a log of ours");
    std::string before;
    for (int i = 0; i < 100 && before != follow.switches(); ++i) {
        before = follow.switches();
        usleep(300000);
    }
    WriteFile(log("other"), "but written to");
    usleep(500000);
    EXPECT_EQ(follow.switches(), before);
    EXPECT_EQ(Unread("security") + Unread("diag"), 0u);
    follow.close_output();
    EXPECT_EQ(follow.wait(), 0);
    WriteSecurity(3, 1);
    EXPECT_EQ(Unread("security"), 1u);
}

TEST_F(LogTake, AcknowledgesWhatACommandHasKept) {
    const struct {
        const char* command;
        int status;
        const char* complaint;
    } kRows[] = {
        {"cat 'kept", 2, "quote"},
        {"./missing 'a b'", 4, "./missing: "},
        {"sh -c 'cat >rest; exit 3'", 4, "exit status 3"},
        {"sh -c 'cat >rest; kill -9 $$'", 4, "signal 9"},
        {"sh -c 'cat >rest; kill -PIPE $$'", 4, "signal 13"},
        {"head -c 1", 4, "before it had read all"},
        {"sh -c \"cat >kept; echo \\$# \\$* $(ls /proc/self/fd) >kept.env\" '' a\\ b", 0, ""}};
    WriteSecurity(0, 900);
    for (const int fd : OpenFiles())  // only those of the command shall be found there
        (void) (fd > STDERR_FILENO && fcntl(fd, F_SETFD, FD_CLOEXEC));
    for (const auto& [command, status, complaint] : kRows) {
        EXPECT_EQ(Unread("security"), 900u) << command;
        const Result result = Korx({"log", "take", "security", "--json", "--exec", command});
        EXPECT_EQ(result.status, status) << command;
        EXPECT_TRUE(Has(result.err, complaint)) << result.err;
    }
    EXPECT_EQ(Messages({0, ReadFile("kept"), ""}), Events(0, 900));
    EXPECT_EQ(ReadFile("kept.env"), "1 a b 0 1 2 3\n");  // the last one is that of ls
    EXPECT_EQ(Unread("security"), 0u);
    WriteFile("first", "");
    Command follow(
        {"log", "take", "all", "-f", "--exec", "sh -c 'cat >first.new; mv first.new first'"});
    WriteSecurity(900, 1);
    for (int i = 0; i < 1000 && (ReadFile("first").empty() || Unread("security") > 0); ++i)
        usleep(10000);
    EXPECT_TRUE(Has(ReadFile("first"), "event 900"));
    const std::string pid = std::to_string(follow.pid());
    EXPECT_EQ(ReadFile("/proc/" + pid + "/task/" + pid + "/children"), "");
    EXPECT_EQ(follow.stop(SIGTERM), 0);
}

TEST_F(LogTake, AcknowledgesWhatItsReaderConfirms) {
    // The first batch is confirmed, the second is not: by the wrong number, half a line, too early.
    const std::string kAnswers[][2] = {{"1\n", "1\n"}, {"kept\n", "2"}, {"\n\n", ""}};
    for (const auto& [first, second] : kAnswers) {
        SCOPED_TRACE(first + second);
        const Pipe pipe;
        const int inherited = dup(pipe.ends[0]);
        WriteSecurity(0, 1);
        Follow follow("log take security -f --json --ack-fd " + std::to_string(inherited));
        close(inherited);
        close(pipe.ends[0]);
        EXPECT_EQ(follow.next(), "event 0");
        EXPECT_EQ(follow.next(), "") << "the end of the batch";
        EXPECT_EQ(Unread("security"), 1u);
        EXPECT_EQ(write(pipe.ends[1], first.data(), first.size()), ssize_t(first.size()));
        for (int i = 0; i < 1000 && Unread("security") > 0; ++i)
            usleep(10000);
        WriteSecurity(1, 1);
        EXPECT_EQ(follow.next(), second.empty() ? "" : "event 1");
        EXPECT_EQ(write(pipe.ends[1], second.data(), second.size()), ssize_t(second.size()));
        close(pipe.ends[1]);
        EXPECT_EQ(follow.wait(), 4);
        EXPECT_EQ(Unread("security"), 1u);
        Expect("log take security", 0);
    }
    Expect("log take security --ack-fd 77", 2, "77");
    Expect("log take security --ack-fd 0 --exec cat", 2, "exclude");
}

// Heads that the writers refuse for good.
TEST_F(LogTake, NamesTheCureOfADamagedHead) {
    const LOG_HEAD_S kHeads[] = {
        {1000, 1010, 2000}, {10, 20, 0xFFFFFFFF}, {0xFFFFFFF0, 0, 0}, {0, 5, 0}};
    const std::string file = log("korx_safe.log"), cure = "korx log repair " + file;
    Expect("log verify", 7, "no log");
    int first = 0;
    for (const LOG_HEAD_S& head : kHeads) {
        SCOPED_TRACE(head.uiLogLen);
        WriteSecurity(first, 5);
        Expect("log repair security", 0);
        std::string bad = ReadFile(file);
        memcpy(bad.data(), &head, sizeof head);
        bad.resize(head.uiDumpLen == 5 ? sizeof head : bad.size());
        WriteFile(file, bad);
        Expect("log take security", 5, cure);
        Expect("doctor", 1, cure);
        Expect("doctor --dir ../log", 1, "korx log repair ../log/korx_safe.log");
        if (bad.size() > sizeof head) {
            Expect("log repair security --output /dev/full", 4, "/dev/full");
        }
        EXPECT_EQ(ReadFile(file), bad);
        const Result repaired = Korx("log repair security --json");
        EXPECT_EQ(repaired.status, 0) << repaired.err;
        EXPECT_TRUE(Has(repaired.err, file + ".damaged." + std::to_string(first / 10 + 1)));
        EXPECT_EQ(Messages(repaired), Events(first, head.uiDumpLen == 5 ? 0 : 5));
        first += 10;
    }
    WriteSecurity(first, 1);
    EXPECT_EQ(Messages(Korx("log take security --json")), Events(first, 1));
    Expect("doctor", 0);
    rename("/etc/base.d/base.conf", "base.conf");
    Expect("doctor --dir ../log --json", 0, "korx_safe.log");
    EXPECT_FALSE(Has(Korx("doctor --dir ../log").out, "base.conf"));
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
    const std::string take = "log take security --json --output taken";
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(Korx(take).status, 0);
    const auto one = std::chrono::steady_clock::now() - before;
    std::mt19937 random(1);
    int status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        Command taker(take + " -f");
        std::this_thread::sleep_for(one * (random() % 4096) / 1024);
    }
    EXPECT_EQ(Korx(take).status, 0);
    std::set<std::string> taken;
    std::istringstream lines(ReadFile("taken"));
    for (std::string line; std::getline(lines, line);)
        if (const auto record = nlohmann::json::parse(line, nullptr, false); record.is_object())
            taken.insert(record.value("message", ""));
    for (const std::string& event : Events(0, kRecords))
        EXPECT_EQ(taken.count(event), 1u) << event;
}

}  // namespace
}  // namespace korx::test
