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
    char full[] = "ab";
    ORX_EnSureExistPathSep(full, 3);
    EXPECT_EQ(full[2], '\0');
    EXPECT_EQ(syslog.lines(),
              (Lines{{LOG_ERR, "[0] str cat pszFileName unsuccessfully.return value is 34\n"}}));
}

TEST_F(PathStrings, SplitBehindTheLastSeparator) {
    struct Row {
        const char *path, *directory, *name;
    };
    for (const Row& row : {Row{"/opt/a/b.txt", "/opt/a/", "b.txt"}, Row{"b.txt", "", "b.txt"},
                           Row{"a/b\\c", "a/b\\", "c"}, Row{"/", "/", ""}}) {
        char directory[8] = "old", name[6] = "old";
        EXPECT_EQ(ORX_SplitPathFileName(row.path, directory, sizeof directory, name, sizeof name),
                  1u);
        EXPECT_STREQ(directory, row.directory);
        EXPECT_STREQ(name, row.name);
        EXPECT_EQ(ORX_SplitPathFileName(row.path, nullptr, 0, nullptr, 0), 1u);
    }
    EXPECT_EQ(syslog.lines(), Lines{});
}

TEST_F(PathStrings, RefuseToSplitIntoShortBuffers) {
    struct Row {
        const char* path;
        uint32_t directory_size, name_size;
        const char* report;
    };
    for (const Row& row :
         {Row{"name", 1, 4, "34.Copy FileName:name unsuccessfully, FileNameLen=4."},
          Row{"/d/name", 3, 9, "34.Copy string FileName:/d/name unsuccessfully, FileNameLen=3."},
          Row{"/d/name", 4, 4,
              "34.Strncpy FileName unsuccessfully.FileName=name, FileNameLen=4, bufflen=4."},
          Row{"/d/", 0, 9, "22.Copy string FileName:/d/"},
          Row{"name", 9, 0, "22.Copy FileName:name"}}) {
        char buffers[2][10] = {"x########", "x########"};
        const uint32_t result = ORX_SplitPathFileName(row.path, buffers[0], row.directory_size,
                                                      buffers[1], row.name_size);
        EXPECT_EQ(result, 0u);
        EXPECT_TRUE(syslog.texts().back().starts_with(std::string("[0] nRet=") + row.report));
        const std::string before = "x########";
        EXPECT_EQ(buffers[0] + row.directory_size, before.substr(row.directory_size));
        EXPECT_EQ(buffers[1] + row.name_size, before.substr(row.name_size));
        EXPECT_STREQ(buffers[1], row.name_size == 0 ? before.c_str() : "");
    }
}

TEST(CleanPath, GoesUpAtParentsAndKeepsOtherNames) {
    const std::string rest = "/" + std::string(600, 'r') + "/end";
    const std::pair<std::string, std::string> rows[] = {
        {"/a/b/../c", "/a/c"},    {"/a//b", "/a/b"},          {"///a///", "/a/"},
        {"/../../a", "/a"},       {"/a/b/..", "/a"},          {"/a/..", ""},
        {"a/../b", "/b"},         {"../a", "../a"},           {"/a/b/../../c", "/c"},
        {"/a/..//../b", "/b"},    {"/a/.//..", "/a"},         {"/a/./b", "/a/./b"},
        {"/a/.../b", "/a/.../b"}, {"/a/..x/b", "/a/..x/b"},   {"", ""},
        {"/x/.." + rest, rest},   {"/x/" + rest, "/x" + rest}};
    for (const auto& [path, clean] : rows) {
        std::vector<char> text(path.c_str(), path.c_str() + path.size() + 1);
        ORX_CutPathStr(text.data());
        EXPECT_EQ(text.data(), clean) << path;
    }
}

// The rules, one edit at a time.
std::string CutPlainly(std::string path) {
    for (size_t i = 0; i < path.size();) {
        const bool is_parent =
            path.compare(i, 3, "/..") == 0 && (i + 3 == path.size() || path[i + 3] == '/');
        if (path.compare(i, 2, "//") == 0) {
            path.erase(i, 1);
        } else if (is_parent) {
            const uint32_t parent = ORX_FindPreGangStr(path.c_str(), static_cast<uint32_t>(i));
            path.erase(parent, i + 3 - parent);
            i = parent;
        } else {
            ++i;
        }
    }
    return path;
}

TEST(CleanPath, IsOnePassAndStillEveryEdit) {
    const char* const pieces[] = {"", "/", "..", ".", "a", "/b/", "/.."};
    constexpr unsigned kPieces = std::size(pieces), kAll = 7 * 7 * 7 * 7 * 7 * 7;
    for (unsigned number = 0; number < kAll; ++number) {
        std::string path;
        for (unsigned rest = number; rest > 0; rest /= kPieces)
            path += pieces[rest % kPieces];
        std::string cut = path;
        ORX_CutPathStr(cut.data());
        ASSERT_STREQ(cut.c_str(), CutPlainly(path).c_str()) << path;
    }
}

TEST_F(PathStrings, MakeDirectoriesUnderTheUmaskAndReportToTheSystemLog) {
    umask(027);
    const std::string root = tree.root(), longest = root + std::string(511 - root.size(), '/');
    const auto make = [](const std::string& path) { return ORX_MkDir(path.c_str(), 0777); };
    WriteFile("file", "");
    for (const std::string& path : {longest, root + "/a/b"})
        EXPECT_EQ(make(path), 0u);
    EXPECT_EQ(Mode("a/b"), 0750u);
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(make(longest + "/"), 0x71000002u);
    EXPECT_EQ(make("a/x"), 0x71000002u);
    EXPECT_FALSE(Exists("a/x"));
    EXPECT_EQ(make(root + "/file/x/y"), 0x71000004u);
    EXPECT_EQ(
        syslog.lines().back(),
        (SyslogLine{LOG_ERR, "Create " + root + "/file/x/y directory unsuccessfully as 20. "}));
}

}  // namespace
}  // namespace korx::test
