// korx paths, space and doctor; times on the command line.
#include <sys/stat.h>

#include <filesystem>

#include "logs.h"
#include "run.h"
#include "support/processes.h"
#include "when.h"

namespace korx::test {
namespace {

struct Paths : RoomTest {};
struct Doctor : BoardTest {};
struct Space : BoardTest {};

TEST_F(Paths, AreThoseOfTheLibraryAndNothingIsRepaired) {
    for (const char* configuration :
         {"[PATH]\nLOG_PATH=/var/log\nDATA_PATH = \"/data//x/../y\" \n",
          "[PATH]\nLOG_PATH=relative\nDATA_PATH=\n", "[PATH]\nLOG_PATH=\" /trimmed \"\n",
          "[PATH]\nLOG_PATH=\"/open\n", "[OTHER]\nLOG_PATH=/var/log\n", "LOG_PATH=/var/log\n", "",
          "none"}) {
        WriteFile("/etc/base.d/base.conf", configuration);
        if (configuration == std::string("none"))
            unlink("/etc/base.d/base.conf");
        const auto rows = Korx("paths --json").json();
        const auto is_same = [&] {
            char log[256], data[256];
            KORX_GetLogPath(log, sizeof log);
            KORX_GetDataPath(data, sizeof data);
            return rows[1]["path"] == log && rows[2]["path"] == data ? 0 : 1;
        };
        EXPECT_EQ(RunChild(is_same), 0) << configuration;
    }
    MakeDirs("/opt/veltra/quarn/common");
    ASSERT_EQ(symlink("/elsewhere", "/opt/veltra/quarn/common/log"), 0);
    Expect("paths", 0, "/elsewhere, dangling");
    Expect("doctor", 1);
    EXPECT_EQ(std::filesystem::read_symlink("/opt/veltra/quarn/common/log"), "/elsewhere");
}

TEST_F(Doctor, SaysWhetherTheBoardIsWell) {
    KORX_SecurityEventLog(1, 2, 1, 3, 4, "event");
    Expect("doctor", 0);
    // Each trouble alone, and away again.
    const auto unwell = [](const std::string& subject, const char* verdict) {
        bool found = false;
        for (const auto& line : Korx("doctor --json").json())
            found |= line["subject"] == subject && line["verdict"] == verdict;
        EXPECT_TRUE(found) << subject;
        Expect("doctor", 1, subject);
    };
    const auto spoiled = [&](const std::string& file, const std::string& bad, const char* subject,
                             const char* verdict) {
        const std::string good = ReadFile(file);
        WriteFile(file, bad);
        unwell(subject, verdict);
        WriteFile(file, good);
    };
    spoiled(log("korx_safe.log"), ReadFile(log("korx_safe.log")).substr(0, 8), "korx_safe.log",
            "fault");
    spoiled("/etc/base.d/base.conf", ReadFile("/etc/base.d/base.conf") + "LOG_PATH=/again\n",
            "configuration", "warning");
    chmod(tree.path("log").c_str(), 0777);
    unwell("log directory", "warning");
    chmod(tree.path("log").c_str(), 0755);
    rename(tree.path("data").c_str(), tree.path("gone").c_str());
    unwell("data directory", "fault");
    rename(tree.path("gone").c_str(), tree.path("data").c_str());
    while (KORX_SecurityEventLog(1, 2, 1, 3, 4, "nobody takes this event, so the log fills") == 0)
        continue;
    unwell("korx_safe.log", "warning");
    Expect("log take security", 0);
    WriteText(tree.path("log"), 0, 20);  // and now its lap ends
    const std::string text = ReadFile(log("orx_app.log"));
    WriteFile(log("orx_app.log"), std::string(4, '\0') + text.substr(4, text.size() - 9));
    Expect("log verify text", 1, "cut");
    Expect("doctor", 0, "cut off");

    std::string ring = ReadFile(log("korx_safe.log"));
    const auto taken = static_cast<uint32_t>(ring.find('\n', 12) + 1 - 12);  // by somebody else
    WriteFile(log("korx_safe.log"), ring.replace(4, 4, reinterpret_cast<const char*>(&taken), 4));
    Expect("doctor", 1, "the cursor");
}

TEST_F(Space, RecordsAndShowsTheSame) {
    const auto shown = Korx("space --json").json();
    const auto recorded = Korx("log show space --json").json();
    if (shown.empty() && getenv("KORX_SANDBOX") == std::string("in-place"))
        GTEST_SKIP() << "no file system with blocks is mounted in this root";
    ASSERT_FALSE(shown.empty());
    ASSERT_EQ(recorded.size(), shown.size());
    for (size_t i = 0; i < shown.size(); ++i) {
        EXPECT_EQ(recorded[i]["mount"], shown[i]["mount"]);
        EXPECT_NEAR(recorded[i]["value"].get<int>(), shown[i]["percent"].get<int>(), 1);
    }
    Expect("space --no-record", 0);
    EXPECT_EQ(Korx("log show space --json").json().size(), recorded.size());
}

TEST(When, UnderstandsTimesAsPeopleWriteThem) {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    constexpr int64_t kNow = 1709647629 * int64_t{1000000};  // 2024-03-05 15:07:09 +01:00
    const struct {
        const char* text;
        double age;  // in seconds before now
    } kTimes[] = {{"now", 0},
                  {"2024-03-05 15:07:09", 0},
                  {"2024-03-05T14:07:09Z", 0},
                  {"2024-03-05T19:37:09.5+05:30", -0.5},
                  {"2024-03-05 15:07", 9},
                  {"2024-03-05", 54429},
                  {"today", 54429},
                  {"yesterday", 140829},
                  {"14:07", 3609},
                  {"14:07:09.25", 3599.75},
                  {"-90m", 5400},
                  {"1d12h", 129600},
                  {"@1709647629", 0}};
    for (const auto& row : kTimes)
        EXPECT_EQ(tool::ParseWhen(row.text, kNow), kNow - static_cast<int64_t>(row.age * 1e6))
            << row.text;
    for (const char* text :
         {"", "soon", "24:00", "2024-13-01", "2024-03-05 15:07 x", "5", "5y", "@"})
        EXPECT_EQ(tool::ParseWhen(text, kNow), std::nullopt) << text;
}

}  // namespace
}  // namespace korx::test
