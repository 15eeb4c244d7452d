#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalidParam = 0x71000002;
using Lines = std::vector<SyslogLine>;

SyslogLine Info(const std::string& text) {
    return {6, "[0] " + text + "\n"};
}
SyslogLine Err(const std::string& text) {
    return {3, "[0] " + text + "\n"};
}

std::string Contents(const std::string& link) {
    char text[512] = {};
    return readlink(link.c_str(), text, sizeof text - 1) < 0 ? "" : text;
}

struct Links : RoomTest {
    Links() {
        WriteFile("f", "text");
        MakeDirs("d/inner");
        MakeDirs("empty");
        EXPECT_EQ(symlink("f", "l"), 0);
        EXPECT_EQ(symlink("l", "chain"), 0);
        EXPECT_EQ(symlink("none", "dangling"), 0);
        EXPECT_EQ(link("f", "hard"), 0);
    }
};

TEST_F(Links, ComparesContentsNotTargets) {
    const struct {
        const char *expected, *path;
        int32_t result;
        Lines lines;
    } rows[] = {
        {"f", "l", 0, {}},
        {"none", "dangling", 4, {}},
        {"f", "nothing", 4, {}},
        {"f", "f", 11, {Info("File: f is not link.")}},
        {"./f", "l", 31, {Info("Link diff, src=l, cur=f, dst=./f")}},
    };
    for (const auto& row : rows) {
        syslog.clear();
        EXPECT_EQ(KORX_IsFileLinkRight(row.expected, row.path, 0), row.result) << row.path;
        EXPECT_EQ(syslog.lines(), row.lines);
    }
    const Fault fault("readlink", 1, EIO);
    EXPECT_EQ(KORX_IsFileLinkRight("f", "l", 0), 30);
}

TEST_F(Links, ReplacesWhatStandsThereButNotTheTarget) {
    const auto same = [](const std::string& target, const std::string& path) {
        return Lines{Err("Src File '" + target + "' is same to Dst File '" + path + "'.")};
    };
    const auto refused = [](const std::string& path, int remove_error) {
        return Lines{Err("remove file " + path +
                         " unsuccessfully.uiRet:-1, errno:" + std::to_string(remove_error)),
                     Err("Make symlink(" + path +
                         ") to file(f) unsuccessfully, ret=[0xffffffff], errno=[17].")};
    };
    const struct {
        const char *target, *path;
        uint32_t result;
        Lines lines;
    } rows[] = {
        {"f", "new", 0, {}},
        {"f", "dangling", 0, {}},
        {"f", "empty", 0, {}},
        {"f", "hard", 0, {}},
        {"chain", "new", 0, {}},
        {"f", "d", 27, refused("d", ENOTEMPTY)},
        {"f", "f", 12, same("f", "f")},
        {"f", "d/../f", 12, same("f", "d/../f")},
        {"chain", "l", 12, same("chain", "l")},
        {"chain", "./f", 12, same("chain", "./f")},
        {"d/inner/", "d/inner", 12, same("d/inner/", "d/inner")},
        {"d/inner/.", "./d/inner", 12, same("d/inner/.", "./d/inner")},
        {"none", "f", 4, {{4, "[0] File 'none' is not exist when link file!\n"}}},
    };
    for (const auto& row : rows) {
        syslog.clear();
        EXPECT_EQ(KORX_LinkFile(row.target, 0, row.path, 0), row.result) << row.path;
        EXPECT_EQ(syslog.lines(), row.lines);
        if (row.result == 0) {
            EXPECT_EQ(Contents(row.path), row.target);
        }
        EXPECT_EQ(ReadFile("chain"), "text") << row.path;
        EXPECT_TRUE(Exists("d/inner"));
        EXPECT_EQ(Contents("f"), "");
    }
}

TEST_F(Links, SafeLinkIsRelativeBelowOneRoot) {
    const std::string root = tree.root();
    MakeDirs("/opt/a/c");
    MakeDirs("/opt/a/b");
    WriteFile("/opt/a/b/f", "");
    const std::string d255 = root + std::string(255 - root.size(), '/');
    const std::string n127(127, 'n');
    const std::string e255 = "/opt/" + std::string(250, 'e');
    const struct {
        std::string directory, name, link_directory, link_name;
        const char* before;  // contents of an old link
        uint32_t result;
        std::string contents;
    } rows[] = {
        {"/opt/a/b", "f", "/opt/a/c/", "l", nullptr, 0, "../b/f"},
        {"/opt/a/b/", "f", "/opt/a/c", "l", "../b/f", 0, "../b/f"},
        {"/opt/a/b", "f", "/opt/a/c", "l", "/opt/a/b/f", 0, "/opt/a/b/f"},
        {"/opt/a/b", "f", "/opt/a/c", "l", "/opt/a/b", 0, "../b/f"},
        {"/opt/a/b", "none", "/opt/a/c", "l", "/opt/a/b/none", 0, "../b/none"},
        {root, "f", root, "new", nullptr, 0, root + "/f"},
        {root, "f", root, "new", "f", 0, root + "/f"},
        {"/opt/a/b", "f", root, "new", "none", 0, "/opt/a/b/f"},
        {"", "none", root, "new", nullptr, 0, "/none"},
        {d255, n127, root, n127, nullptr, 0, d255 + n127},
        {d255 + "/", "f", root, "new", "kept", kInvalidParam, "kept"},
        {root, "f", root, n127 + "n", nullptr, kInvalidParam, ""},
        {e255, n127, "/opt/a/c", "l", "kept", 27, "kept"},
    };
    for (const auto& row : rows) {
        const std::string link = row.link_directory + "/" + row.link_name;
        (void) unlink(link.c_str());
        if (row.before != nullptr) {
            ASSERT_EQ(symlink(row.before, link.c_str()), 0);
        }
        EXPECT_EQ(KORX_LinkFilesSafe(row.directory.c_str(), row.name.c_str(),
                                     row.link_directory.c_str(), row.link_name.c_str()),
                  row.result)
            << link;
        EXPECT_EQ(Contents(link), row.contents) << link;
    }
    EXPECT_EQ(syslog.lines().back(), Err("[TAV-LIB] TAV_GetRelPath unsuccessfully!"));
    EXPECT_EQ(KORX_LinkFilesSafe("", "", nullptr, ""), 1u);
    EXPECT_EQ(syslog.lines().back(), Err("KORX_LinkFilesSafeParaCheck unsuccessfully!"));
}

TEST_F(Links, SafeLinkLeavesAFileAlone) {
    const std::string link = tree.path("hard"), target = tree.path("f");
    EXPECT_EQ(KORX_LinkFilesSafe(tree.root().c_str(), "f", tree.root().c_str(), "hard"), 0u);
    EXPECT_EQ(Contents("hard"), "");
    EXPECT_EQ(syslog.lines(),
              (Lines{Info("TAV_LinkFile[Dest](" + link + ") to file[Src](" + target + ")"),
                     Info("ReadLink Really() size 383.")}));
    syslog.clear();
    const Fault fault("symlink", 1, EROFS, 2);
    EXPECT_EQ(KORX_LinkFilesSafe(tree.root().c_str(), "f", tree.root().c_str(), "hard"), kFailed);
    EXPECT_EQ(syslog.lines().back(), Err("Make symlink(" + link + ") to file(" + target +
                                         ") unsuccessfully, errcode=-1, errno=30."));
    const std::string dangling = tree.path("dangling");
    EXPECT_EQ(KORX_LinkFilesSafe(tree.root().c_str(), "f", tree.root().c_str(), "dangling"),
              kFailed);
    const Lines lines = syslog.lines();
    EXPECT_EQ(lines[lines.size() - 2],
              Info("Rudimental Link File ,Delete link file: " + dangling + "!"));
    EXPECT_EQ(lines.back(), Err("make symlink(" + dangling + ") to file(" + target +
                                ") unsuccessfully, errcode=-1, errno=30."));
}

TEST_F(Links, RelativePaths) {
    const struct {
        const char *source, *destination;
        uint32_t size, result;
        const char* out;
    } rows[] = {
        {"/opt/a/b/file", "/opt/a/c/link", 13, 0, "../b/file"},
        {"/opt/a/b/file", "/opt/a/c/link", 12, kFailed, ""},
        {"/opt/a/file", "/opt/a/link", 5, 0, "file"},
        {"/opt/a/file", "/opt/a/link", 4, kFailed, ""},
        {"/opt/file", "/opt/a/b/link", 17, 0, "../../file"},
        {"/opt/file", "/opt/a/b/link", 16, kFailed, ""},
        {"/opt/file", "/opt/a/b/link", 6, kFailed, ""},
        {"/opt/a/b/c/file", "/opt/a/link", 64, 0, "b/c/file"},
        {"/opt/x/file", "/opt/a/b/link", 64, 0, "../../x/file"},
        {"//opt//a/f", "/opt/a///b//l", 64, 0, "../f"},
        {"/opt/ab/f", "/opt/a/l", 64, 0, "../ab/f"},
        {"/opt/f", "/opt/f/l", 64, 0, "../f"},
        {"/f", "/l", 64, 0, "f"},
        {"/opt/a/", "/opt/a/x", 64, kFailed, ""},
        {"opt/a", "/opt/a/x", 64, kFailed, ""},
        {"/opt/a", "opt/a/x", 64, kFailed, ""},
        {nullptr, "/x", 64, 1, ""},
        {"/x", "/y", 0, kFailed, ""},
    };
    for (const auto& row : rows) {
        std::string out(row.size + 1, '\0');
        out[row.size] = '?';
        EXPECT_EQ(ORX_GetRelPath(row.source, row.destination, out.data(), row.size), row.result)
            << row.out;
        if (row.size != 0) {
            EXPECT_STREQ(out.c_str(), row.out);
        }
        EXPECT_EQ(out[row.size], '?');
    }
    char out[16] = "a:";
    EXPECT_EQ(ORX_GetRelPath("/a/f", "/b/l", out, sizeof out), 0u);
    EXPECT_STREQ(out, "a:../a/f");
    syslog.clear();
    EXPECT_EQ(ORX_GetRelPath("/o/a/", "/o/a/x", out, sizeof out), kFailed);
    EXPECT_EQ(ORX_GetRelPath("/o/a", "x", out, sizeof out), kFailed);
    out[0] = '\0';
    EXPECT_EQ(ORX_GetRelPath("/o/a", "/b/x", out, 6), kFailed);
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("The path is unsuccessfully, src[/o/a/]."),
                     Err("TAV_GetRelPath input must be absolute path."),
                     Err("nRet = 34. Splice pcSrcDirPtr behind pcRelSrcPath unsuccessfully. "
                         "pcSrcDirPtr = o/a, pcRelSrcPath = .")}));
}

// What a walk saw, and where it is to turn.
struct Seen {
    std::multiset<std::string> directories, files;
    std::string root, skip, stop_in, fail_at;
    uint32_t flags = 0;  // seen before the callback changed them, each in its own bit

    static uint32_t Directory(const char* root, const char* path, uint32_t* flag, void* context) {
        auto* const seen = static_cast<Seen*>(context);
        seen->root = root;
        seen->directories.insert(path);
        seen->flags |= 1u << *flag;
        *flag = path != seen->skip;
        return path == seen->fail_at ? 77 : 0;
    }
    static uint32_t File(const char* root, const char* path, uint32_t* flag, void* context) {
        auto* const seen = static_cast<Seen*>(context);
        seen->root = root;
        seen->files.insert(path);
        seen->flags |= 4u << *flag;
        *flag = !seen->stop_in.empty() && std::string(path).rfind(seen->stop_in, 0) == 0;
        return path == seen->fail_at ? 88 : 0;
    }
    uint32_t walk(const char* from, bool directory_callback = true) {
        return ORX_WalkDirRecur(from, nullptr, directory_callback ? Directory : nullptr, File,
                                this);
    }
};

struct Walk : RoomTest {
    Walk() {
        MakeDirs("r/a/deep/er");
        MakeDirs("r/b");
        MakeDirs("outside/x");
        for (const char* name : {"r/1", "r/a/2", "r/a/3", "r/a/deep/4", "r/a/deep/er/5", "r/b/6"})
            WriteFile(name, "");
        EXPECT_EQ(symlink("../outside", "r/to_directory"), 0);
        EXPECT_EQ(symlink("none", "r/b/dangling"), 0);
        EXPECT_EQ(mkfifo("r/fifo", 0600), 0);
    }
    static int lowest_free_descriptor() {
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(fd);
        return fd;
    }
};
using Names = std::multiset<std::string>;

TEST_F(Walk, SeesEveryFileAndLinkOnce) {
    const Names files = {"1",           "a/2", "a/3",        "a/deep/4",
                         "a/deep/er/5", "b/6", "b/dangling", "to_directory"};
    Seen seen;
    EXPECT_EQ(seen.walk("./r"), 0u);
    EXPECT_EQ(seen.files, files);
    EXPECT_EQ(seen.directories, (Names{"a", "a/deep", "a/deep/er", "b"}));
    EXPECT_EQ(seen.root, "./r");
    EXPECT_EQ(seen.flags, 2u | 4u) << "1 for each directory, 0 for each file";
    Seen all;
    EXPECT_EQ(all.walk("./r", false), 0u);
    EXPECT_EQ(all.files, files);
    Seen below;
    EXPECT_EQ(KORX_WalkDirRecurInner("r", "a/deep", Seen::Directory, Seen::File, &below), 0u);
    EXPECT_EQ(below.files, (Names{"a/deep/4", "a/deep/er/5"}));
}

TEST_F(Walk, TurnsWhereItIsTold) {
    Seen skip;
    skip.skip = "a";
    EXPECT_EQ(skip.walk("r"), 0u);
    EXPECT_EQ(skip.files, (Names{"1", "b/6", "b/dangling", "to_directory"}));
    EXPECT_EQ(skip.flags, 2u | 4u) << "the next directory is not skipped with it";

    Seen stop;
    stop.stop_in = "b/";
    EXPECT_EQ(stop.walk("r"), 0u);
    EXPECT_EQ(stop.files.count("b/6") + stop.files.count("b/dangling"), 1u);
    EXPECT_EQ(stop.files.size(), 7u) << "all others are seen";

    const int free = lowest_free_descriptor();
    for (const auto& [at, result] : {std::pair("a/deep/er", 77u), std::pair("a/deep/4", 88u)}) {
        Seen fail;
        fail.fail_at = at;
        EXPECT_EQ(fail.walk("r"), result);
    }
    EXPECT_EQ(lowest_free_descriptor(), free);
}

TEST_F(Walk, EndsAtTheFirstFailure) {
    Seen seen;
    EXPECT_EQ(seen.walk("none"), kFailed);
    {
        const Fault fault("opendir", 3, EACCES);
        EXPECT_EQ(seen.walk("r"), kFailed);
        EXPECT_EQ(fault.calls(), 3u) << "nothing is opened after it";
    }
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(seen.walk(nullptr), kFailed);
    EXPECT_EQ(ORX_WalkDirRecur("r", nullptr, Seen::Directory, nullptr, &seen), kFailed);
    const std::string line = "[ORXFS-LOCAL]In walk dir recur input null param";
    EXPECT_EQ(syslog.lines(), (Lines{Err(line), Err(line)}));
}

TEST_F(Walk, RefusesPathsThatDoNotFit) {
    const std::string a(200, 'a'), b(182, 'b');
    MakeDirs("q/" + a);
    WriteFile("q/" + a + "/" + b, "");  // 383 characters below the root
    Seen seen;
    EXPECT_EQ(seen.walk("q"), 0u);
    EXPECT_EQ(seen.files, (Names{a + "/" + b}));
    WriteFile("q/" + a + "/" + b + "b", "");
    EXPECT_EQ(seen.walk("q"), kFailed);
    const std::string root(382, '/');
    EXPECT_EQ(seen.walk((root + "/").c_str()), kFailed);
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Print RelFilePath unsuccessfully, RelFilePath=" + a + "/" + b + "b"),
                     Err("Print RootPath unsuccessfully, RootPath=" + root + "//")}));
    seen.skip = "x";
    const std::string longest = tree.path("outside");
    EXPECT_EQ(seen.walk((std::string(382 - longest.size(), '/') + longest).c_str()), 0u);
}

}  // namespace
}  // namespace korx::test
