// korx log show: what it selects, how it prints it, and when it ends.
#include <pty.h>
#include <stdlib.h>
#include <sys/mount.h>

#include <set>

#include "logs.h"
#include "when.h"

namespace korx::test {
namespace {

struct Show : BoardTest {
    void write(int first, int count) const {
        for (int i = first; i < first + count; ++i)
            KORX_DLog(1, 2, static_cast<uint32_t>(i % 5), 0, 0, "number %d", i);
    }
};

std::string Cat(const std::string& options) {
    return Korx("log show -o cat " + options).out;
}

TEST_F(Show, SelectsOrdersAndFormsRecords) {
    write(0, 10);
    WriteSecurity(0, 1);
    write(10, 1);
    const std::string time = Korx("log show diag -n 1 --json").json().at(0)["time"];
    const std::string cases[][2] = {
        {"diag -o cat -n 2", "number 9\nnumber 10\n"},
        {"diag -o cat -n 2 -r", "number 10\nnumber 9\n"},
        {"security diag diag all -o cat -n 3", "number 9\nevent 0\nnumber 10\n"},
        {"security ../log/KORX_DIAG_LOG -o cat -r -n 2", "number 10\nevent 0\n"},
        {"diag -o cat -p error -g [34]$", "number 3\nnumber 4\n"},
        {"diag --json --output-fields message,kind -g 10",
         R"({"kind":"diag","message":"number 10"})"
         "\n"},
        {"diag -o cat -S " + time + " -U " + time, "number 10\n"}};
    for (const auto& [options, text] : cases)
        EXPECT_EQ(Korx("log show " + options).out, text) << options;
    const std::string named = Korx("log show diag security -n 2").out;
    EXPECT_EQ(named.substr(0, 13) + named.substr(named.find('\n') + 1, 13),
              "korx_safe.logKORX_DIAG_LOG");
    const int copy = open("../log/korx_safe.log", O_RDONLY);
    dup2(copy, STDIN_FILENO);
    close(copy);
    EXPECT_EQ(Cat("-"), "event 0\n");
    EXPECT_EQ(Korx("log show diag -g nothing --fail-empty").status, 1);
}

TEST_F(Show, RefusesWhatCannotBeMeantInOneSentence) {
    write(0, 1);
    const struct {
        Args args;
        const char* says;
    } cases[] = {{"diag --since 2024-02-30", "'2024-02-30' is no time"},
                 {{"diag", "--since", ""}, "--since must not be empty"},
                 {{"diag", "-p", ""}, "--level must not be empty"},
                 {{"diag", "-g", ""}, "--grep must not be empty"},
                 {"all --section FRAM", "none of FRAME, PATCH, CFL, DBG"},
                 {"../log/KORX_DIAG_LOG --section DBG", "only the start log"},
                 {"all --process zelkx", "none of QTMON, zelk_agent, ZELK_QR9T, zelk, DXN"},
                 {"diag --since 1h --until 2h", "later than --until"},
                 {"diag -n x", "'x' is no number"},
                 {"diag -n", "--lines needs N"},
                 {"diag -n 1 -n 2", "--lines is given more than once"},
                 {"diag -r -f", "--reverse"},
                 {"diag -i", "--ignore-case"},
                 {"diag -o loud", "none of short, cat, json"},
                 {"diag --json -o cat", "contradict"},
                 {"diag --output-fields time", "--output json"},
                 {"diag --json --output-fields tim", "'tim' is none of time, severity,"},
                 {"diag --after-cursor KORX_DIAG_LOG=00:00000000", "--show-cursor"},
                 {"diag --timeout 1", "--wait-for"},
                 {"diag --boot=x", "'x' is no boot"},
                 {"diag -b -1 -f", "only the newest boot"},
                 {"diag --list-boots -g x", "takes no filters"},
                 {"diag --wait-for x --timeout -1", "seconds"},
                 {"- -f", "cannot be followed"},
                 {"", "'korx log show' needs KIND|FILE"},
                 {"diag --bogus", "no option '--bogus'"}};
    for (const auto& row : cases) {
        Args args("log show");
        args.insert(args.end(), row.args.begin(), row.args.end());
        Expect(args, 2, row.says);
        const std::string told = ReadFile("cmd.err");
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
    }
    Expect("log shwo", 2, "'korx log' has list, show, ");
    Expect("log", 2, "needs a command: list, show, ");
}

TEST(When, TakesTheWidestRangeAndOnlyDaysThatThereAre) {
    constexpr auto kEarlier = tool::Twice::kEarlier, kLater = tool::Twice::kLater;
    const struct {
        const char* zone;
        const char* text;
        tool::Twice twice;
        int64_t seconds;
    } cases[] = {{"Europe/Berlin", "2024-10-27 02:30", kEarlier, 1729989000},
                 {"Europe/Berlin", "2024-10-27 02:30", kLater, 1729992600},
                 {"Europe/Berlin", "2024-10-27 03:00", kEarlier, 1729994400},
                 {"Europe/Berlin", "2024-03-31 02:30", kEarlier, 1711845000},
                 {"Europe/Berlin", "2024-03-31 02:30", kLater, 1711848600},
                 {"Europe/Moscow", "2014-10-26 01:30", kEarlier, 1414272600},
                 {"America/St_Johns", "2024-02-29 23:59:60", kLater, 1709263800},
                 {"UTC", "2024-03-05T10:37:09-03:30", kLater, 1709647629},
                 {"UTC", "2023-02-29", kLater, -1},
                 {"UTC", "1900-02-29", kLater, -1},
                 {"UTC", "2024-04-31", kLater, -1},
                 {"UTC", "2024-03-05T10:37:09+01:60", kLater, -1}};
    for (const auto& row : cases) {
        setenv("TZ", row.zone, 1);
        tzset();
        const auto time = tool::ParseWhen(row.text, 0, row.twice);
        EXPECT_EQ(time ? *time / 1000000 : -1, row.seconds) << row.zone << " " << row.text;
    }
}

TEST_F(Show, KnowsARecordAgainWhereverItIsRead) {
    write(0, 3);
    setenv("KORX_BOARD", "b \"1\"", 1);
    const auto ids = [](const std::string& options) {
        std::vector<std::string> found;
        for (const auto& record : Korx("log show --json " + options).json())
            found.push_back(record["id"]);
        return found;
    };
    const auto live = ids("diag");
    EXPECT_EQ(std::set(live.begin(), live.end()).size(), 3u);
    EXPECT_EQ(live[0].substr(0, 11), "b \"1\":diag:");
    setenv("TZ", "America/St_Johns", 1);
    const std::string time = Korx("log show diag --json -n 1").json().at(0)["time"];
    EXPECT_TRUE(time.ends_with("-03:30") || time.ends_with("-02:30")) << time;
    const std::string utc = Korx("log show diag --json -n 1 --utc").json().at(0)["time"];
    EXPECT_EQ(utc.substr(19), time.substr(19, 7) + "+00:00");
    WriteFile("copy", ReadFile(log("KORX_DIAG_LOG")));
    EXPECT_EQ(ids("./copy"), live);
    EXPECT_EQ(ids("diag --board x")[2], "x" + live[2].substr(5));
    std::vector<std::string> taken;
    for (const auto& record : Korx("log take diag --json").json())
        taken.push_back(record["id"]);
    EXPECT_EQ(taken, live);
    write(3, 3000);
    const auto before = ids("diag -n 1");
    write(3003, 400);
    EXPECT_EQ(ids("diag -g r.3002$"), before);
    EXPECT_EQ(Cat("diag -g r.0$"), "");  // a lap has passed
}

TEST_F(Show, GoesOnAtACursor) {
    write(0, 3);
    const std::string cursor =
        Korx("log show diag security --json -n 0 --show-cursor").json().at(0)["cursor"];
    EXPECT_EQ(Cat("diag security --after-cursor " + cursor), "");
    write(3, 2);
    WriteSecurity(0, 1);
    EXPECT_EQ(Cat("diag security --after-cursor " + cursor), "number 3\nnumber 4\nevent 0\n");
    EXPECT_EQ(Cat("diag --after-cursor " + cursor + " -n 1"), "number 4\n");
    EXPECT_EQ(Cat("diag -n 0 --show-cursor").substr(0, 11), "-- cursor: ");
    unlink(log("KORX_DIAG_LOG").c_str());
    write(5, 1);
    EXPECT_EQ(Cat("diag --after-cursor " + cursor), "number 5\n");
    EXPECT_TRUE(Has(ReadFile("cmd.err"), "is gone"));
}

TEST_F(Show, TellsTheBootsOfABoardWithoutAClockApart) {
    write(0, 9);
    for (int i = 0; i < 9; ++i)
        KORX_STLog(i < 3 ? 0 : 1, 1, 0, "start %d", i);
    // Three boots of three records each, 20 s apart, that all begin at the same moment.
    for (const char* const name : {"KORX_DIAG_LOG", "KORX_START_LOG"}) {
        std::string bytes = ReadFile(log(name));
        size_t at = 0;
        for (int i = 0; (at = bytes.find("[20", at)) != std::string::npos; ++i)
            bytes.replace(at++, 27, "[2020-01-01 00:00:" + std::to_string(i % 3 + 1) + "0.000000");
        WriteFile(log(name), bytes);
    }
    const char* const cases[][2] = {{"diag -b", "number 6\nnumber 7\nnumber 8\n"},
                                    {"diag -b -1", "number 3\nnumber 4\nnumber 5\n"},
                                    {"diag --boot=-2 -r -n 1", "number 2\n"},
                                    {"diag -b 1 -n 2 -g [01]", "number 0\nnumber 1\n"},
                                    {"diag -b 2 --show-cursor -g 4", "number 4\n"},
                                    {"-b diag -n 1", "number 8\n"},
                                    {"diag -b -3", ""},
                                    {"start -b -1", "start 3\nstart 4\nstart 5\n"}};
    for (const auto& [options, text] : cases)
        EXPECT_EQ(Cat(options).substr(0, strlen(text) + (text[0] == '\0')), text) << options;
    Expect("log show diag -b 4", 1);
    const auto boots = Korx("log show diag start --list-boots --utc --json").json();
    ASSERT_EQ(boots.size(), 6u);
    EXPECT_EQ(boots[1]["boot"], -1);
    EXPECT_EQ(boots[1]["first"], "2020-01-01T00:00:10.000000+00:00");
    EXPECT_EQ(boots[1]["last"], "2020-01-01T00:00:30.000000+00:00");
    EXPECT_EQ(boots[5]["section"], "PATCH");
    Follow follow("log show diag --json -f -b 0 -n 4");
    for (int i = 6; i < 10; ++i) {
        if (i == 9)
            write(9, 1);
        EXPECT_EQ(follow.next(), "number " + std::to_string(i));
    }
}

TEST_F(Show, WaitsForARecord) {
    write(0, 3);
    EXPECT_EQ(Korx("log show diag --wait-for 2$ --timeout 0.05").status, 6);
    EXPECT_EQ(Korx("log show diag --since 1h --wait-for 2$ --timeout 60").status, 0);
    Follow follow("log show diag --json --wait-for BER.4 -i --timeout 60 -n 1");
    EXPECT_EQ(follow.next(), "number 2");
    write(3, 1);
    EXPECT_EQ(follow.next(), "number 3");
    write(4, 1);
    EXPECT_EQ(follow.next(), "number 4");
    EXPECT_EQ(follow.wait(), 0);
    Follow stopped("log show diag --json --wait-for never -n 1");
    EXPECT_EQ(stopped.next(), "number 4");
    EXPECT_EQ(stopped.stop(SIGTERM), 6);
}

TEST_F(Show, FollowsTheLogThatHasTheNameNow) {
    write(0, 1);
    Follow follow("log show diag --json -f");
    EXPECT_EQ(follow.next(), "number 0");
    const std::string file = log("KORX_DIAG_LOG"), old = log("old");
    ASSERT_EQ(rename(file.c_str(), old.c_str()), 0);
    write(1, 1);
    EXPECT_EQ(follow.next(), "number 1");
    WriteFile(log("new"), ReadFile(file));
    ASSERT_EQ(rename(log("new").c_str(), file.c_str()), 0);
    write(2, 1);
    EXPECT_EQ(follow.next(), "number 2");
    usleep(300000);
    const std::string before = follow.switches();
    WriteFile(old, "");
    usleep(200000);
    EXPECT_EQ(follow.switches(), before);
}

// What the command prints on a terminal of 60 columns.
std::string OnTerminal(const std::string& line, int status) {
    int master = -1, slave = -1;
    winsize size = {24, 60, 0, 0};
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    EXPECT_EQ(Korx(line, slave).status, status) << line;
    close(slave);
    std::string text(1 << 16, '\0');
    const ssize_t count = read(master, text.data(), text.size());
    close(master);
    text.resize(count < 0 ? 0 : static_cast<size_t>(count));
    std::erase(text, '\r');
    return text;
}

TEST_F(Show, PagesAndFitsATerminal) {
    write(0, 2);
    setenv("KORX_PAGER", "sed s/^/paged:/ >paged", 1);
    setenv("PAGER", "false", 1);
    EXPECT_EQ(OnTerminal("log show diag -o cat", 0), "");
    EXPECT_EQ(ReadFile("paged"), "paged:number 0\npaged:number 1\n");
    EXPECT_EQ(OnTerminal("log show diag -o cat --no-pager", 0), "number 0\nnumber 1\n");
    EXPECT_EQ(OnTerminal("log show diag -g none --fail-empty", 1), "");
    EXPECT_EQ(Cat("diag -n 1"), "number 1\n");
    std::istringstream help(OnTerminal("log show --help", 0) + OnTerminal("ini set --help", 0));
    for (std::string line; std::getline(help, line);)
        EXPECT_TRUE(line.size() <= 60 || line.starts_with("  korx ")) << line;
    EXPECT_TRUE(Has(Korx("space --help").out, "      --no-record           Only show it\n"));
    const std::string path = log("KORX_DIAG_LOG");
    std::istringstream lines(
        OnTerminal("log list", 0) + OnTerminal("log show diag --list-boots --no-pager", 0) +
        OnTerminal("log verify " + path + " none", 2) + OnTerminal("space --no-record", 0) +
        OnTerminal("doctor --dir " + tree.root(), 0));
    bool has_path = false;
    for (std::string line; std::getline(lines, line);) {
        has_path |= Has(line, path);
        EXPECT_TRUE(line.size() <= 60 || !Has(line.substr(line.find_first_not_of(' ')), " "))
            << line;
    }
    EXPECT_TRUE(has_path);
}

}  // namespace
}  // namespace korx::test
