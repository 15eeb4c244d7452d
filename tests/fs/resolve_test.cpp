#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalidParam = 0x71000002;
using Lines = std::vector<SyslogLine>;
using Resolver = uint32_t (*)(const char*, char*, uint32_t);

SyslogLine Err(const std::string& text) {
    return {3, "[0] " + text + "\n"};
}

struct Resolve : RoomTest {
    Resolve() {
        MakeDirs("d/sub");
        WriteFile("d/f", "text");
        EXPECT_EQ(symlink("d", "ld"), 0);
        EXPECT_EQ(symlink("d/f", "lf"), 0);
        EXPECT_EQ(symlink("d/new", "dangling"), 0);
    }
    // Output that was there before must not survive a failure, and what lies behind must stay.
    void expect(Resolver resolve, const std::string& name, uint32_t size, uint32_t result,
                const std::string& out) {
        std::string buffer(size, 'x');
        buffer += "?";
        if (size != 0)
            buffer[size - 1] = '\0';
        EXPECT_EQ(resolve(name.c_str(), buffer.data(), size), result) << name;
        EXPECT_EQ(buffer.back(), '?') << name;
        if (size != 0) {
            EXPECT_EQ(buffer.c_str(), out) << name;
        }
    }
};

TEST_F(Resolve, KeepsTheLastComponentAsItIs) {
    const std::string root = tree.root(), n127(127, 'n'), d255(255, '/');
    const uint32_t fits = uint32_t(root.size() + 5);  // with "/d/f"
    const struct {
        std::string name;
        uint32_t size, result;
        std::string out;
    } rows[] = {
        {"ld/../d/./f", 256, 0, root + "/d/f"},
        {"ld/missing", 256, 0, root + "/d/missing"},
        {"./lf", 256, 0, root + "/lf"},
        {"d/..", 256, 0, root + "/d/.."},
        {"d/", 256, 0, root + "/d/"},
        {"/x", 256, 0, "//x"},
        {d255 + n127, 256, 0, "//" + n127},
        {"/" + d255 + "x", 256, kFailed, ""},
        {"/" + n127 + "n", 256, kFailed, ""},
        {"f", 256, kFailed, ""},
        {"", 256, kFailed, ""},
        {"none/f", 256, kFailed, ""},
        {"d/f/x", 256, kFailed, ""},
        {"d/f", fits, 0, root + "/d/f"},
        {"d/f", fits - 1, kFailed, ""},
        {"d/f", 1, kFailed, ""},
        {"d/f", 0, kInvalidParam, ""},
    };
    for (const auto& row : rows)
        expect(ORX_GetAbsolutePathAndFileName, row.name, row.size, row.result, row.out);
    syslog.clear();
    expect(ORX_GetAbsolutePathAndFileName, "f", 256, kFailed, "");
    expect(ORX_GetAbsolutePathAndFileName, "d/f", 3, kFailed, "");
    expect(ORX_GetAbsolutePathAndFileName, "d/f", 0, kInvalidParam, "");
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("return of realpath is null when get the abolute path, errno=2."),
                     Err("Get the abolute path and file name of file d/f unsuccessfully. "
                         "RetCode=0. "),
                     Err("Input invalid. BufLen = 0")}));
    EXPECT_EQ(ORX_GetAbsolutePathAndFileName(nullptr, nullptr, 8), kFailed);
}

TEST_F(Resolve, TextAloneNeedsNothingToExist) {
    const std::string root = tree.root(), c127(127, 'c');
    const struct {
        std::string name;
        uint32_t size, result;
        std::string out;
    } rows[] = {
        {"//a/./b//c/..", 256, 0, "/a/b/"},
        {"/a/b/../c", 256, 0, "/a/c"},
        {"/a/..", 256, 0, "/"},
        {"/..", 256, kFailed, ""},
        {"/a/../..", 256, kFailed, ""},
        {"/.../..b", 256, 0, "/.../..b"},
        {"ld/../x", 256, 0, root + "/x"},
        {"", 256, 0, root},
        {"/" + c127 + "/a/", 256, 0, "/" + c127 + "/a"},
        {"/a/" + c127 + "c", 256, kFailed, ""},
        {"/a/bc", 6, 0, "/a/bc"},
        {"/a/bc", 5, kFailed, ""},
        {"/", 1, kFailed, ""},
        {"a", 3, kFailed, ""},
        {"/", 0, kFailed, ""},
    };
    for (const auto& row : rows)
        expect(KORX_Trans2AbsolutePath, row.name, row.size, row.result, row.out);
    syslog.clear();
    expect(KORX_Trans2AbsolutePath, "/a/" + c127 + "c/x", 256, kFailed, "");
    expect(KORX_Trans2AbsolutePath, "/", 1, kFailed, "");
    expect(KORX_Trans2AbsolutePath, "a", 3, kFailed, "");
    EXPECT_EQ(KORX_Trans2AbsolutePath("a", nullptr, 0), kFailed) << "and nothing is allocated";
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("file name too long, file = " + c127 + "c/x."),
                     Err("return of strncpy_s is error, file = /, uiBufLen = 1. ret = 34"),
                     Err("return of getcwd is null when get current path, errno=34."),
                     Err("return of getcwd is null when get current path, errno=22.")}));
}

TEST_F(Resolve, AppliesOneComponent) {
    const struct {
        const char *path, *component;
        uint32_t size, result;
        const char* after;
    } rows[] = {
        {"/a", "b", 5, 0, "/a/b"},
        {"/a", "b", 4, kFailed, "/a"},
        {"/a/", "b", 5, 0, "/a/b"},
        {"/a/", "b", 4, kFailed, "/a/"},
        {"/", ".", 2, 0, "/"},
        {"/", "..", 2, kFailed, "/"},
        {"/a/b/", "..", 9, 0, "/a/"},
        {"/a//", "..", 9, 0, "/a/"},
        {"/a", "..", 9, 0, "/"},
        {"a/b", "..", 9, 0, "a/"},
        {"abc", "..", 9, kFailed, "abc"},
        {"", "b", 3, 0, "/b"},
        {"/a", "b", 2, kFailed, "/a"},
        {"/a", "b", 0, kFailed, "/a"},
    };
    for (const auto& row : rows) {
        char path[16];
        strcpy(path, row.path);
        EXPECT_EQ(ORX_PathCat(row.component, path, row.size), row.result) << row.path;
        EXPECT_STREQ(path, row.after) << row.component;
    }
    char empty[2] = "";
    EXPECT_EQ(ORX_PathCatDoubleDot(empty), kFailed);
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Input invalid. pathLen = 2"), Err("Input invalid. pathLen = 2"),
                     Err("Input invalid. pathLen = 0")}));

    expect(ORX_GetDirectory, "abc/d", 4, 0, "abc");
    expect(ORX_GetDirectory, "abc", 4, 0, "abc");
    expect(ORX_GetDirectory, "abc/d", 3, kFailed, "");
    expect(ORX_GetDirectory, "/abc", 1, 0, "");
    expect(ORX_GetDirectory, "/abc", 0, kFailed, "");
    EXPECT_EQ(syslog.lines().back(), Err("file name too long, file = /abc."));
}

TEST_F(Resolve, CanonicalNamesFollowWhatExists) {
    const std::string root = tree.root();
    const struct {
        std::string name, existing, either;  // "" fails
    } rows[] = {
        {"lf", root + "/d/f", root + "/d/f"},
        {"ld/.", root + "/d", root + "/d"},
        {"ld/new", "", root + "/d/new"},
        {"./dangling", "", root + "/dangling"},
        {"new", "", ""},
        {"none/new", "", ""},
        {"/" + std::string(128, 'n'), "", ""},
    };
    for (const auto& row : rows) {
        const std::pair<Resolver, std::string> results[] = {
            {KORX_Trans2CanonicalFilepath, row.existing}, {KORX_GetCanonicalFilepath, row.either}};
        for (const auto& [resolve, out] : results) {
            expect(resolve, row.name, 256, out.empty() ? kFailed : 0, out);
            if (!out.empty()) {
                expect(resolve, row.name, uint32_t(out.size() + 1), 0, out);
                expect(resolve, row.name, uint32_t(out.size()), kFailed, "");
                expect(resolve, row.name, 0, kFailed, "");
            }
            char in_place[256];
            strcpy(in_place, row.name.c_str());
            EXPECT_EQ(resolve(in_place, in_place, sizeof in_place), out.empty() ? kFailed : 0);
            EXPECT_EQ(in_place, out) << row.name;
        }
    }
    syslog.clear();
    expect(KORX_GetCanonicalFilepath, "none/new", 256, kFailed, "");
    expect(KORX_GetCanonicalFilepath, "lf", 4, kFailed, "");
    EXPECT_EQ(KORX_GetCanonicalFilepath(nullptr, nullptr, 4), kFailed);
    {
        const Fault fault("realpath", 1, EIO);
        expect(KORX_GetCanonicalFilepath, "lf", 256, kFailed, "");
    }
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Get file real path failed, filepath: none/, errno = 2."),
                     Err("Get the abolute path unsuccessfully, path : none/new"),
                     Err("CanopathLen(4) is not enougth"), Err("Parameter error"),
                     Err("Get file real path failed, filepath: lf, errno = 5."),
                     Err("Get the abolute path unsuccessfully when file is exist, file : lf")}));
}

TEST_F(Resolve, OpensInTheResolvedDirectory) {
    const struct {
        std::string name;
        bool opens;
    } rows[] = {
        {"new", true},
        {"ld/new2", true},
        {"d/sub/", false},  // opened as "sub", for writing
        {"none/new", false},
        {"", false},
        {"./" + std::string(382, '/') + "x", false},
        {"./" + std::string(381, '/') + "x", true},
    };
    for (const auto& row : rows) {
        const int fd =
            ZUVA_CanonicalOpenUseMode(row.name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        EXPECT_EQ(fd >= 0, row.opens) << row.name;
        if (fd >= 0) {
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(Mode(row.name), 0600u);
            EXPECT_EQ(ZUVA_CanonicalClose(fd), 0);
            EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        }
    }
    syslog.clear();
    const std::string n385(385, 'n'), longest = "/" + std::string(126, '/') + std::string(257, 'n');
    EXPECT_EQ(ZUVA_CanonicalOpen(n385.c_str(), O_RDONLY), -1);
    EXPECT_EQ(ZUVA_CanonicalOpen("none/x", O_RDONLY), -1);
    EXPECT_EQ(ZUVA_CanonicalOpen(longest.c_str(), O_RDONLY), -1) << "384 characters are tried";
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Name length(385) is illegal, name: " + n385 + "."),
                     Err("Failed to transform files none into canonical form. error: 2.")}));
    EXPECT_EQ(ZUVA_CanonicalClose(0), -1);
    EXPECT_GE(fcntl(0, F_GETFD), 0) << "left open";
}

TEST_F(Resolve, ComparesAndShortensText) {
    const std::string a255(255, 'a'), a256(256, 'a');
    EXPECT_EQ(ORX_CmpLinuxDirStr("/a/b/", "/a/b"), 0);
    EXPECT_NE(ORX_CmpLinuxDirStr("/a//", "/a"), 0);
    EXPECT_LT(ORX_CmpLinuxDirStr("/a", "/b/"), 0);
    EXPECT_EQ(ORX_CmpLinuxDirStr(a255.c_str(), a255.c_str()), 0);
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(ORX_CmpLinuxDirStr(a256.c_str(), "b"), 1);
    EXPECT_EQ(ORX_CmpLinuxDirStr(nullptr, "b"), 1);
    EXPECT_EQ(syslog.lines()[0],
              Err("[ORXFS-LOCAL] ORX_CmpLinuxDirStr:" + a256 + " or b is too long!"));
    char slash[] = "/", none[] = "";
    EXPECT_STREQ(ORX_DelSlashInPathEnd(slash, 0), "");
    EXPECT_EQ(ORX_DelSlashInPathEnd(none, 0), none);

    const std::string find = "[ORXFS-LOCAL]Get parent dir parent find pre slash: ";
    const std::string s253 = "/" + std::string(252, 'a') + "/x";  // its last '/' is at index 253
    const struct {
        std::string path;
        std::string parent;  // "" fails
        std::string line;
    } rows[] = {
        {"/a/b/c", "/a/b/", ""},
        {"/a/b/c/", "/a/b/", ""},
        {"/a", "/", ""},
        {"a/b", "a/", ""},
        {"/a//", "/a/", ""},
        {s253, s253.substr(0, 254), ""},
        {"/" + s253, "", find + "1, parent path len: 255!"},
        {"abc", "", find + "0, parent path len: 0!"},
        {"a/", "", find + "0, parent path len: 0!"},
        {"//", "/", ""},
        {"/", "", "[ORXFS-LOCAL]Get parent dir path len is 0!"},
        {"", "", "[ORXFS-LOCAL]Get parent dir path len is 0!"},
    };
    for (const auto& row : rows) {
        const uint32_t result = row.parent.empty() ? kFailed : 0;
        char parent[256] = "old", in_place[512];
        syslog.clear();
        EXPECT_EQ(KORX_GetParentDir(row.path.c_str(), parent), result) << row.path;
        EXPECT_EQ(parent, result == 0 ? row.parent : "old");
        EXPECT_EQ(syslog.lines(), result == 0 ? Lines{} : Lines{Err(row.line)});
        strcpy(in_place, row.path.c_str());
        EXPECT_EQ(KORX_GetParentDir(in_place, in_place), result) << row.path;
        EXPECT_EQ(in_place, result == 0 ? row.parent : row.path);
    }
}

TEST_F(Resolve, CreatesWhatIsMissing) {
    umask(077);
    EXPECT_EQ(ORX_CreateDirByFile("x/./y/file"), 0u);
    EXPECT_EQ(Mode("x/y"), 0750u);
    EXPECT_FALSE(Exists("x/y/file"));
    chmod("x/y", 0700);
    EXPECT_EQ(ORX_CreateDirByFile("x/y/file"), 0u);
    EXPECT_EQ(Mode("x/y"), 0700u) << "what is there is left alone";
    EXPECT_EQ(ORX_CreateDirByFile("/.."), kFailed);
    EXPECT_EQ(syslog.lines(), (Lines{Err("ORX_Trans2AbsolutePath failed, file:/..")}));

    umask(027);
    EXPECT_EQ(KORX_CreateFile("./new"), 0u);
    EXPECT_EQ(Mode("new"), 0640u);
    EXPECT_EQ(KORX_CreateFile("./dangling"), 0u);
    EXPECT_TRUE(Exists("d/new"));
    EXPECT_EQ(KORX_CreateFile("lf"), 0u);
    {
        const Fault appeared("stat", 1, ENOENT);  // as if the file came right afterwards
        EXPECT_EQ(KORX_CreateFile("./lf"), 0u);
    }
    EXPECT_EQ(ReadFile("d/f"), "text");
    syslog.clear();
    EXPECT_EQ(KORX_CreateFile("bare"), kFailed);
    EXPECT_EQ(KORX_CreateFile("d/f/x"), kFailed);
    EXPECT_EQ(syslog.lines().back(),
              Err("get absolute path and file name failed, fullRpgFilelistInfo:d/f/x"));
    const Fault fault("open", 1, ENOSPC);
    EXPECT_EQ(KORX_CreateFile("./more"), kFailed);
    EXPECT_EQ(syslog.lines().back(), Err("Create file (./more) unsuccessfully, errno=28."));
}

}  // namespace
}  // namespace korx::test
