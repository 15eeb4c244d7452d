#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique.h"
#include "ini/ini_room.h"
#include "korx/ini.h"
#include "support/processes.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr char kOld[] = "[A]\nx=1\n\n[B]\ny=2\n";
constexpr char kNew[] = "[A]\nx=new\n\n[B]\ny=2\n";

struct ProfileChange : RoomTest {
    ProfileChange() { WriteFile("p", kOld); }

    uint32_t add(const std::string& section, const std::string& key, const std::string& value) {
        return KORX_IniSetOrAddValue("./p", section.c_str(), key.c_str(), value.c_str());
    }
    uint32_t set(const std::string& section, const std::string& key, const std::string& value) {
        return KORX_IniSetValue("./p", section.c_str(), key.c_str(), value.c_str());
    }
    // The next change finds nothing in its way, whatever the last one left behind.
    void expect_next_change_works(const std::string& after) {
        EXPECT_EQ(add("[A]", "x", "next"), 0u) << after;
        EXPECT_EQ(ReadFile("p"), "[A]\nx=next\n\n[B]\ny=2\n") << after;
        EXPECT_FALSE(Exists("p+")) << after;
        EXPECT_NE(ReadFile("p-"), "") << after;
    }
};

TEST_F(ProfileChange, StoresWhatTheLoaderReadsBack) {
    const std::string v256(256, 'v'), k64(64, 'k'), s64 = "[" + std::string(62, 's') + "]";
    const struct {
        const char* name;
        std::string before, section, key, value, after;
    } rows[] = {
        {"existing key", kOld, "[A]", "x", "new", kNew},
        {"new key at the top", kOld, "[B]", "z", "3", "[A]\nx=1\n\n[B]\nz=3\ny=2\n"},
        {"new section at the top", kOld, "[C]", "z", "", std::string("[C]\nz=\n\n") + kOld},
        {"no section is no failure", "; only\nk=1\n", "[C]", "z", "3", "[C]\nz=3\n"},
        {"empty section, comments", "[A]\n;c\nx = 1\n\n\n[B]", "[A]", "x", "2",
         "[A]\nx=2\n\n[B]\n"},
        {"first of duplicates", "[A]\nx=1\nx=2\n", "[A]", "x", "3", "[A]\nx=3\nx=2\n"},
        {"longest", "", s64, k64, v256, s64 + "\n" + k64 + "=" + v256 + "\n"},
        {"value of 257", kOld, "[A]", "x", v256 + "v", "[A]\nx=\n\n[B]\ny=2\n"},
        {"key of 65", "[A]\n", "[A]", k64 + "k", "1", "[A]\n=1\n"},
        {"section of 65", "[A]\n", s64 + "]", "x", "1", "\nx=1\n\n[A]\n"},
    };
    for (const auto& row : rows) {
        WriteFile("p", row.before);
        EXPECT_EQ(add(row.section, row.key, row.value), 0u) << row.name;
        EXPECT_EQ(ReadFile("p"), row.after) << row.name;
        EXPECT_EQ(ReadFile("p-"), row.before) << row.name << ": the backup is the previous version";
        EXPECT_FALSE(Exists("p+")) << row.name;
    }
    EXPECT_EQ(Mode("p.lock"), 0640u);
    EXPECT_EQ(syslog.lines(), Lines{});
}

TEST_F(ProfileChange, RefusesWithoutTouchingTheFile) {
    const auto length_of = KORX_CheckIniValuePara;
    const auto set_value = KORX_IniSetValue, set_or_add = KORX_IniSetOrAddValue;
    const std::string n64(64, 'n'), v256(256, 'v'), none = tree.path("none/p");
    const char *const n = n64.c_str(), *const v = v256.c_str();
    const struct {
        decltype(set_value) call;
        const char *file, *section, *key, *value;
        uint32_t result;
    } rows[] = {
        {set_value, "./p", "[C]", "x", "1", 4},
        {set_value, "./p", "[A]", "y", "1", 4},
        {set_value, "./p", "[A]", "x", "1\nz=2", kFailed},
        {set_or_add, "./p", "[A]", "x", "1\r", kFailed},
        {set_or_add, "./p", "[A]", "x\n", "1", kFailed},
        {set_or_add, "./p", "[A]\n[C]", "x", "1", kFailed},
        {set_value, "./p", "[A]\r", "x", "1", kFailed},
        {set_or_add, "./p", "[A]", " [B", "C]", kFailed},
        {set_value, "./p", "[A]", "x", v, kFailed},
        {set_value, "./p", "[A]", n, "", kFailed},
        {set_value, "./p", n, "x", "", kFailed},
        {length_of, v, "", "", "", 2},
        {length_of, v + 1, n + 1, n + 1, v + 1, 0},
        {set_or_add, "./p", "[A]", "x", nullptr, 1},
        {set_or_add, "./q", "[A]", "x", "1", kFailed},
        {set_or_add, v + 4, "[A]", "x", "1", kFailed},
        {set_value, none.c_str(), "[A]", "x", "1", kFailed},
    };
    for (const auto& row : rows) {
        const auto number = &row - rows;
        syslog.clear();
        EXPECT_EQ(row.call(row.file, row.section, row.key, row.value), row.result) << number;
        EXPECT_EQ(syslog.lines().empty(), row.result == 0) << number;
    }
    EXPECT_EQ(ReadFile("p"), kOld);
    EXPECT_FALSE(Exists("p-"));
}

TEST_F(ProfileChange, AFileThatCannotBeReadIsNotReplaced) {
    const std::string long_line = "[A]\nx=" + std::string(257, 'v') + "\n";
    const Lines load_line = {Err("[ORX] Load file ./p unsuccessfully.")};
    WriteFile("p", long_line);
    EXPECT_EQ(add("[A]", "x", "1"), kFailed);
    EXPECT_EQ(syslog.lines().back(), load_line[0]);
    EXPECT_EQ(set("[A]", "x", "1"), 3u);
    EXPECT_EQ(ReadFile("p"), long_line);
    WriteFile("p", kOld);
    {
        const Fault fault("read", 2, EIO);
        EXPECT_EQ(add("[A]", "x", "1"), kFailed);
    }
    WriteFile("p", "");
    EXPECT_EQ(set("[A]", "x", "1"), 3u);
    EXPECT_EQ(syslog.lines().back(), load_line[0]);
}

// Lines that the loader reads, but that a save would cut, hide or make other ones.
TEST_F(ProfileChange, AFileThatWouldNotSurviveIsReadAndNotReplaced) {
    const std::string s64(64, 's');
    const struct {
        const char* name;
        std::string line;
    } rows[] = {
        {"a header that is cut", "[" + s64 + "]"},
        {"a header that is cut to another one", "[" + s64.substr(2) + "]]"},
        {"a line without = that is cut", s64 + "s"},
        {"what stands behind a NUL", std::string("y=2\0z=3", 7)},
        {"a carriage return at the start of a key", " \ry=2"},
        {"a carriage return at the end of a value", "y=2\r\r"},
        {"a key that would become a header", "[y]=[2] "},
        {"a key that would hide another one", "y \t\ny=2"},
    };
    const SyslogLine why =
        Err("[ORX] File ./p holds a line that a change would cut or reinterpret.");
    const SyslogLine load = Err("[ORX] Load file ./p unsuccessfully.");
    for (const auto& row : rows) {
        const std::string content = "[A]\nx=1\n" + row.line + "\n[B]\nz=3\n";
        WriteFile("p", content);
        char value[8];
        EXPECT_EQ(KORX_IniGetValue("./p", "[A]", "x", value, sizeof value), 0u) << row.name;
        EXPECT_EQ(syslog.lines(), Lines{}) << row.name;
        EXPECT_EQ(add("[B]", "z", "4"), kFailed) << row.name;
        EXPECT_EQ(set("[B]", "z", "4"), 3u) << row.name;
        EXPECT_EQ(syslog.lines(), (Lines{why, load, why, load})) << row.name;
        EXPECT_EQ(ReadFile("p"), content) << row.name;
        syslog.clear();
    }
    WriteFile("p", std::string("[A]\nx=1\nbare \nx \n;") + s64 + s64 + std::string("\n\0\0", 3));
    EXPECT_EQ(set("[A]", "x", "2"), 0u);
    EXPECT_EQ(ReadFile("p"), "[A]\nx=2\nbare =\nx =\n");
}

// A name that is its own resolution is opened at once; that must not show. Each scene is played
// with that way barred, too.
TEST_F(ProfileChange, NamesNeedNoResolutionOrAreResolved) {
    const std::string root = tree.root();
    MakeDirs("real");
    const std::pair<const char*, const char*> links[] = {{"real", "dir"},
                                                         {"nowhere", "real/dangling"},
                                                         {"target", "real/link"},
                                                         {"elsewhere.lock", "real/p.lock"},
                                                         {"/proc/self/mem", "real/mem"}};
    const auto play = [&](const std::string& file, bool set_only) {
        for (const char* const content : {"real/p", "real/q", "real/target"})
            WriteFile(content, kOld);
        for (const auto& [to, from] : links) {
            unlink(from);
            EXPECT_EQ(symlink(to, from), 0);
        }
        syslog.clear();
        char value[8] = "";
        const uint32_t changed =
            (set_only ? KORX_IniSetValue : KORX_IniSetOrAddValue)(file.c_str(), "[A]", "x", "new");
        const uint32_t read = KORX_IniGetValue(file.c_str(), "[A]", "x", value, sizeof value);
        std::string seen = std::to_string(changed) + " " + std::to_string(read) + value;
        for (const char* const name : {"p", "p-", "q", "q-", "link", "link-", "target"})
            seen += std::string("\n") + name + ReadFile(std::string("real/") + name);
        for (const auto& line : syslog.lines())
            seen += line.text;
        return seen;
    };
    for (const std::string& file :
         {root + "/real/q", root + "/real/p", root + "/dir/q", root + "/real/../dir//q",
          root + "/real/link", root + "/real/dangling", root + "/real/none", root + "/none/q",
          root + "/real", root + "/real/mem", root + "/real/q/", std::string("/none"),
          root + "/real/" + std::string(128, 'n'), root + std::string(256, '/') + "q"}) {
        for (const bool set_only : {false, true}) {
            const CallCount resolved("realpath");
            const std::string seen = play(file, set_only);
            EXPECT_TRUE(resolved.value() == 0 || set_only || file != root + "/real/q" ||
                        !HasOpenat2());
            const Fault barred("syscall", 1, EPERM, Fault::kAll);
            EXPECT_EQ(seen, play(file, set_only)) << file;
            EXPECT_TRUE(resolved.value() > 0 || file != root + "/real/q");
        }
    }
}

TEST_F(ProfileChange, OnlyARegularFileIsAProfile) {
    unlink("p");
    ASSERT_EQ(symlink("/dev/null", "p"), 0);
    EXPECT_EQ(add("[A]", "x", "1"), kFailed);
    EXPECT_EQ(set("[A]", "x", "1"), 3u);
    EXPECT_EQ(syslog.lines().back(), Err("[ORX] Load file ./p unsuccessfully."));
    EXPECT_FALSE(Exists("p+") || Exists("p-"));
}

TEST_F(ProfileChange, NoProfileBecomesTheControllingTerminal) {
    const UniqueFd owner(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!owner)
        GTEST_SKIP() << "no terminals in this root: " << strerror(errno);
    ASSERT_EQ(grantpt(owner.get()), 0);
    ASSERT_EQ(unlockpt(owner.get()), 0);
    unlink("p");
    ASSERT_EQ(symlink(ptsname(owner.get()), "p"), 0);
    EXPECT_EQ(RunChild([&] {
                  if (setsid() < 0)
                      return 1;
                  (void) set("[A]", "x", "1");
                  return open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 ? 0 : 2;
              }),
              0);
}

TEST_F(ProfileChange, SavesWithTheRightsOfTheOldVersion) {
    if (chown("p", 1234, 4321) != 0)
        GTEST_SKIP() << "files cannot be given away here: " << strerror(errno);
    umask(0);
    for (const mode_t mode : {0664, 0777, 0440}) {
        chmod("p", mode);
        ASSERT_EQ(chown("p", 1234, 4321), 0);
        EXPECT_EQ(set("[A]", "x", "1"), 0u);
        struct stat st;
        ASSERT_EQ(stat("p", &st), 0);
        EXPECT_EQ(st.st_mode & 07777, mode & 0740);
        EXPECT_EQ(st.st_uid, 1234u);
        EXPECT_EQ(st.st_gid, 4321u);
    }
    const Fault fault("fstat", 1, EIO);
    EXPECT_EQ(KORX_IniSaveFile("./p", nullptr), 0u);
    EXPECT_EQ(Mode("p"), 0600u);
}

TEST_F(ProfileChange, SavesUnderEveryNameThatLeavesRoomForItsSuffix) {
    EXPECT_EQ(KORX_IniSaveFile("./p", nullptr), 0u);
    EXPECT_EQ(ReadFile("p"), "");
    const std::string name(125, 'n');  // with "./" one too many
    EXPECT_EQ(KORX_IniSaveFile(("./" + name).c_str(), nullptr), kFailed);
    EXPECT_EQ(syslog.lines(), Lines{Err("[ORX]print file unsuccessfully, file=./" + name + ".")});
    WriteFile(name.substr(1), "");
    EXPECT_EQ(KORX_IniSaveFile(("./" + name.substr(1)).c_str(), nullptr), 0u);
}

TEST_F(ProfileChange, RemovesWhatAFailedSaveLeft) {
    WriteFile("p+", "half");
    EXPECT_EQ(add("[A]", "x", "new"), 0u);
    EXPECT_EQ(syslog.lines(), (Lines{{6, "[0] [ORX]file './p+' remain! delete it!\n"}}));
    EXPECT_EQ(ReadFile("p"), kNew);
    for (const auto& change : {KORX_IniSetValue, KORX_IniSetOrAddValue}) {
        ASSERT_EQ(symlink("nowhere", "p+"), 0);
        EXPECT_EQ(change("./p", "[A]", "x", "newer"), 0u) << "a link that leads nowhere";
        EXPECT_FALSE(Exists("p+"));
    }
    syslog.clear();
    MakeDirs("p+");
    EXPECT_EQ(add("[A]", "x", "1"), kFailed);
    EXPECT_EQ(syslog.lines().back(), Err("[ORX] Delete file './p+' unsuccessfully! errno=21."));
    EXPECT_EQ(rmdir("p+"), 0);
    EXPECT_EQ(unlink("p-"), 0);
    MakeDirs("p-");
    EXPECT_EQ(add("[A]", "x", "2"), 0u) << "a save without a backup is still a save";
    EXPECT_EQ(syslog.lines().back(),
              (SyslogLine{4, "[0] warning: can't create backup copy './p-'\n"}));
}

// Each row lets one step of a change fail: the whole old version stays, or the new one is there.
TEST_F(ProfileChange, FailedStepLeavesTheOldVersion) {
    const std::string sync = "[ORX] Sync directory '" + tree.root() + "' unsuccessfully! errno=5.";
    const std::string written = "[ORX]ORX_SaveProfile file operating unsuccessfully! errno:5!";
    const std::string renamed = "[ORX]rename file './p+' to './p' unsuccessfully! errno = 5!";
    const struct {
        const char* call;
        unsigned nth;
        uint32_t result;
        const char* content;
        std::string line;
    } rows[] = {
        {"open", 1, kFailed, kOld, "Can't create or open ./p.lock. errno:5"},
        {"fcntl", 1, kFailed, kOld, "Can't lock ./p.lock."},
        {"realpath", 2, kFailed, kOld,
         "Get the abolute path of file ./p unsuccessfully when set or add value."},
        {"open", 2, kFailed, kOld, "Can't Read File ./p, errno: 5."},
        {"open", 3, kFailed, kOld, "[ORX]ORX_SaveProfile can't create './p+'! errno 5!"},
        {"lseek", 1, kFailed, kOld, "[ORX]ORX_SaveProfile can't lseek file './p+'! errno 5!"},
        {"ftruncate", 1, kFailed, kOld,
         "[ORX]ORX_SaveProfile clear file './p+' content unsuccessfully! errno 5!"},
        {"fdopen", 1, kFailed, kOld, "[ORX]ORX_SaveProfile fdopen unsuccessfully! errno=5!"},
        {"fflush", 1, kFailed, kOld, written},
        {"fsync", 1, kFailed, kOld, written},
        {"unlink", 1, 0, kNew, "warning: can't create backup copy './p-'"},
        {"link", 1, 0, kNew, "warning: can't create backup copy './p-'"},
        {"rename", 1, kFailed, kOld, renamed},
        {"realpath", 3, kFailed, kNew,
         "Get the abolute path of file ./p unsuccessfully when init save file."},
        {"open", 4, 0, kNew, ""},
        {"open", 5, 0, kNew, sync},
        {"fsync", 3, 0, kNew, sync},
    };
    for (const auto& row : rows) {
        const std::string name = row.call + std::to_string(row.nth);
        WriteFile("p", kOld);
        syslog.clear();
        {
            const Fault fault(row.call, row.nth, EIO);
            EXPECT_EQ(add("[A]", "x", "new"), row.result) << name;
            EXPECT_EQ(fault.hits(), 1u) << name;
        }
        EXPECT_EQ(ReadFile("p"), row.content) << name;
        const Lines lines = syslog.lines();
        const std::string last = lines.empty() ? "" : lines.back().text;
        EXPECT_EQ(last, row.line.empty() ? "" : "[0] " + row.line + "\n") << name;
        expect_next_change_works(name);
    }
    syslog.clear();
    const Fault fault("open", 1, EIO);
    EXPECT_EQ(KORX_IniSaveFile("./p", nullptr), kFailed);
    EXPECT_EQ(syslog.lines(), (Lines{{3, "[ORX] Can't open file './p', errno=5!"}}))
        << "not by the diagnostic log";
}

// The rest reaches the disk, as where somebody else makes room meanwhile.
TEST_F(ProfileChange, APartThatCouldNotBeWrittenIsNotForgotten) {
    std::string content = "[A]\nx=1\n";
    for (int i = 0; i < 100; ++i)
        content += "k" + std::to_string(i) + "=" + std::string(200, 'v') + "\n";
    WriteFile("p", content);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {4096, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const Fault room = Fault::Meanwhile("fflush", 1, [&] {
        limit.rlim_cur = RLIM_INFINITY;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    });
    EXPECT_EQ(set("[A]", "x", "2"), kFailed);
    EXPECT_EQ(ReadFile("p"), content);
}

// Every thread counts in a key of its own, by turns of the two setters; who loses an update finds
// an older number there, and a reader never finds a file that is not whole.
TEST_F(ProfileChange, ThreadsOfSeveralProcessesLoseNoUpdate) {
    constexpr int kProcesses = 3, kThreads = 3, kRounds = 12;
    const auto body = [&](int process) {
        RunThreads(kThreads, [&](int thread) {
            const std::string key = "k" + std::to_string(process) + std::to_string(thread);
            for (int i = 1; i <= kRounds; ++i) {
                const std::string text = std::to_string(i);
                EXPECT_EQ(i % 2 != 0 ? add("[N]", key, text) : set("[N]", key, text), 0u) << key;
                char value[16];
                EXPECT_EQ(KORX_IniGetValue("./p", "[N]", key.c_str(), value, sizeof value), 0u);
                EXPECT_EQ(value, text) << key;
            }
        });
        return 0;
    };
    EXPECT_EQ(RunChildren(kProcesses, body), 0);
    const std::string content = ReadFile("p");
    for (int i = 0; i < kProcesses * kThreads; ++i) {
        const std::string line =
            "k" + std::to_string(i / kThreads) + std::to_string(i % kThreads) + "=12\n";
        EXPECT_NE(content.find(line), std::string::npos) << line << content;
    }
    EXPECT_EQ(syslog.lines(), Lines{}) << "nobody met another one's file";
}

}  // namespace
}  // namespace korx::test
