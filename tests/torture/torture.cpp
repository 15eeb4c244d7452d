#include "torture/torture.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "base/unique.h"
#include "korx/reader.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/guard.h"
#include "support/processes.h"

namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

enum class Way { kFail, kFailOnwards, kKill, kShorten, kSwap };

struct Blow {
    const char* name;
    Way way;
    const char* call;
    int error;
    bool is_short_form;  // or only a part of the whole table
};

constexpr Blow kBlows[] = {
    {"fails", Way::kFail, "*", EIO, true},
    {"killed", Way::kKill, "*", 0, true},
    {"no memory", Way::kFail, "malloc", ENOMEM, true},
    {"no more memory", Way::kFail, "realloc", ENOMEM, true},
    {"swapped", Way::kSwap, "*", 0, true},
    {"fails from then on", Way::kFailOnwards, "*", EIO, false},
    {"disk full", Way::kFail, "*", ENOSPC, false},
    {"forbidden from then on", Way::kFailOnwards, "*", EPERM, false},
    {"no memory from then on", Way::kFailOnwards, "malloc", ENOMEM, false},
    {"short read", Way::kShorten, "read", 0, false},
    {"short pread", Way::kShorten, "pread", 0, false},
    {"short write", Way::kShorten, "write", 0, false},
    {"short sendfile", Way::kShorten, "sendfile", 0, false},
    {"interrupted read", Way::kFail, "read", EINTR, false},
    {"interrupted write", Way::kFail, "write", EINTR, false},
    {"interrupted open", Way::kFail, "open", EINTR, false},
    {"interrupted lock", Way::kFail, "fcntl", EINTR, false},
    {"interrupted flock", Way::kFail, "flock", EINTR, false},
    {"interrupted wait", Way::kFail, "wait4", EINTR, false},
};

constexpr char kRoot[] = "/dev/shm/korx";  // where a sync costs nothing
constexpr char kOutside[] = "outside";
constexpr char kSecret[] = "secret";                                 // is there and nowhere else
constexpr char kCall[] = "the call", kNextCall[] = "the next call";  // what the system log hears
constexpr ptrdiff_t kMostLines = 4;  // of a failure and its consequences
constexpr char kOwn[] = "384 ";      // the rights of a file that only its owner may use

// The name leads outside from now on, to a directory or a file as it did before.
void Exchange(const std::string& name) {
    const stdfs::path outside = stdfs::current_path().parent_path() / kOutside;
    const bool is_directory = stdfs::is_directory(stdfs::symlink_status(name));
    (void) rename(name.c_str(), (name + ".was").c_str());
    std::error_code no_such_place;
    stdfs::create_symlink(outside / (is_directory ? "directory" : "file"), name, no_such_place);
}

Fault Armed(const Blow& blow, unsigned nth, const std::string& swapped) {
    switch (blow.way) {
        case Way::kKill:
            return Fault::Kill(blow.call, nth);
        case Way::kShorten:
            return Fault::Short(blow.call, nth, 1);
        case Way::kSwap:
            return Fault::Meanwhile(blow.call, nth, [=] { Exchange(swapped); });
        case Way::kFail:
        case Way::kFailOnwards:
            break;
    }
    return Fault(blow.call, nth, blow.error, blow.way == Way::kFail ? 1 : Fault::kAll);
}

// Its rights, or that nobody may write it, in whichever way that is achieved.
std::string Rights(const std::string& path) {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    int flags = 0;
    const bool is_immutable =
        ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0;
    const mode_t mode = Mode(path);
    return is_immutable || (mode & 0222) == 0 ? "protected" : std::to_string(mode);
}

// What is in a log, without its times: a record that nobody reads is not there.
std::string Records(const std::string& path) {
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    korx_reader_options options = {};
    options.flags = KORX_READER_NO_LOCK;  // nobody writes now, and a lock may have been left
    if (korx_reader_open(path.c_str(), KORX_LOG_AUTO, &options, &reader, &error) != 0)
        return ReadFile(path);
    std::string records;
    for (korx_record record = {}; korx_reader_next(reader, &record) == 1;) {
        records.append(record.name == nullptr ? "" : record.name, record.name_length) += ' ';
        const std::string message(record.message == nullptr ? "" : record.message,
                                  record.message_length);
        records += message.substr(message.find("ProcID") == std::string::npos
                                      ? 0
                                      : message.find(" : "));  // a line among the records
        records += (record.flags & KORX_RECORD_DAMAGED) != 0 ? " damaged\n" : "\n";
    }
    korx_reader_close(reader);
    return records;
}

using Tree = std::map<std::string, std::string>;

Tree Snapshot(const std::string& root) {
    const Untapped untapped;
    Tree tree;
    for (const auto& entry : stdfs::recursive_directory_iterator(root)) {
        const std::string path = entry.path(), name = path.substr(root.size() + 1);
        if (entry.is_symlink())
            tree[name] = "link to " + stdfs::read_symlink(path).string();
        else if (name != ".korxloghdr")  // the start log is read by it
            tree[name] =
                Rights(path) + " " + (entry.is_regular_file() ? Records(path) : "directory");
    }
    return tree;
}

std::string ContentOf(const Tree& tree, const std::string& name) {
    const auto it = tree.find(name);
    return it == tree.end() ? "(none)" : it->second;
}

std::string WithoutRights(const std::string& content) {
    return content.substr(content.find(' ') + 1);
}

void Keep(const std::string& file, const Tree& tree) {
    std::string text;
    for (const auto& [name, content] : tree)
        text.append(name.c_str(), name.size() + 1).append(content.c_str(), content.size() + 1);
    WriteFile(file, text);
}

Tree Kept(const std::string& file) {
    std::istringstream text(ReadFile(file));
    Tree tree;
    for (std::string name; std::getline(text, name, '\0');)
        std::getline(text, tree[name], '\0');
    return tree;
}

// The results and the trees that an untroubled process sees; each trial's process sees them again.
struct Course {
    uint32_t codes[2] = {};
    Tree trees[3];
};

// One trial, in a process of its own.
class Trial {
  public:
    Trial(const Scenario& scenario, const Blow& blow, unsigned nth, std::string swapped)
        : scenario_(scenario), blow_(blow), nth_(nth), swapped_(std::move(swapped)) {}

    // Whether there was such a call.
    bool run(const Course& usual) {
        scenario_.prepare();
        const Belongings before;
        const Tree outside = Snapshot("../outside");
        (void) syslog(LOG_INFO, kCall);
        strike(before);
        const Tree now = Snapshot(".");
        EXPECT_EQ(Snapshot("../outside"), outside);
        if (blow_.way == Way::kSwap) {
            std::string all = Returned();
            for (const auto& [name, content] : now)
                all += "\n" + name + ": " + content;
            EXPECT_EQ(all.find(kSecret), std::string::npos) << all;
            return was_hit_;
        }
        judge(usual, 0, now);
        (void) syslog(LOG_INFO, kNextCall);
        const uint32_t next = scenario_.call();
        EXPECT_TRUE(next == usual.codes[0] || next == usual.codes[1]) << std::hex << next;
        judge(usual, 1, Snapshot("."));
        expect_nothing_left(before);
        return was_hit_;
    }
    bool has_failed() const { return code_ != 0 && was_hit_; }

  private:
    void strike(const Belongings& before) {
        if (blow_.way == Way::kKill) {
            const int status = RunChild([&] {
                const Fault kill = Armed(blow_, nth_, "");
                (void) scenario_.call();
                return 0;
            });
            was_hit_ = status == Fault::kKilled;
            EXPECT_TRUE(was_hit_ || status == 0) << status;
            return;
        }
        {
            const Fault fault = Armed(blow_, nth_, swapped_);
            code_ = scenario_.call();
            was_hit_ = fault.hits() != 0;
        }
        expect_nothing_left(before);
    }

    // Where no more call works, not even the last way to let go of a lock does.
    void expect_nothing_left(const Belongings& before) const {
        static const std::regex open_files("open: .*\n");
        std::string left = before.left_behind();
        if ((scenario_.excuses & kAbandons) != 0)
            left = std::regex_replace(left, open_files, "");
        EXPECT_TRUE(left.empty() || blow_.way == Way::kFailOnwards) << left;
    }

    // The tree after the first or the second call, beside the usual ones before and after it.
    void judge(const Course& usual, int call, const Tree& now) const {
        const Tree &old = usual.trees[call], &wanted = usual.trees[call + 1];
        const bool is_short = blow_.way == Way::kShorten;
        if ((is_short && (scenario_.excuses & kShortCounts) != 0))
            return;
        const bool is_first = call == 0;
        EXPECT_TRUE(code_ == usual.codes[0] || scenario_.failures.contains(code_) ||
                    blow_.way == Way::kKill)
            << std::hex << code_;
        const bool must_be_new = is_first && blow_.way != Way::kKill && code_ == usual.codes[0] &&
                                 (scenario_.excuses & kUntold) == 0;
        std::set<std::string> names;
        for (const Tree* const tree : {&old, &wanted, &now})
            for (const auto& [name, content] : *tree)
                names.insert(name);
        for (const std::string& name : names) {
            if (is_first && scenario_.leftovers.contains(name))
                continue;
            const std::string content = ContentOf(now, name);
            const bool is_lost = (content == "(none)" && (scenario_.excuses & kLoses) != 0) ||
                                 (ContentOf(wanted, name).ends_with(WithoutRights(content)) &&
                                  (scenario_.excuses & kForgets) != 0);
            EXPECT_TRUE(is_same(content, ContentOf(wanted, name)) ||
                        (!must_be_new && (is_lost || is_same(content, ContentOf(old, name)))))
                << name << " after call " << call + 1 << ", " << content << "old "
                << ContentOf(old, name) << "\nnew " << ContentOf(wanted, name);
        }
    }

    bool is_same(const std::string& now, const std::string& other) const {
        return now == other || ((scenario_.excuses & kOwnRights) != 0 && now.starts_with(kOwn) &&
                                WithoutRights(now) == WithoutRights(other));
    }

    const Scenario& scenario_;
    const Blow& blow_;
    const unsigned nth_;
    const std::string swapped_;
    uint32_t code_ = 0;
    bool was_hit_ = false;
};

// What a trial's process tells the one that counts.
struct Told {
    bool was_hit;
    bool has_failed;
    uint32_t codes[2];
};

class Torturer {
  public:
    explicit Torturer(const Scenario& scenario) : scenario_(scenario) {
        MakeDirs(kRoot);
        stdfs::current_path(kRoot);
        MakeDirs(std::string(kOutside) + "/directory/sub");
        for (const char* const name : {"outside/file", "outside/directory/f",
                                       "outside/directory/sub/g", "outside/directory/secret"})
            WriteFile(name, kSecret);
        (void) chmod((std::string(kOutside) + "/directory").c_str(), 0700);  // to be kept
        MakeDirs("conf/config");
        WriteFile("conf/config/korx_sdk_init.conf", "");  // there is no agent
    }

    ~Torturer() {
        stdfs::current_path("/");
        RemoveAll(kRoot);
    }
    Torturer(const Torturer&) = delete;
    Torturer& operator=(const Torturer&) = delete;

    // In a process of its own: the trials' begin with the library untouched.
    void learn() {
        in_empty_directory();
        const int status = RunChild([&] {
            scenario_.prepare();
            Keep("../0", Snapshot("."));
            for (int call = 0; call < 2; ++call) {
                told_->codes[call] = scenario_.call();
                Keep(call == 0 ? "../1" : "../2", Snapshot("."));
            }
            return 0;
        });
        ASSERT_EQ(status, 0);
        for (int i = 0; i < 3; ++i)
            usual_.trees[i] = Kept("../" + std::to_string(i));
        std::copy_n(told_->codes, 2, usual_.codes);
    }

    void play(const Blow& blow, const std::string& swapped) {
        bool was_hit = true;
        for (unsigned nth = 1; was_hit; ++nth) {
            SCOPED_TRACE(std::string(scenario_.name) + ": " + blow.name + ", call " +
                         std::to_string(nth) + " " + swapped);
            was_hit = try_one(blow, nth, swapped);
            if (::testing::Test::HasFailure())
                return;  // the processes of later trials would inherit it
            ASSERT_LT(nth, 1000u);
        }
    }

  private:
    void in_empty_directory() {
        const Untapped untapped;
        stdfs::current_path(kRoot);
        RemoveAll("work");
        stdfs::create_directory("work");
        stdfs::current_path("work");
    }

    bool try_one(const Blow& blow, unsigned nth, const std::string& swapped) {
        in_empty_directory();
        syslog_.clear();
        *told_ = {};
        const int status = RunChild([&] {
            (void) alarm(60);  // instead of a hang
            const Fault naps = Fault::Short("usleep", 1, 0, Fault::kAll);
            Trial trial(scenario_, blow, nth, swapped);
            told_->was_hit = trial.run(usual_);
            told_->has_failed = trial.has_failed();
            return 0;
        });
        EXPECT_EQ(status, 0) << "above, or a signal";
        const auto lines = syslog_.lines();
        const auto first = std::find(lines.begin(), lines.end(), SyslogLine{LOG_INFO, kCall});
        const auto next = std::find(first, lines.end(), SyslogLine{LOG_INFO, kNextCall});
        const bool must_tell = told_->has_failed && (scenario_.excuses & kSilent) == 0;
        EXPECT_TRUE(!must_tell || next - first > 1) << "a failure without a line";
        const auto told = std::count_if(
            first, next, [](const SyslogLine& line) { return line.priority <= LOG_WARNING; });
        EXPECT_TRUE(told <= kMostLines || blow.way == Way::kFailOnwards)
            << ::testing::PrintToString(lines);
        return told_->was_hit && status == 0;
    }

    const Scenario& scenario_;
    SyslogTap syslog_;
    Course usual_;
    Told* const told_ = static_cast<Told*>(
        mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

}  // namespace

std::string& Returned() {
    static std::string returned;
    return returned;
}

void Torture(const Scenario& scenario) {
    const char* const size = getenv("KORX_TORTURE");
    const bool is_whole = size != nullptr && strcmp(size, "whole") == 0;
    Torturer torturer(scenario);
    torturer.learn();
    for (const Blow& blow : kBlows) {
        if (::testing::Test::HasFailure() || (!is_whole && !blow.is_short_form))
            continue;
        const auto once = std::vector<std::string>{""};
        for (const std::string& name : blow.way == Way::kSwap ? scenario.swapped : once)
            torturer.play(blow, name);
    }
}

}  // namespace korx::test
