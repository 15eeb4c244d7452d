#include <dirent.h>
#include <dlfcn.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include "fs/fs_test.h"

// Runs once, right after the removal has looked at an entry and before it acts on it.
static std::function<void(const char* name)> after_look;

extern "C" int fstatat(int directory, const char* name, struct stat* st, int flags) {
    using Call = int (*)(int, const char*, struct stat*, int);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "fstatat"));
    const int result = next(directory, name, st, flags);
    if (after_look)
        after_look(name);
    return result;
}

namespace korx::test {
namespace {

constexpr int32_t kKeep = 0;
constexpr int32_t kAll = 1;

// Directories whose file system does not tell what their entries are.
Fault UntoldTypes(unsigned from) {
    return Fault::Short("readdir", from, DT_UNKNOWN, Fault::kAll);
}

struct RemoveTree : FsTest {
    ~RemoveTree() override { after_look = nullptr; }

    // A tree with every kind of entry and links out of it to keep/.
    void build() {
        MakeDirs("keep");
        WriteFile("keep/file", "kept");
        MakeDirs("t/a/b/c");
        MakeDirs("t/-rf");
        for (const char* file :
             {"t/file", "t/a/b/c/ blank ", "t/-rf/-x", "t/.hidden", "t/...", "t/a/read only"})
            WriteFile(file, "x");
        chmod("t/a/read only", 0444);
        ASSERT_EQ(symlink("../../keep", "t/a/out"), 0);
        ASSERT_EQ(symlink("/nowhere", "t/dangling"), 0);
        ASSERT_EQ(mkfifo("t/a/fifo", 0600), 0);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {AF_UNIX, "t/a/b/socket"};
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(fd);
    }
};

TEST_F(RemoveTree, RemovesEverythingOrKeepsTheDirectories) {
    build();
    EXPECT_EQ(ORX_RmParentDir(tree.path("t").c_str(), 2), kFailed);
    EXPECT_EQ(logged(), "");
    EXPECT_TRUE(Exists("t/file"));

    EXPECT_EQ(ORX_RmParentDir(tree.path("t/").c_str(), kKeep), 0u);
    for (const char* directory : {"t/a/b/c", "t/a/b", "t/-rf"})
        EXPECT_EQ(rmdir(directory), 0) << directory << " is kept and empty";
    EXPECT_NE(logged().find("I Delete the file " + tree.path("t/file") + " Successfully.\n"),
              std::string::npos);

    build();
    EXPECT_EQ(ORX_RmParentDir("t/", kAll), 0u);
    EXPECT_EQ(logged(), "");
    EXPECT_FALSE(Exists("t"));
    EXPECT_EQ(ReadFile("keep/file"), "kept");
}

// What is listed as a file is deleted at once, anything else is looked at first: nobody can tell.
TEST_F(RemoveTree, LooksAtEntriesOnlyWhereItMust) {
    for (const int32_t mode : {kKeep, kAll}) {
        std::multiset<std::string> lines[2];
        for (const unsigned untold : {0, 1}) {
            build();
            const Fault types = UntoldTypes(untold == 0 ? 9999 : 1), refused("unlinkat", 2, EPERM);
            unsigned looks = 0;
            after_look = [&looks](const char*) { ++looks; };
            EXPECT_EQ(ORX_RmParentDir("t", mode), 0u);
            EXPECT_EQ(looks, untold == 0 ? 4u + 1u : 14u) << "directories, and what is refused";
            EXPECT_EQ(Exists("t/a/b/c"), mode == kKeep);
            EXPECT_FALSE(Exists("t/file") || Exists("t/a/fifo"));
            after_look = nullptr;
            for (const SyslogLine& line : syslog.lines())
                lines[untold].insert(line.text);
            syslog.clear();
        }
        EXPECT_EQ(lines[0].size(), lines[1].size());
        EXPECT_EQ(lines[0], lines[1]);
    }
    const struct {
        std::function<void()> meanwhile;
        std::string line;
    } rows[] = {
        {[] { unlink("t/f"); }, "W lstat Diretory t/f unsuccessfully, errno:2.\n"},
        {[] { unlink("t/f"), MakeDirs("t/f/g"); }, ""},
    };
    for (const auto& row : rows) {
        MakeDirs("t");
        WriteFile("t/f", "");
        const Fault change = Fault::Meanwhile("unlinkat", 1, row.meanwhile);
        EXPECT_EQ(ORX_RmParentDir("t", kAll), 0u);
        EXPECT_EQ(logged(), row.line);
        EXPECT_FALSE(Exists("t"));
    }
}

TEST_F(RemoveTree, StartMayBeMissingOrALink) {
    EXPECT_EQ(ORX_RmParentDir("no", kAll), 0u);
    EXPECT_EQ(ORX_RmParentDir("no", kKeep), kFailed);
    EXPECT_EQ(ORX_RmParentDir("", kAll), 0u);
    EXPECT_EQ(logged(),
              "E Dir:no open unsuccessfully, errno:2!\nE Dir:no not Exist, errno:2!\n"
              "E Dir: open unsuccessfully, errno:2!\n");
    EXPECT_EQ(ORX_RmParentDir(nullptr, kAll), kFailed);

    build();
    ASSERT_EQ(symlink("t", "link"), 0);
    EXPECT_EQ(ORX_RmParentDir("link", kKeep), 0u);
    EXPECT_TRUE(Exists("t/a/b/c") && !Exists("t/a/fifo"));
    EXPECT_EQ(ORX_RmParentDir("link/", kAll), kFailed) << "the link itself is no directory";
    EXPECT_FALSE(Exists("t/a"));
}

// What may be read but not searched is listed, and removed when it is empty.
TEST_F(RemoveTree, StartNeedNotBeSearched) {
    constexpr uid_t kNobody = 65534;
    MakeDirs("t");
    chmod(".", 0777);
    chmod("t", 0400);
    if (chown("t", kNobody, kNobody) != 0)
        GTEST_SKIP() << "no other users here";
    EXPECT_EQ(RunChild([] {
                  return setuid(kNobody) == 0 && ORX_RmParentDir("t", kKeep) == 0 &&
                                 ORX_RmParentDir("t", kAll) == 0
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_FALSE(Exists("t"));
}

TEST_F(RemoveTree, LimitsPathsTo255Characters) {
    const std::string longest = "./" + std::string(252, '/') + "t", over = longest + "t";
    MakeDirs("t");
    EXPECT_EQ(ORX_RmParentDir(longest.c_str(), kKeep), 0u) << "'.' and '..' need no room";
    for (const int32_t mode : {kKeep, kAll}) {
        EXPECT_EQ(ORX_RmParentDir(over.c_str(), mode), kFailed);
        EXPECT_EQ(logged(), "E Remove Diretory " + over +
                                " unsuccessfully, Path is Too Long. PathLen = 256!\n");
    }

    // Entry paths of 255 and 256 characters.
    const std::string start = "." + std::string(99, '/') + "t", name(153, 'n');
    WriteFile("t/" + name, "");
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kKeep), 0u);
    EXPECT_FALSE(Exists("t/" + name));
    WriteFile("t/" + name + "n", "");
    (void) logged();
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kKeep), kFailed);
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kAll), kFailed);
    EXPECT_TRUE(logged().ends_with("\nE print Diretory unsuccessfully, Diretory=" + start + "/" +
                                   name + "n\n"));
    EXPECT_TRUE(Exists("t/" + name + "n"));
}

TEST_F(RemoveTree, UnprotectsAFileAndTriesAgain) {
    for (const int32_t mode : {kKeep, kAll}) {
        MakeDirs("t");
        WriteFile("t/f", "");
        ASSERT_EQ(link("t/f", "other"), 0);
        chmod("t/f", 0400);
        {
            const Fault fault("unlinkat", 1, EPERM);
            EXPECT_EQ(ORX_RmParentDir("t", mode), 0u);
        }
        EXPECT_EQ(Mode("other"), 0622u);
        const std::string lines = logged(),
                          refused = "Delete the file t/f unsuccessfully, because 1";
        EXPECT_TRUE(lines.starts_with((mode == kKeep ? "E " : "I ") + refused)) << lines;
        EXPECT_TRUE(lines.ends_with(mode == kKeep ? "Successfully, after undo protectl.\n"
                                                  : "ok, after undo protectl.\n"));
        EXPECT_FALSE(Exists("t/f"));
        unlink("other");
    }

    MakeDirs("t");
    WriteFile("t/f", "");
    if (KORX_ProtectFile("t/f") != 0 || (Mode("t/f") & 0222) == 0)
        GTEST_SKIP() << "no immutable files here";
    (void) logged();
    EXPECT_EQ(ORX_RmParentDir("t", kAll), 0u);
    EXPECT_NE(logged().find("\nI File 't/f' undo protect OK. \n"), std::string::npos);
}

// Opening one would block, reach another file or make a device act.
TEST_F(RemoveTree, NeverOpensWhatIsNoRegularFile) {
    MakeDirs("t");
    WriteFile("target", "");
    chmod("target", 0444);
    const auto expect_closed = [&](int made) {
        ASSERT_EQ(made, 0);
        const Fault fault("unlinkat", 1, EPERM, Fault::kAll);
        const CallCount opens("open"), entry_opens("openat");
        EXPECT_EQ(ORX_RmParentDir("t", kAll), kFailed);
        EXPECT_EQ(opens.value(), 1u) << "the start directory's own";
        EXPECT_EQ(entry_opens.value(), 0u);
        EXPECT_TRUE(
            logged().ends_with("\nE Delete the file t/e unsuccessfully again, because 1.\n"));
        unlink("t/e");
    };
    expect_closed(mkfifo("t/e", 0600));
    expect_closed(symlink("../target", "t/e"));

    // Files only until they have been looked at.
    ASSERT_EQ(symlink("../target", "link"), 0);
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    ASSERT_EQ(link("fifo", "stays"), 0);
    const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(opened, "fifo", IN_OPEN), 0);
    for (const char* other : {"link", "fifo"}) {
        MakeDirs("t");
        WriteFile("t/e", "");
        after_look = [other](const char*) {
            after_look = nullptr;
            ASSERT_EQ(rename(other, "t/e"), 0);
        };
        const Fault fault("unlinkat", 1, EPERM);
        EXPECT_EQ(ORX_RmParentDir("t", kAll), 0u) << other;
    }
    EXPECT_EQ(Mode("target"), 0444u);
    inotify_event event;
    EXPECT_EQ(read(opened, &event, sizeof event), -1) << "the FIFO has been opened";
    close(opened);

    MakeDirs("t");
    if (mknod("t/e", S_IFCHR | 0600, makedev(1, 3)) != 0 && errno == EPERM)
        GTEST_SKIP() << "no device nodes here";
    (void) logged();
    expect_closed(Exists("t/e") ? 0 : -1);
}

TEST_F(RemoveTree, StaysInTheTreeWhenEntriesAreSwapped) {
    const struct {
        int32_t mode;
        std::string_view moment;  // the entry that is looked at then
        const char *moved, *link;
    } rows[] = {
        {kKeep, "victim", "t/d/victim", "../../keep"},
        {kAll, "victim", "t/d/victim", "../../keep"},
        {kAll, "victim", "t/d", "../keep"},  // before its subdirectory is entered
        {kAll, "last", "t/d", "../keep"},    // and before that is removed
    };
    for (const auto& row : rows) {
        build();
        MakeDirs("keep/victim");
        MakeDirs("t/d/victim");
        WriteFile("t/d/victim/last", "");
        after_look = [&row](const char* name) {
            if (name != row.moment)
                return;
            after_look = nullptr;
            ASSERT_EQ(rename(row.moved, "moved"), 0);
            ASSERT_EQ(symlink(row.link, row.moved), 0);
        };
        const Fault types = UntoldTypes(row.moment == "last" ? 1 : 9999);
        (void) ORX_RmParentDir("t", row.mode);
        EXPECT_TRUE(Exists("moved") && Exists("keep/victim")) << row.moment;
        EXPECT_EQ(ReadFile("keep/file"), "kept");
        for (const char* left : {"t", "moved"})
            ORX_RmParentDir(left, kAll);
    }
}

TEST_F(RemoveTree, WideAndDeepTreesNeedFewDescriptors) {
    ASSERT_EQ(chdir("/dev/shm"), 0);  // a journal would make it slow
    MakeDirs("t/wide");
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "t/wide/" + std::to_string(i);
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        WriteFile(name + "/f", "");
    }
    std::string deep = "t";
    while (deep.size() + 4 <= 255)
        deep += "/d";
    MakeDirs(deep);
    WriteFile(deep + "/f", "");
    EXPECT_EQ(RunChild([] {
                  rlim_t few = 0;  // leaves six, whatever is open already
                  for (int left = 0; left < 6; ++few)
                      left += fcntl(int(few), F_GETFD) < 0 ? 1 : 0;
                  const rlimit limit = {few, few};
                  setrlimit(RLIMIT_NOFILE, &limit);
                  return ORX_RmParentDir("t", kKeep) == 0 && Exists("t/wide/999") &&
                                 ORX_RmParentDir("t", kAll) == 0
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_FALSE(Exists("t"));
}

TEST_F(RemoveTree, StopsAtEachFailure) {
    struct Row {
        const char* call;
        unsigned nth;
        uint32_t remove_all, keep;  // results
    };
    for (const Row& row : {Row{"malloc", 1, kFailed, kFailed}, Row{"malloc", 2, kFailed, kFailed},
                           Row{"malloc", 3, kFailed, kFailed}, Row{"malloc", 4, kFailed, kFailed},
                           Row{"malloc", 5, kFailed, kFailed}, Row{"fdopendir", 2, 0, kFailed},
                           Row{"readdir", 1, kFailed, kFailed}, Row{"rmdir", 1, kFailed, 0}}) {
        for (const int32_t mode : {kKeep, kAll}) {
            MakeDirs("t/sub");
            const uint32_t result = mode == kKeep ? row.keep : row.remove_all;
            const Fault fault(row.call, row.nth, EIO);
            EXPECT_EQ(ORX_RmParentDir("t", mode), result) << row.call << row.nth;
            EXPECT_EQ(levels(), fault.hits() == 0 ? "" : "E") << row.call << row.nth;
        }
    }
}

}  // namespace
}  // namespace korx::test
