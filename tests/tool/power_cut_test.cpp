// What is left when the power goes, before a call has returned and after.
#include <unistd.h>

#include <filesystem>

#include "base/directory.h"
#include "ini.h"
#include "log_commands.h"
#include "logs.h"
#include "reader/log_reader.h"
#include "support/journal.h"

namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

struct PowerCut : BoardTest {
    // Looks at what each cut may leave, laid out in a directory of its own.
    void for_each(const std::set<Disk>& disks, const std::function<void(const Disk&)>& check) {
        EXPECT_GT(disks.size(), 0u);
        for (const Disk& disk : disks) {
            stdfs::remove_all(after);
            for (const auto& [name, content] : disk) {
                MakeDirs(after + std::string(DirectoryOf(name)));
                WriteFile(after + name, content);
            }
            check(disk);
            if (HasFailure())
                break;
        }
        stdfs::remove_all(after);
    }
    const std::string after = tree.root() + "-after/";
};

std::string At(const Disk& disk, const std::string& name) {
    const auto found = disk.find(name);
    return found == disk.end() ? "" : found->second;
}

TEST_F(PowerCut, LeavesAProfileOldOrNewAndAfterItsChangeNew) {
    const tool::Globals globals;
    tool::IniOptions options;
    options.file = "p.ini";
    options.section = "A";
    options.key = "k1";
    options.value = "new";
    const struct {
        const char* name;
        std::function<uint32_t()> change;
    } kChanges[] = {
        {"set or add", [] { return KORX_IniSetOrAddValue("./p.ini", "[A]", "new", "1"); }},
        {"set", [] { return KORX_IniSetValue("./p.ini", "[A]", "k3", "new"); }},
        {"ini set", [&] { return uint32_t(tool::RunIniSet(globals, options)); }},
        {"ini unset", [&] { return uint32_t(tool::RunIniUnset(globals, options)); }},
        {"ini revert", [&] {
             WriteFile("p.ini-", "[A]\n" + std::string(2000, '#') + "\nk=1\n");
             return uint32_t(tool::RunIniRevert(globals, options));
         }}};
    std::string old = "[A]\n";
    for (int i = 0; i < 100; ++i)
        old += "k" + std::to_string(i) + "=a value of which the profile has many\n";
    for (const auto& row : kChanges) {
        SCOPED_TRACE(row.name);
        WriteFile("p.ini", old);
        const Cuts cuts = CutsOf(tree.path("run"), [&] { EXPECT_EQ(row.change(), 0u); });
        const std::string changed = ReadFile("p.ini");
        EXPECT_NE(changed, old);
        for (const auto& disk : cuts.after)
            ASSERT_EQ(At(disk, "p.ini"), changed) << "it has returned";
        for (const auto& disk : cuts.ever)
            ASSERT_TRUE(At(disk, "p.ini") == old || At(disk, "p.ini") == changed)
                << At(disk, "p.ini");
    }
}

struct LogCut : PowerCut, testing::WithParamInterface<const char*> {
    static constexpr int kRecords = 30;

    LogCut() {
        globals.json = true;
        options.what = tree.path(name());
        options.output = "taken";
    }
    bool is_ring() const { return GetParam() == std::string("security"); }
    korx_log_kind kind() const { return is_ring() ? KORX_LOG_SECURITY : KORX_LOG_TEXT; }
    std::string name() const { return is_ring() ? "log/korx_safe.log" : "log/orx_app.log"; }
    void write(int first) const {
        if (is_ring())
            return WriteSecurity(first, kRecords);
        SetUpText(tree.path("log"));
        for (int i = first; i < first + kRecords; ++i)
            ORX_Log2File(2, "event %d", i);
    }
    // Each record is unread, or in what was taken, whole.
    void expect_nothing_lost(bool all_taken) const {
        LogReader log(after + name(), kind());
        std::multiset<std::string> found;
        while (log.next_unread() == 1)
            found.emplace(log.record.message, log.record.message_length);
        EXPECT_TRUE(!all_taken || found.empty());
        std::istringstream lines(ReadFile(after + "run/taken"));
        for (std::string line; std::getline(lines, line);)
            if (const auto json = nlohmann::json::parse(line, nullptr, false); json.is_object())
                found.insert(json.value("message", ""));
        for (const std::string& event : Events(0, kRecords))
            EXPECT_TRUE(found.contains(event)) << event << " is lost";
    }
    tool::Globals globals;
    tool::TakeOptions options;
};

// Where a head moves, the cursor is there before it; and neither is ever what nobody has written.
TEST_P(LogCut, LeavesAnAcknowledgementMadeOrNot) {
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        write(again ? kRecords : 0);
        const korx_reader_info before = LogReader(tree.path(name()), kind()).info;
        const Cuts cuts = CutsOf(tree.root(), [&] {
            LogReader log(tree.path(name()), kind());
            while (log.next_unread() == 1)
                continue;
            EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
        });
        for_each(cuts.ever, [&](const Disk&) {
            const LogReader left(after + name(), kind());
            EXPECT_EQ(left.info.damage, 0u);
            const bool taken = left.info.unread_records == 0;
            EXPECT_TRUE(taken || left.info.unread_records == before.unread_records);
            EXPECT_TRUE(!is_ring() || taken == (left.info.dump_len != before.dump_len));
            EXPECT_TRUE(left.info.has_cursor != 0 || !(taken || again));
        });
        for_each(cuts.after, [&](const Disk&) {
            EXPECT_EQ(LogReader(after + name(), kind()).info.unread_records, 0u);
        });
    }
}

TEST_P(LogCut, LeavesEveryRecordInTheLogOrInWhatWasTaken) {
    write(0);
    const Cuts cuts =
        CutsOf(tree.root(), [&] { EXPECT_EQ(tool::RunLogTake(globals, options), tool::kWell); });
    for_each(cuts.ever, [&](const Disk&) { expect_nothing_lost(false); });
    for_each(cuts.after, [&](const Disk&) { expect_nothing_lost(true); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, LogCut, testing::Values("security", "text"));

struct RingCut : LogCut {};
INSTANTIATE_TEST_SUITE_P(Kinds, RingCut, testing::Values("security"));

TEST_P(RingCut, LeavesADamagedRingOrItsCopyAndItsRecords) {
    write(0);
    const std::string damaged = ReadFile(tree.path(name())).replace(3, 1, "\x7f");
    WriteFile(tree.path(name()), damaged);
    const Cuts cuts =
        CutsOf(tree.root(), [&] { EXPECT_EQ(tool::RunLogRepair(globals, options), tool::kWell); });
    for_each(cuts.ever, [&](const Disk& disk) {
        if (At(disk, name()) == damaged)
            return;
        EXPECT_EQ(At(disk, name() + ".damaged.1"), damaged);
        WriteFile(after + name(), std::string(12, '\0'));
        expect_nothing_lost(true);
    });
    for (const auto& disk : cuts.after)
        ASSERT_EQ(At(disk, name()), std::string(12, '\0'));
}

// The logs whose records are on disk when the call has returned.
TEST_F(PowerCut, LeavesWhatWasWrittenThrough) {
    const struct {
        std::string name;
        std::function<uint32_t()> write;
    } kLogs[] = {
        {"orx_app.log",
         [&] { return ORX_WriteLogfile(log("orx_app.log").c_str(), 0x80000, "a line\n"); }},
        {"KORX_DIAG_LOG", [] { return KORX_DLog(1, 2, 1, 0, 0, "line") | KORX_DLogFsync(); }}};
    for (const auto& row : kLogs) {
        ASSERT_EQ(row.write(), 0u);
        const Cuts cuts = CutsOf(tree.path("log"), [&] { EXPECT_EQ(row.write(), 0u); });
        for (const auto& disk : cuts.after)
            ASSERT_EQ(At(disk, row.name), ReadFile(log(row.name)));
    }
}

}  // namespace
}  // namespace korx::test
