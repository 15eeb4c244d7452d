#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

// Runs once, right after the removal has looked at an entry and before it acts on it.
std::function<void(const char* name)> after_look;

}  // namespace
}  // namespace korx::test

extern "C" int fstatat(int directory, const char* name, struct stat* st, int flags) {
    using Call = int (*)(int, const char*, struct stat*, int);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "fstatat"));
    const int result = next(directory, name, st, flags);
    if (korx::test::after_look)
        korx::test::after_look(name);
    return result;
}

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr int32_t kKeep = 0;
constexpr int32_t kAll = 1;
using Lines = std::vector<std::string>;

struct RemoveTree : RoomTest {
    ~RemoveTree() override { after_look = nullptr; }

    // The messages, without the "[0] " of the default log mode, that are about path.
    Lines logged(const std::string& part) {
        Lines lines;
        for (const std::string& text : syslog.texts()) {
            if (text.find(part) != std::string::npos)
                lines.push_back(text.substr(4, text.size() - 5));
        }
        syslog.clear();
        return lines;
    }

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
    EXPECT_EQ(logged(""), Lines{});
    EXPECT_TRUE(Exists("t/file"));

    EXPECT_EQ(ORX_RmParentDir(tree.path("t/").c_str(), kKeep), 0u);
    for (const char* directory : {"t/a/b/c", "t/-rf"})
        EXPECT_EQ(rmdir(directory), 0) << directory << " is kept and empty";
    EXPECT_EQ(rmdir("t/a/b"), 0);
    EXPECT_EQ(logged("t/file"), Lines{"Delete the file " + tree.path("t/file") + " Successfully."});

    EXPECT_EQ(ORX_RmParentDir("t/", kAll), 0u);
    build();
    syslog.clear();
    EXPECT_EQ(ORX_RmParentDir("t/", kAll), 0u);
    EXPECT_EQ(logged(""), Lines{});
    EXPECT_FALSE(Exists("t"));
    EXPECT_EQ(ReadFile("keep/file"), "kept");
}

TEST_F(RemoveTree, StartMayBeMissingOrALink) {
    EXPECT_EQ(ORX_RmParentDir("no", kAll), 0u);
    EXPECT_EQ(ORX_RmParentDir("no", kKeep), kFailed);
    EXPECT_EQ(ORX_RmParentDir("", kAll), 0u);
    EXPECT_EQ(logged(""),
              (Lines{"Dir:no open unsuccessfully, errno:2!", "Dir:no not Exist, errno:2!",
                     "Dir: open unsuccessfully, errno:2!"}));
    EXPECT_EQ(ORX_RmParentDir(nullptr, kAll), kFailed);

    build();
    ASSERT_EQ(symlink("t", "link"), 0);
    EXPECT_EQ(ORX_RmParentDir("link", kKeep), 0u);
    EXPECT_TRUE(Exists("t/a/b/c"));
    EXPECT_FALSE(Exists("t/a/fifo"));
    EXPECT_EQ(ORX_RmParentDir("link/", kAll), kFailed) << "the link itself is no directory";
    EXPECT_FALSE(Exists("t/a"));
}

TEST_F(RemoveTree, LimitsPathsTo255Characters) {
    const std::string longest = "./" + std::string(252, '/') + "t";
    ASSERT_EQ(longest.size(), 255u);
    MakeDirs("t");
    EXPECT_EQ(ORX_RmParentDir(longest.c_str(), kKeep), 0u) << "'.' and '..' need no room";
    for (const int32_t mode : {kKeep, kAll}) {
        EXPECT_EQ(ORX_RmParentDir((longest + "t").c_str(), mode), kFailed);
        EXPECT_EQ(logged(""), Lines{"Remove Diretory " + longest +
                                    "t unsuccessfully, Path is Too Long. PathLen = 256!"});
    }

    // Entry paths of 255 and 256 characters.
    const std::string start = std::string(100, '/').replace(0, 1, ".") + "t";
    const std::string name(255 - start.size() - 1, 'n');
    WriteFile("t/" + name, "");
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kKeep), 0u);
    EXPECT_FALSE(Exists("t/" + name));
    WriteFile("t/" + name + "n", "");
    syslog.clear();
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kKeep), kFailed);
    EXPECT_EQ(ORX_RmParentDir(start.c_str(), kAll), kFailed);
    EXPECT_EQ(logged(""),
              (Lines{"print acTmpTopDir, d_name unsuccessfully, acTmpTopDir=" + start +
                         ", acTmpTopDir=" + name + "n.",
                     "print Diretory unsuccessfully, Diretory=" + start + "/" + name + "n"}));
    EXPECT_TRUE(Exists("t/" + name + "n"));
}

TEST_F(RemoveTree, UnprotectsAFileAndTriesAgain) {
    const struct {
        int32_t mode;
        const char* first;
        const char* second;
    } rows[] = {
        {kAll, "Delete the file t/f unsuccessfully, because 1, unprotect and try it again.",
         "Delete the file t/f ok, after undo protectl."},
        {kKeep, "Delete the file t/f unsuccessfully, because 1, unprotect and try it again,",
         "Delete the file t/f Successfully, after undo protectl."},
    };
    for (const auto& row : rows) {
        MakeDirs("t");
        WriteFile("t/f", "");
        ASSERT_EQ(link("t/f", "other"), 0);
        chmod("t/f", 0400);
        {
            const Fault fault("unlinkat", 1, EPERM);
            EXPECT_EQ(ORX_RmParentDir("t", row.mode), 0u);
        }
        EXPECT_EQ(Mode("other"), 0622u);
        EXPECT_EQ(logged("Delete the file"), (Lines{row.first, row.second}));
        EXPECT_FALSE(Exists("t/f"));
        unlink("other");
    }

    ORX_RmParentDir("t", kAll);
    MakeDirs("t");
    WriteFile("t/f", "");
    if (KORX_ProtectFile("t/f") != 0 || (Mode("t/f") & 0222) == 0)
        GTEST_SKIP() << "no immutable files here";
    syslog.clear();
    EXPECT_EQ(ORX_RmParentDir("t", kAll), 0u);
    EXPECT_EQ(logged("t/f"),
              (Lines{rows[0].first, "File 't/f' undo protect OK. ", rows[0].second}));
}

// Opening one would block, reach another file or make a device act.
TEST_F(RemoveTree, NeverOpensWhatIsNoRegularFile) {
    MakeDirs("t");
    WriteFile("target", "");
    chmod("target", 0444);
    const std::function<int()> makers[] = {
        [] { return mkfifo("t/e", 0600); },
        [] { return symlink("../target", "t/e"); },
        [] { return mknod("t/e", S_IFCHR | 0600, makedev(1, 3)); },
    };
    for (const auto& make : makers) {
        ASSERT_EQ(make(), 0);
        const Fault fault("unlinkat", 1, EPERM, Fault::kAll);
        const CallCount opens("openat");
        EXPECT_EQ(ORX_RmParentDir("t", kAll), kFailed);
        EXPECT_EQ(opens.value(), 1u) << "the start directory's own";
        EXPECT_EQ(
            logged(""),
            (Lines{"Delete the file t/e unsuccessfully, because 1, unprotect and try it again.",
                   "Delete the file t/e unsuccessfully again, because 1."}));
        unlink("t/e");
    }

    WriteFile("t/e", "");  // a file only until it has been looked at
    after_look = [](const char*) {
        after_look = nullptr;
        unlink("t/e");
        ASSERT_EQ(symlink("../target", "t/e"), 0);
    };
    const Fault fault("unlinkat", 1, EPERM);
    EXPECT_EQ(ORX_RmParentDir("t", kAll), 0u);
    EXPECT_EQ(Mode("target"), 0444u);
}

TEST_F(RemoveTree, StaysInTheTreeWhenEntriesAreSwapped) {
    const auto swap_for_link = [](const char* name) {
        if (name != std::string_view("victim"))
            return;
        after_look = nullptr;
        ASSERT_EQ(rename("t/d/victim", "moved"), 0);
        ASSERT_EQ(symlink("../../keep", "t/d/victim"), 0);
    };
    for (const int32_t mode : {kKeep, kAll}) {
        build();
        MakeDirs("t/d/victim");
        after_look = swap_for_link;
        (void) ORX_RmParentDir("t", mode);
        EXPECT_TRUE(Exists("moved"));
        EXPECT_EQ(ReadFile("keep/file"), "kept");
        ORX_RmParentDir("t", kAll);
        remove("moved");
    }

    // A parent swapped before its subdirectory is entered, and before that is removed.
    for (const std::string_view moment : {"victim", "last"}) {
        build();
        MakeDirs("keep/victim");
        MakeDirs("t/d/victim");
        WriteFile("t/d/victim/last", "");
        after_look = [moment](const char* name) {
            if (name != moment)
                return;
            after_look = nullptr;
            ASSERT_EQ(rename("t/d", "moved"), 0);
            ASSERT_EQ(symlink("../keep", "t/d"), 0);
        };
        (void) ORX_RmParentDir("t", kAll);
        EXPECT_TRUE(Exists("keep/victim")) << moment;
        EXPECT_EQ(ReadFile("keep/file"), "kept");
        ORX_RmParentDir("t", kAll);
        ORX_RmParentDir("moved", kAll);
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
                  const rlimit few = {12, 12};
                  setrlimit(RLIMIT_NOFILE, &few);
                  return ORX_RmParentDir("t", kKeep) == 0 && Exists("t/wide/999") &&
                                 ORX_RmParentDir("t", kAll) == 0
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_FALSE(Exists("t"));
}

TEST_F(RemoveTree, ReportsEachFailureAndStops) {
    const struct {
        const char* call;
        unsigned nth;
        int error;
        int32_t mode;
        uint32_t result;
        const char* line;
    } rows[] = {
        {"malloc", 1, ENOMEM, kAll, kFailed, "Malloc Memory for Directory t unsuccessfully."},
        {"malloc", 2, ENOMEM, kAll, kFailed, "Create Directory t Stack unsuccessfully!"},
        {"malloc", 3, ENOMEM, kAll, kFailed, "Push Top Directory Into Stack unsuccessfully!"},
        {"malloc", 4, ENOMEM, kAll, kFailed, "Malloc Memory for Directory String unsuccessfully."},
        {"malloc", 5, ENOMEM, kAll, kFailed,
         "[ORX-LIB] Push SubDirectory Into Stack unsuccessfully!"},
        {"malloc", 4, ENOMEM, kKeep, kFailed,
         "Malloc Memory for Directory String unsuccessfully, acTmpDirPath = t/sub."},
        {"malloc", 5, ENOMEM, kKeep, kFailed,
         "Push SubDirectory Into Stack unsuccessfully, pcTmpDirPath = t/sub."},
        {"fdopendir", 2, ENOMEM, kAll, 0, "Dir:t/sub open unsuccessfully, errno:12!"},
        {"fdopendir", 2, ENOMEM, kKeep, kFailed, "Dir:t/sub not Exist, errno:12!"},
        {"readdir", 1, EIO, kKeep, kFailed, "Dir:t not Exist, errno:5!"},
        {"readdir", 1, EIO, kAll, kFailed,
         "[ORX-LIB] Delete the Directory t unsuccessfully, because 39!"},
        {"rmdir", 1, EBUSY, kAll, kFailed,
         "[ORX-LIB] Delete the Directory t unsuccessfully, because 16!"},
    };
    for (const auto& row : rows) {
        MakeDirs("t/sub");
        syslog.clear();
        const Fault fault(row.call, row.nth, row.error);
        EXPECT_EQ(ORX_RmParentDir("t", row.mode), row.result) << row.line;
        EXPECT_EQ(logged(""), Lines{row.line});
    }
}

}  // namespace
}  // namespace korx::test
