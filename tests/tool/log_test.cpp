// korx log, on logs that the library has written.
#include <stdlib.h>
#include <sys/stat.h>

#include <random>
#include <set>

#include "logs.h"

namespace korx::test {
namespace {

struct LogShow : BoardTest {};
struct LogVerify : BoardTest {};

// One record of every kind that has fields of its own.
void WriteOneOfEach(const std::string& directory) {
    KORX_DLog(11, 0x1234, 3, 5, 6,
              "a \"quoted\"\tword \\ \033[2J\r \x9b \xc2\x9b and \xe2\x82\xac");
    KORX_LifeCycleLog(11, 12, 9, 5, 6, "two\nlines");
    KORX_STLog(2, 0, 6, "starting");
    KORX_PLogInit(0, "zelk", 0);
    KORX_PLog(2, 5, 6, "process line");
    ORX_SpaceFull("/var", 87);
    SetUpText(directory);
}

TEST_F(LogShow, PrintsTheFieldsOfEveryKindAsJson) {
    setenv("TZ", "Asia/Kolkata", 1);
    WriteOneOfEach(tree.path("log"));
    const char* const kFields[] = {
        R"({"message": "a \"quoted\"\tword \\ \u001b[2J\r \ufffd \u009b and \u20ac",
            "severity": "error", "kind": "diag", "index": 4660, "app_cid": 11, "location": 7,
            "m": 5, "value": 6})",
        R"({"message": "two\nlines", "severity": "fatal"})",
        R"({"section": "CFL", "index": null})",
        R"({"process": "zelk"})",
        R"({"mount": "/var", "value": 87})",
        R"({"module": 80101})",
    };
    auto all = Korx("log show all --json").json();
    ASSERT_EQ(all.size(), std::size(kFields));
    for (size_t i = 0; i < all.size(); ++i) {
        const auto fields = nlohmann::json::parse(kFields[i]);
        for (const auto& [name, value] : fields.items())
            EXPECT_EQ(all[i][name], value) << name;
    }
    EXPECT_EQ(all[5]["pid"], getpid());
    const time_t now = ::time(nullptr);
    char today[32];
    strftime(today, sizeof today, "%Y-%m-%dT%H:", localtime(&now));
    const std::string time = all[0]["time"];
    EXPECT_EQ(time.substr(0, 14) + time.substr(26), today + std::string("+05:30"));
    // As text, no line drives the terminal.
    EXPECT_TRUE(
        Has(Korx("log show diag").out, "\\x1b[2J\\x0d \\x9b \\xc2\\x9b and \xe2\x82\xac\n"));
}

TEST_F(LogShow, ChoosesRecords) {
    for (int i = 0; i < 10; ++i)
        KORX_DLog(1, 2, static_cast<uint32_t>(i % 5), 0, 0, "number %d", i);
    KORX_STLog(0, 1, 0, "frame");
    KORX_STLog(3, 1, 0, "debug");
    KORX_PLogInit(0, "zelk", 0);
    KORX_PLog(1, 0, 0, "of zelk");
    KORX_PLogByProcName(1, "zelk", 0, 0, "%s", "by name");
    const char* const kCases[][2] = {{"diag -n 2", "number 8,number 9,"},
                                     {"diag -n 0", ""},
                                     {"diag --level error", "number 3,number 4,number 8,number 9,"},
                                     {"diag --level FATAL -n 1", "number 9,"},
                                     {"diag --grep [13]$", "number 1,number 3,"},
                                     {"diag --grep BER.7 -i", "number 7,"},
                                     {"diag --since 1h --until now -n 1", "number 9,"},
                                     {"diag --until 1h", ""},
                                     {"diag --since 2030-01-01", ""},
                                     {"start --section dbg", "debug,"},
                                     {"process --process zelk -n 1", "by name,"},
                                     {"../log/KORX_DIAG_LOG -n 1", "number 9,"}};
    for (const auto& [options, messages] : kCases) {
        std::string shown;
        for (const std::string& message : Messages(Korx("log show --json " + std::string(options))))
            shown += message + ",";
        EXPECT_EQ(shown, messages) << options;
    }
}

TEST_F(LogShow, RefusesWhatItDoesNotUnderstandAndNamesWhatItCannotRead) {
    KORX_DLog(1, 2, 1, 0, 0, "x");
    WriteFile("foreign", "no log at all\n");
    MakeDirs("directory");
    Expect("log show", 2, "KIND|FILE");
    Expect("log show nonsense", 2, "'nonsense'");
    Expect("log show diag --since 25:99", 2, "25:99");
    Expect("log show diag --level loud", 2, "loud");
    Expect("log show diag --grep (", 2, "(");
    Expect("log show diag -n -1", 2, "-1");
    Expect("log show diag --section DBG", 2, "section");
    Expect("log show process --process none", 2, "none");
    Expect("log show ./missing", 3, "./missing");
    Expect("log show foreign", 3, "foreign");
    Expect("log show directory", 3, "directory");
    Expect("log verify /dev/zero", 3, "/dev/zero");
    Expect("log list --dir /nowhere", 3, "/nowhere");
}

TEST_F(LogShow, ShowsOthersLogsToAUserWhoMayOnlyRead) {
    WriteSecurity(0, 3);
    chmod(tree.root().c_str(), 0755);
    chmod(log("korx_safe.log").c_str(), 0644);
    constexpr uid_t kNobody = 65534;
    const Result shown = Korx("log show security --json", -1, kNobody);
    if (shown.status == 126 || shown.status == 127)
        GTEST_SKIP() << "there is no other user here, or none who gets at the command";
    EXPECT_EQ(Messages(shown), Events(0, 3));
    Expect(Korx("log take security", -1, kNobody), 5, log("korx_safe.log"));
    EXPECT_EQ(Unread("security"), 3u);
    chmod(log("korx_safe.log").c_str(), 0600);
    Expect(Korx("log show security", -1, kNobody), 3, log("korx_safe.log"));
}

TEST_F(LogShow, FollowsAcrossLapsAndEndsQuietly) {
    for (int i = 0; i < 20; ++i)
        KORX_DLog(1, 2, 1, 0, 0, "old %d", i);
    Follow follow("log show diag -f --json");
    for (int i = 10; i < 20; ++i)
        EXPECT_EQ(follow.next(), "old " + std::to_string(i));
    for (int i = 0; i < 4000; ++i) {  // more than a lap
        KORX_DLog(1, 2, 1, 0, 0, "%d and a tail that makes the ring wrap soon enough", i);
        if (i % 100 != 99)
            continue;
        for (int j = i - 99; j <= i; ++j)
            ASSERT_EQ(atoi(follow.next().c_str()), j);
    }
    EXPECT_EQ(follow.stop(SIGINT), 0);
    // A reader that has seen enough is no failure.
    const Result result = KorxUnheard("log show diag");
    EXPECT_EQ(std::to_string(result.status) + result.err, "0");
}

TEST_F(LogVerify, NamesEachDamageAndItsOffset) {
    WriteSecurity(0, 20);
    KORX_STLog(0, 1, 0, "start");
    Expect("log verify", 0);
    const std::string file = log("korx_safe.log");
    const std::string good = ReadFile(file);
    const size_t last = good.rfind("\n[") + 1;  // where the newest record begins
    WriteFile(file, std::string(good).replace(last, 1, "x"));
    Expect("log verify", 1, file + ": offset " + std::to_string(last));
    const auto damage = Korx("log verify security --json").json().at(0);
    EXPECT_EQ(damage["rule"], "stamp");
    EXPECT_EQ(damage["file"], file);
    EXPECT_EQ(damage["offset"], last);
}

// The reader's own tests know what it makes of any bytes; here they are printed.
TEST_F(LogVerify, PrintsAnyBytesAsJsonAndText) {
    WriteSecurity(0, 5);
    const std::string file = log("korx_safe.log"), good = ReadFile(file);
    std::mt19937 random(7);
    for (int i = 0; i < 100; ++i) {
        std::string bad = good;
        for (unsigned n = random() % 20; n > 0; --n)
            bad[random() % bad.size()] = static_cast<char>(random());
        WriteFile(file, bad);
        for (const char* command : {"log verify security", "log show security -n 3"})
            ASSERT_TRUE(std::set({0, 1}).contains(Korx(command).status)) << i;
        ASSERT_NO_THROW(Korx("log show security --json").json()) << i;
    }
}

}  // namespace
}  // namespace korx::test
