// Each command while its calls fail, one after the other, or the process ends before them.
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <set>

#include "logs.h"
#include "tapped.h"

#ifdef KORX_TAPPED
namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

// What a command that fails may have printed.
enum class Output {
    kBeginning,  // of its usual output
    kOther,      // something else: what it looks at is what fails
};

struct Row {
    const char* name;
    const char* command;
    std::set<int> failures;
    Output output = Output::kBeginning;
    std::set<std::string> leftovers = {};  // files of which it promises nothing

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

const std::set<std::string> kCursor = {"log/korx_safe.log.cursor", "log/korx_safe.log.cursor.new"};
const std::set<std::string> kBackup = {"run/p.ini-", "run/p.ini+"};

const Row kRows[] = {
    {"List", "log list", {3, 4}, Output::kOther},
    {"Show", "log show security --json", {3, 4}},
    {"ShowAll", "log show all", {3, 4}, Output::kOther},
    {"Verify", "log verify", {3, 4}, Output::kOther},
    {"Take", "log take security --json", {1, 3, 4, 5}, Output::kBeginning, kCursor},
    {"TakeToFile",
     "log take security --json --output taken",
     {1, 3, 4, 5},
     Output::kBeginning,
     kCursor},
    {"Repair",
     "log repair life --json",
     {1, 3, 4, 5},
     Output::kBeginning,
     {"log/korx_life.log.damaged.1"}},
    {"Doctor", "doctor", {1, 3, 4}, Output::kOther},
    {"Space", "space", {1, 3, 4}, Output::kOther, {"log/orx_spacefull.log"}},
    {"IniGet", "ini get p.ini A x", {3, 4}},
    {"IniSet", "ini set p.ini A x 2 --keep-comments", {3, 5}, Output::kBeginning, kBackup},
    {"IniSetPlain", "ini set p.ini A x 2", {3, 5}, Output::kBeginning, kBackup},
    {"IniUnset", "ini unset p.ini A x", {3, 5}, Output::kBeginning, kBackup},
    {"IniRevert", "ini revert p.ini", {3, 5}},
};

enum class How { kFails, kFailsOnwards, kKilled };

const struct Way {
    How how;
    const char* fault;   // behind the number of the call
    bool is_short_form;  // or only a part of the whole table
} kWays[] = {{How::kFails, "5", true},
             {How::kKilled, "0", true},
             {How::kFails, "28", false},
             {How::kFailsOnwards, "5 +", false}};

using Files = std::map<std::string, std::string>;

struct TorturedCommand : BoardTest, testing::WithParamInterface<Row> {
    TorturedCommand() {
        WriteSecurity(0, 3);
        WriteText(tree.path("log"), 0, 3);
        EXPECT_EQ(KORX_LifeCycleLog(1, 2, 1, 0, 0, "life"), 0u);
        WriteFile(log("korx_life.log"), ReadFile(log("korx_life.log")).replace(3, 1, "\x7f"));
        WriteFile("p.ini", "; why\n[A]\nx=1\n");
        WriteFile("p.ini-", "[A]\nx=0\n");
        WriteFile("taken", "");
        before = files();
    }

    // A file without bytes is an empty ring, and so is a head of zeros whatever follows it.
    Files files() const {
        static const std::set<std::string> kOwn = {"run/cmd.out", "run/cmd.err", "run/calls"};
        const std::string empty(12, '\0');
        Files files;
        for (const auto& entry : stdfs::recursive_directory_iterator(tree.root())) {
            const std::string name = entry.path().string().substr(tree.root().size() + 1);
            if (!entry.is_regular_file() || kOwn.contains(name) || name.ends_with(".lock"))
                continue;
            const std::string content = ReadFile(entry.path());
            const bool is_empty = content.empty() && name.starts_with("log/");
            files[name] = is_empty || content.starts_with(empty) ? empty : content;
        }
        return files;
    }
    void lay_out() const {
        for (const auto& [name, content] : files())
            stdfs::remove(tree.path(name));  // some may be one file
        for (const auto& [name, content] : before)
            WriteFile(tree.path(name), content);
    }
    Result run(const std::string& fault) const {
        const Tapped tapped(fault);
        return Korx(GetParam().command);
    }

    void judge(const Way& way, const Result& result) const {
        const auto at = [](const Files& files, const std::string& name) {
            const auto found = files.find(name);
            return found == files.end() ? "(none)" : found->second;
        };
        const Row& row = GetParam();
        const bool is_usual = result.status == usual.status;
        const bool is_killed = way.how == How::kKilled;
        EXPECT_TRUE(is_usual ||
                    (is_killed ? result.status == 99 : row.failures.contains(result.status)))
            << result.status;
        EXPECT_TRUE(is_usual || way.how != How::kFails || row.output == Output::kOther ||
                    !result.err.empty())
            << "it says nothing";
        const Files now = files();
        std::set<std::string> names = {};
        for (const Files* const some : {&before, &after, &now})
            for (const auto& [name, content] : *some)
                names.insert(name);
        bool is_done = is_usual;
        for (const std::string& name : names) {
            const std::string content = at(now, name), old = at(before, name);
            if (row.leftovers.contains(name))
                continue;
            EXPECT_TRUE((content == old && !is_usual) || content == at(after, name))
                << name << ": " << content;
            // Where no more call works nothing can be put back.
            EXPECT_TRUE(content == old || is_usual || way.how != How::kFails || result.status == 1)
                << name;
            is_done |= content != old;
        }
        // What is acknowledged, or no longer in a log, has been printed whole.
        if (row.output == Output::kBeginning) {
            EXPECT_TRUE(is_done ? result.out == usual.out : usual.out.starts_with(result.out))
                << result.out;
        }
    }

    Files before, after;
    Result usual;
};

TEST_P(TorturedCommand, EndsAsDocumentedAndLeavesWholeFiles) {
    (void) alarm(600);  // instead of a hang
    const char* const size = getenv("KORX_TORTURE");
    const bool is_whole = size != nullptr && strcmp(size, "whole") == 0;
    usual = run("");
    after = files();
    const size_t calls = Args(ReadFile("calls")).size();
    EXPECT_GT(calls, 10u);
    for (const Way& way : kWays) {
        const bool is_worth_it = way.is_short_form && (way.how != How::kKilled || before != after);
        for (size_t nth = 1; nth <= calls && (is_whole || is_worth_it) && !HasFailure(); ++nth) {
            lay_out();
            const std::string fault = "* " + std::to_string(nth) + " " + way.fault;
            const Result result = run(fault);
            SCOPED_TRACE(fault + ": " + result.err);
            judge(way, result);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, TorturedCommand, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace korx::test
#endif
