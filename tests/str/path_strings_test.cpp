#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>

#include "korx/str.h"
#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

using Lines = std::vector<SyslogLine>;

using PathStrings = RoomTest;

TEST_F(PathStrings, EndInOneSeparator) {
    for (const auto& [text, left] :
         {std::pair{"", ""}, {"a", "a/"}, {"a/", "a/"}, {"a\\", "a\\"}}) {
        char path[3] = {};
        strcpy(path, text);
        ORX_EnSureExistPathSep(path, sizeof path);
        EXPECT_STREQ(path, left);
    }
    ORX_EnSureExistPathSep(nullptr, 8);
    EXPECT_EQ(syslog.lines(), Lines{});

    char full[] = "ab#";
    full[2] = '\0';
    ORX_EnSureExistPathSep(full, 3);
    EXPECT_EQ(full[2], '\0');
    EXPECT_EQ(syslog.lines(),
              (Lines{{LOG_ERR, "[0] str cat pszFileName unsuccessfully.return value is 34\n"}}));
}

TEST_F(PathStrings, SplitBehindTheLastSeparator) {
    struct Row {
        const char* path;
        const char* directory;
        const char* name;
    };
    for (const Row& row : {Row{"/opt/a/b.txt", "/opt/a/", "b.txt"}, Row{"b.txt", "", "b.txt"},
                           Row{"dir/", "dir/", ""}, Row{"/b.txt", "/", "b.txt"},
                           Row{"a/b\\c", "a/b\\", "c"}, Row{"/", "/", ""}}) {
        char directory[8] = "old", name[6] = "old";
        EXPECT_EQ(ORX_SplitPathFileName(row.path, directory, sizeof directory, name, sizeof name),
                  1u);
        EXPECT_STREQ(directory, row.directory);
        EXPECT_STREQ(name, row.name);
        EXPECT_EQ(ORX_SplitPathFileName(row.path, nullptr, 0, nullptr, 0), 1u);
    }
    char directory[8] = "old", name[8] = "old";
    EXPECT_EQ(ORX_SplitPathFileName(nullptr, directory, 8, name, 8), 0u);
    EXPECT_STREQ(directory, "old");
    EXPECT_EQ(ORX_SplitPathFileName("", directory, 8, name, 8), 0u);
    EXPECT_STREQ(directory, "");
    EXPECT_STREQ(name, "");
    EXPECT_EQ(syslog.lines(), Lines{});
}

TEST_F(PathStrings, RefuseToSplitIntoShortBuffers) {
    struct Row {
        const char* path;
        uint32_t directory_size;
        uint32_t name_size;
        const char* report;
    };
    for (
        const Row& row : {
            Row{"name", 1, 4, "nRet=34.Copy FileName:name unsuccessfully, FileNameLen=4."},
            Row{"/d/name", 3, 9,
                "nRet=34.Copy string FileName:/d/name unsuccessfully, FileNameLen=3."},
            Row{"/d/name", 4, 4,
                "nRet=34.Strncpy FileName unsuccessfully.FileName=name, FileNameLen=4, bufflen=4."},
            Row{"/d/", 0, 9, "nRet=22.Copy string FileName:/d/ unsuccessfully, FileNameLen=3."},
            Row{"name", 0, 9, "nRet=22.Copy string FileName:name unsuccessfully, FileNameLen=0."},
            Row{"name", 9, 0, "nRet=22.Copy FileName:name unsuccessfully, FileNameLen=4."},
        }) {
        char directory[] = "x########", name[] = "x########";
        EXPECT_EQ(
            ORX_SplitPathFileName(row.path, directory, row.directory_size, name, row.name_size),
            0u);
        EXPECT_EQ(syslog.lines().back(),
                  (SyslogLine{LOG_ERR, "[0] " + std::string(row.report) + "\n"}));
        EXPECT_EQ(std::string(directory + row.directory_size),
                  std::string("x########").substr(row.directory_size));
        EXPECT_EQ(std::string(name + row.name_size),
                  std::string("x########").substr(row.name_size));
    }
}

TEST(CleanPath, GoesUpAtParentsAndKeepsOtherNames) {
    const std::string rest = "/" + std::string(600, 'r') + "/end";
    const std::pair<std::string, std::string> rows[] = {
        {"/a/b/../c", "/a/c"},
        {"/a//b", "/a/b"},
        {"///a///", "/a/"},
        {"/../a", "/a"},
        {"/../../a", "/a"},
        {"/a/b/..", "/a"},
        {"/a/..", ""},
        {"a/../b", "/b"},
        {"../a", "../a"},
        {"/a/b/../../c", "/c"},
        {"/a/..//../b", "/b"},
        {"/a/.//..", "/a"},
        {"/a/./b", "/a/./b"},
        {"/a/.../b", "/a/.../b"},
        {"/a/..x/b", "/a/..x/b"},
        {"/a/..", ""},
        {"", ""},
        {"/x/.." + rest, rest},
        {"/x/" + rest, "/x" + rest},
    };
    for (const auto& [path, clean] : rows) {
        std::vector<char> text(path.c_str(), path.c_str() + path.size() + 1);
        ORX_CutPathStr(text.data());
        EXPECT_EQ(text.data(), clean) << path;
    }
    EXPECT_EQ(ORX_FindPreGangStr("/a/b/c", 4), 2u);
    EXPECT_EQ(ORX_FindPreGangStr("/a/b/c", 5), 4u);
    EXPECT_EQ(ORX_FindPreGangStr("a/b", 1), 0u);
    EXPECT_EQ(ORX_FindPreGangStr("/a", 0), 0u);
}

TEST_F(PathStrings, MakeEveryDirectoryOnTheWay) {
    umask(0);
    EXPECT_EQ(ORX_MkDir(tree.path("a/b//c/").c_str(), 0750), 0u);
    EXPECT_EQ(ORX_MkDir(tree.path("a/b/c/d").c_str(), 0700), 0u);
    EXPECT_EQ(Mode("a/b/c"), 0750u);
    EXPECT_EQ(Mode("a/b/c/d"), 0700u);
    EXPECT_EQ(ORX_MkDir("/", 0700), 0u);
    EXPECT_EQ(syslog.lines(), Lines{});

    const std::string longest = tree.root() + std::string(511 - tree.root().size(), '/');
    EXPECT_EQ(ORX_MkDir(longest.c_str(), 0700), 0u);
    EXPECT_EQ(ORX_MkDir((longest + "/").c_str(), 0700), 0x71000002u);
    EXPECT_EQ(ORX_MkDir("a/x", 0700), 0x71000002u);
    EXPECT_EQ(ORX_MkDir("", 0700), 0x71000002u);
    EXPECT_FALSE(Exists("a/x"));
    WriteFile("file", "");
    EXPECT_EQ(ORX_MkDir(tree.path("file").c_str(), 0700), 0u);
    EXPECT_EQ(ORX_MkDir(tree.path("file/x/y").c_str(), 0700), 0x71000004u);
    EXPECT_EQ(
        syslog.lines(),
        (Lines{
            {LOG_ERR, "The path name length of " + longest + "/ is 512 and is invalid. "},
            {LOG_ERR, "The path name a/x is invalid,it should be full path. "},
            {LOG_ERR, "The path name  is invalid,it should be full path. "},
            {LOG_ERR, "Create " + tree.path("file/x/y") + " directory unsuccessfully as 20. "},
        }));
}

}  // namespace
}  // namespace korx::test
