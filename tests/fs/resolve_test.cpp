#include <string.h>

#include "fs/fs_test.h"

namespace korx::test {
namespace {

using Resolver = uint32_t (*)(const char*, char*, uint32_t);

struct Row {
    std::string name, out;  // "" for a failure
    uint32_t size = 256;
    uint32_t failure = kFailed;
};

struct Resolve : FsTest {
    Resolve() {
        MakeDirs("d");
        WriteFile("d/f", "text");
        EXPECT_EQ(symlink("d", "ld"), 0);
        EXPECT_EQ(symlink("d/f", "lf"), 0);
        EXPECT_EQ(symlink("d/new", "dangling"), 0);
    }
    // Output that was there before must not survive a failure, but for the canonical forms, which
    // leave it; and what lies behind must stay.
    void expect(Resolver resolve, const Row& row) {
        const bool keeps =
            resolve == KORX_Trans2CanonicalFilepath || resolve == KORX_GetCanonicalFilepath;
        std::string buffer(row.size, 'x');
        const std::string failed = keeps ? buffer + "?" : "";
        buffer += "?";
        const uint32_t result = resolve(row.name.c_str(), buffer.data(), row.size);
        EXPECT_EQ(result, row.out.empty() ? row.failure : 0) << row.name;
        EXPECT_EQ(buffer.back(), '?') << row.name;
        EXPECT_EQ(row.size == 0 ? failed : buffer.c_str(), row.out.empty() ? failed : row.out)
            << row.name;
    }
};

TEST_F(Resolve, KeepsTheLastComponentAsItIs) {
    const std::string root = tree.root(), n127(127, 'n'), d255(255, '/');
    const auto fits = uint32_t(root.size() + 5);  // with "/d/f"
    for (const Row& row :
         {Row{"ld/../d/./f", root + "/d/f"}, Row{"ld/missing", root + "/d/missing"},
          Row{"./lf", root + "/lf"}, Row{"d/..", root + "/d/.."}, Row{"/x", "//x"},
          Row{d255 + n127, "//" + n127}, Row{d255 + "/x", ""}, Row{"/" + n127 + "n", ""},
          Row{"", ""}, Row{"d/f", root + "/d/f", fits}, Row{"d/f", "", fits - 1}, Row{"d/f/x", ""},
          Row{"d/f", "", 3}, Row{"d/f", "", 0, kInvalidParam}})
        expect(ORX_GetAbsolutePathAndFileName, row);
}

TEST_F(Resolve, TextAloneNeedsNothingToExist) {
    const std::string root = tree.root(), c127(127, 'c');
    for (const Row& row :
         {Row{"//a/./b//c/..", "/a/b/"}, Row{"/a/b/../c", "/a/c"}, Row{"/..", ""},
          Row{"/a/../..", ""}, Row{"/.../..b", "/.../..b"}, Row{"ld/../x", root + "/x"},
          Row{"", root}, Row{"/" + c127 + "/a/", "/" + c127 + "/a"}, Row{"/a/bc", "/a/bc", 6},
          Row{"/a/bc", "", 5}, Row{"/", "", 0}, Row{"/a/" + c127 + "c/x", ""}, Row{"/", "", 1},
          Row{"a", "", 3}})
        expect(KORX_Trans2AbsolutePath, row);
    EXPECT_EQ(KORX_Trans2AbsolutePath("a", nullptr, 0), kFailed) << "and nothing is allocated";
}

TEST_F(Resolve, AppliesOneComponent) {
    const struct {
        const char *path, *component;
        uint32_t size;
        const char* after;  // the same for a failure
    } rows[] = {{"/a", "b", 5, "/a/b"}, {"/a", "b", 4, "/a"},    {"/a/", "b", 5, "/a/b"},
                {"/a/", "b", 4, "/a/"}, {"/", "..", 2, "/"},     {"/a/b/", "..", 9, "/a/"},
                {"/a", "..", 9, "/"},   {"abc", "..", 9, "abc"}, {"/a", "b", 0, "/a"}};
    for (const auto& row : rows) {
        char path[16];
        strcpy(path, row.path);
        const bool fails = strcmp(row.path, row.after) == 0;
        EXPECT_EQ(ORX_PathCat(row.component, path, row.size), fails ? kFailed : 0) << row.path;
        EXPECT_STREQ(path, row.after) << row.component;
    }
    char root[] = "/", empty[] = "";
    EXPECT_EQ(ORX_PathCat(".", root, 0), 0u);
    EXPECT_EQ(ORX_PathCatDoubleDot(empty), kFailed);
    for (const Row& row : {Row{"abc/d", "abc", 4}, Row{"abc", "abc", 4}, Row{"abc/d", "", 3}})
        expect(ORX_GetDirectory, row);
    expect(ORX_GetDirectory, {"/abc", "", 1, 0});
}

TEST_F(Resolve, CanonicalNamesFollowWhatExists) {
    const std::string root = tree.root();
    struct Name {
        std::string name, existing, either;  // "" fails
    };
    for (const Name& row :
         {Name{"lf", root + "/d/f", root + "/d/f"}, Name{"ld/new", "", root + "/d/new"},
          Name{"./dangling", "", root + "/dangling"}, Name{"new", "", ""},
          Name{"none/new", "", ""}}) {
        const std::pair<Resolver, std::string> results[] = {
            {KORX_Trans2CanonicalFilepath, row.existing}, {KORX_GetCanonicalFilepath, row.either}};
        for (const auto& [resolve, out] : results) {
            const auto length = uint32_t(out.size());
            expect(resolve, {row.name, out, length + 1});
            expect(resolve, {row.name, "", length});
            char in_place[256];
            strcpy(in_place, row.name.c_str());
            EXPECT_EQ(resolve(in_place, in_place, sizeof in_place), out.empty() ? kFailed : 0);
            EXPECT_EQ(in_place, out.empty() ? row.name : out);
        }
    }
    expect(KORX_GetCanonicalFilepath, {"lf", "", 4});
    const Fault fault("realpath", 1, EIO);
    expect(KORX_GetCanonicalFilepath, {"lf", ""});
}

TEST_F(Resolve, OpensInTheResolvedDirectory) {
    const std::string n385 = "./" + std::string(382, '/') + "x", n384 = "./" + n385.substr(3);
    for (const std::string& name : {std::string("new"), std::string("ld/new"), n384}) {
        const int fd = ZUVA_CanonicalOpenUseMode(name.c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(Mode(name), 0600u);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(ZUVA_CanonicalClose(fd), 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
    EXPECT_EQ(logged(), "");
    for (const char* name : {n385.c_str(), "", "none/x"})
        EXPECT_EQ(ZUVA_CanonicalOpenUseMode(name, O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_EQ(logged(), "E Name length(385) is illegal, name: " + n385 +
                            ".\n"
                            "E Name length(0) is illegal, name: .\n"
                            "E Failed to transform files none into canonical form. error: 2.\n");
    EXPECT_EQ(ZUVA_CanonicalOpen("missing", O_RDONLY), -1);
    EXPECT_EQ(ZUVA_CanonicalClose(0), -1);
    EXPECT_GE(fcntl(0, F_GETFD), 0) << "left open";
    EXPECT_EQ(logged(), "");
}

TEST_F(Resolve, ComparesDirectoriesAndFindsParents) {
    const std::string a255(255, 'a'), a256(256, 'a');
    EXPECT_EQ(ORX_CmpLinuxDirStr("/a/b/", "/a/b"), 0);
    EXPECT_NE(ORX_CmpLinuxDirStr("/a//", "/a"), 0);
    EXPECT_LT(ORX_CmpLinuxDirStr("/a", "/b/"), 0);
    EXPECT_EQ(ORX_CmpLinuxDirStr(a255.c_str(), a255.c_str()), 0);
    EXPECT_EQ(ORX_CmpLinuxDirStr(a256.c_str(), a256.c_str()), 1);

    const std::string longest = "/" + std::string(252, 'a') + "/";
    using Parent = std::pair<std::string, std::string>;
    for (const auto& [path, expected] :
         {Parent{"/a/b/c/", "/a/b/"}, Parent{"/a", "/"}, Parent{"a/b", "a/"}, Parent{"/a//", "/a/"},
          Parent{longest + "x", longest}, Parent{"/" + longest + "x", ""}, Parent{"a/", ""},
          Parent{"/", ""}, Parent{"", ""}}) {
        const uint32_t result = expected.empty() ? kFailed : 0;  // no parent: it fails
        char parent[256] = "old", in_place[512];
        EXPECT_EQ(KORX_GetParentDir(path.c_str(), parent), result) << path;
        EXPECT_EQ(parent, result == 0 ? expected : "old");
        strcpy(in_place, path.c_str());
        EXPECT_EQ(KORX_GetParentDir(in_place, in_place), result) << path;
        EXPECT_EQ(in_place, result == 0 ? expected : path);
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

    umask(027);
    EXPECT_EQ(KORX_CreateFile("./new"), 0u);
    EXPECT_EQ(Mode("new"), 0640u);
    EXPECT_EQ(KORX_CreateFile("lf"), 0u);
    {
        const Fault appeared("stat", 1, ENOENT);  // as if the file came right afterwards
        EXPECT_EQ(KORX_CreateFile("./lf"), 0u);
    }
    EXPECT_EQ(ReadFile("d/f"), "text");
    EXPECT_EQ(logged(), "E ORX_Trans2AbsolutePath failed, file:/..\n");
    const Fault fault("open", 1, ENOSPC);
    EXPECT_EQ(KORX_CreateFile("./more"), kFailed);
    EXPECT_EQ(logged(), "E Create file (./more) unsuccessfully, errno=28.\n");
}

}  // namespace
}  // namespace korx::test
