#include <dirent.h>
#include <set>

#include "fs/fs_test.h"

namespace korx::test {
namespace {

using Names = std::multiset<std::string>;

std::string Contents(const std::string& link) {
    char text[512] = {};
    return readlink(link.c_str(), text, sizeof text - 1) < 0 ? "" : text;
}

struct Links : FsTest {
    Links() {
        WriteFile("f", "text");
        MakeDirs("d/inner");
        MakeDirs("empty");
        EXPECT_EQ(symlink("f", "l"), 0);
        EXPECT_EQ(symlink("l", "chain"), 0);
        EXPECT_EQ(symlink("none", "dangling"), 0);
        EXPECT_EQ(symlink("./d", "ld"), 0);
        EXPECT_EQ(link("f", "hard"), 0);
    }
};

TEST_F(Links, ComparesContentsNotTargets) {
    struct Row {
        const char *expected, *path;
        int32_t result;
    };
    for (const Row& row :
         {Row{"f", "l", 0}, Row{"none", "dangling", 4}, Row{"f", "f", 11}, Row{"./f", "l", 31}})
        EXPECT_EQ(KORX_IsFileLinkRight(row.expected, row.path, 0), row.result) << row.path;
    const Fault fault("readlink", 1, EIO);
    EXPECT_EQ(KORX_IsFileLinkRight("f", "l", 0), 30);
}

TEST_F(Links, ReplacesWhatStandsThereButNotTheTarget) {
    struct Row {
        const char *target, *path;
        uint32_t result;
    };
    for (const Row& row :
         {Row{"f", "new", 0}, Row{"f", "dangling", 0}, Row{"f", "empty", 0}, Row{"f", "hard", 0},
          Row{"f", "d", 27}, Row{"f", "f", 12}, Row{"f", "d/../f", 12}, Row{"chain", "l", 12},
          Row{"chain", "./f", 12}, Row{"d/inner/", "d/inner", 12}, Row{"none", "f", 4},
          Row{"ld/inner", "ld", 12}, Row{"ld/../ld/inner", "./ld", 12},
          Row{"ld/inner", "new", 0}}) {
        const std::string target = row.target, path = row.path, before = Contents(path);
        EXPECT_EQ(KORX_LinkFile(row.target, 0, row.path, 0), row.result) << path;
        EXPECT_EQ(Contents(path), row.result == 0 ? target : before);
        EXPECT_EQ(ReadFile("chain"), "text") << path;
        EXPECT_TRUE(Exists("d/inner"));
    }
}

TEST_F(Links, SafeLinkIsRelativeBelowOneRoot) {
    const std::string root = tree.root(), n127(127, 'n'), m127(127, 'm'),
                      e255 = "/opt/" + std::string(250, 'e');
    const std::string d255 = root + std::string(255 - root.size(), '/');
    MakeDirs("/opt/a/b");
    MakeDirs("/opt/a/c");
    WriteFile("/opt/a/b/f", "");
    ASSERT_EQ(symlink("new", "to_new"), 0);
    const std::string b = "/opt/a/b", c = "/opt/a/c";
    struct Row {
        std::string directory, name, link_directory, link_name, before, contents;
        uint32_t result = 0;
    };
    for (const Row& row :
         {Row{b, "f", c + "/", "l", "", "../b/f"}, Row{b + "/", "f", c, "l", "../b/f", "../b/f"},
          Row{b, "f", c, "l", "/opt/a/b/f", "/opt/a/b/f"},
          Row{b, "none", c, "l", "/opt/a/b/none", "../b/none"},
          Row{root, "f", root, "new", "", root + "/f"},
          Row{root, "f", root, "new", "d", root + "/f"},
          Row{b, "f", root, "new", "none", "/opt/a/b/f"}, Row{"", "none", root, "new", "", "/none"},
          Row{d255, n127, root, m127, "", d255 + n127}, Row{root, "new", root, "new", "f", "f", 12},
          Row{root, "to_new", root, "new", "f", "f", 12},
          Row{root + "/new", "inner", root, "new", "d", "d", 12},
          Row{d255 + "/", "f", root, "new", "kept", "kept", kInvalidParam},
          Row{root, "f", root, n127 + "n", "", "", kInvalidParam},
          Row{root, n127 + "n", root, "new", "kept", "kept", kInvalidParam},
          Row{e255, n127, c, "l", "kept", "kept", 27}}) {
        const std::string link = row.link_directory + "/" + row.link_name;
        (void) unlink(link.c_str());
        (void) symlink(row.before.c_str(), link.c_str());
        const uint32_t result =
            KORX_LinkFilesSafe(row.directory.c_str(), row.name.c_str(), row.link_directory.c_str(),
                               row.link_name.c_str());
        EXPECT_EQ(result, row.result) << link;
        EXPECT_EQ(Contents(link), row.contents) << link;
    }
}

TEST_F(Links, SafeLinkLeavesAFileAlone) {
    const std::string root = tree.root();
    const auto link = [&](const char* name) {
        return KORX_LinkFilesSafe(root.c_str(), "f", root.c_str(), name);
    };
    EXPECT_EQ(link("hard"), 0u);
    EXPECT_EQ(Contents("hard"), "");
    const Fault fault("symlink", 1, EROFS, 2);
    (void) logged();
    EXPECT_EQ(link("hard"), kFailed);
    EXPECT_EQ(levels(), "IIE");
    EXPECT_EQ(link("dangling"), kFailed);
}

TEST_F(Links, RelativePaths) {
    struct Row {
        const char *source, *destination;
        uint32_t size;
        const char* out;  // "" for a failure
    };
    for (const Row& row :
         {Row{"/opt/a/file", "/opt/a/link", 5, "file"}, Row{"/opt/a/file", "/opt/a/link", 4, ""},
          Row{"/opt/file", "/opt/a/b/link", 17, "../../file"},
          Row{"/opt/file", "/opt/a/b/link", 16, ""}, Row{"/opt/file", "/opt/a/b/link", 6, ""},
          Row{"//opt//a/f", "/opt/a///b//l", 64, "../f"},
          Row{"/opt/ab/f", "/opt/a/l", 64, "../ab/f"}, Row{"/opt/f", "/opt/f/l", 64, "../f"},
          Row{"/o/a", "x", 64, ""}, Row{"/o/a/", "/o/a/x", 64, ""}, Row{"/x", "/y", 0, ""}}) {
        std::string out(row.size + 1, '\0');
        out[row.size] = '?';
        const uint32_t result = ORX_GetRelPath(row.source, row.destination, out.data(), row.size);
        EXPECT_EQ(result, row.out[0] == '\0' ? kFailed : 0) << row.out;
        EXPECT_EQ(row.size == 0 ? "" : out.c_str(), std::string(row.out));
        EXPECT_EQ(out[row.size], '?');
    }
    char out[16] = "a:";
    EXPECT_EQ(ORX_GetRelPath("/a/f", "/b/l", out, sizeof out), 0u);
    EXPECT_STREQ(out, "a:../a/f");
    EXPECT_EQ(ORX_GetRelPath("/a/f", "/b/l", out, 3), kFailed);
    EXPECT_STREQ(out, "") << "also where not even the reserve fits";
}

// What a walk saw, and where it is to turn.
struct Seen {
    Names directories, files, skip;
    std::string stop_in, fail_at;
    uint32_t flags = 0;  // as they came: 1 for a cleared and 2 for a set one, files' times 4

    static uint32_t Directory(const char*, const char* path, uint32_t* flag, void* context) {
        auto* const seen = static_cast<Seen*>(context);
        seen->directories.insert(path);
        seen->flags |= 1u << *flag;
        *flag = seen->skip.count(path) == 0;
        return path == seen->fail_at ? 77 : 0;
    }
    static uint32_t File(const char*, const char* path, uint32_t* flag, void* context) {
        auto* const seen = static_cast<Seen*>(context);
        seen->files.insert(path);
        seen->flags |= 4u << *flag;
        *flag = !seen->stop_in.empty() && std::string(path).starts_with(seen->stop_in);
        return path == seen->fail_at ? 88 : 0;
    }
    uint32_t walk(const std::string& root) {
        return ORX_WalkDirRecur(root.c_str(), nullptr, Directory, File, this);
    }
};

struct Walk : FsTest {
    Walk() {
        MakeDirs("r/a/deep/er");
        MakeDirs("r/b");
        MakeDirs("outside/x");
        for (const char* name : {"r/1", "r/a/2", "r/a/deep/4", "r/a/deep/er/5", "r/b/6"})
            WriteFile(name, "");
        EXPECT_EQ(symlink("../outside", "r/to_directory"), 0);
        EXPECT_EQ(symlink("none", "r/b/dangling"), 0);
        EXPECT_EQ(mkfifo("r/fifo", 0600), 0);
    }
};

TEST_F(Walk, SeesEveryFileAndLinkOnce) {
    Seen seen, all, below;
    EXPECT_EQ(seen.walk("r"), 0u);
    EXPECT_EQ(seen.files,
              (Names{"1", "a/2", "a/deep/4", "a/deep/er/5", "b/6", "b/dangling", "to_directory"}));
    EXPECT_EQ(seen.directories, (Names{"a", "a/deep", "a/deep/er", "b"}));
    EXPECT_EQ(seen.flags, 2u + 4u) << "set for each directory, cleared for each file";
    EXPECT_EQ(ORX_WalkDirRecur("r", nullptr, nullptr, Seen::File, &all), 0u);
    EXPECT_EQ(all.files, seen.files);
    EXPECT_EQ(KORX_WalkDirRecurInner("r", "a/deep", Seen::Directory, Seen::File, &below), 0u);
    EXPECT_EQ(below.files, (Names{"a/deep/4", "a/deep/er/5"}));
    Seen none;
    const Fault untold = Fault::Short("readdir", 1, DT_UNKNOWN, Fault::kAll);
    EXPECT_EQ(none.walk("r"), 0u);
    EXPECT_TRUE(none.files.empty() && none.directories.empty());
}

TEST_F(Walk, TurnsWhereItIsTold) {
    Seen skip, stop;
    skip.skip = {"a", "b"};
    EXPECT_EQ(skip.walk("r"), 0u);
    EXPECT_EQ(skip.files, (Names{"1", "to_directory"}));
    EXPECT_EQ(skip.flags, 2u + 4u) << "set again for the second one";
    stop.stop_in = "b/";
    EXPECT_EQ(stop.walk("r"), 0u);
    EXPECT_EQ(stop.files.size(), 6u) << "one of the two in b, and all others";

    const auto open_before = OpenFiles();
    for (const auto& [at, result] : {std::pair("a/deep/er", 77u), std::pair("a/deep/4", 88u)}) {
        Seen fail;
        fail.fail_at = at;
        EXPECT_EQ(fail.walk("r"), result);
    }
    Seen seen;
    EXPECT_EQ(seen.walk("none"), kFailed);
    const Fault fault("fdopendir", 3, EACCES);
    EXPECT_EQ(seen.walk("r"), kFailed);
    EXPECT_EQ(fault.calls(), 3u) << "nothing is opened after it";
    EXPECT_EQ(OpenFiles(), open_before);
    EXPECT_EQ(logged(), "");
}

TEST_F(Walk, EntersNoLinkInADirectorysPlace) {
    Seen seen;
    const auto swap = [](const char* root, const char* path, uint32_t* flag, void* context) {
        EXPECT_EQ(rename((std::string(root) + "/" + path).c_str(), "moved"), 0);
        EXPECT_EQ(rename("r/to_directory", (std::string(root) + "/" + path).c_str()), 0);
        WriteFile("outside/7", "");
        return Seen::Directory(root, path, flag, context);
    };
    EXPECT_EQ(ORX_WalkDirRecur("r", nullptr, swap, Seen::File, &seen), kFailed);
    EXPECT_EQ(seen.directories.size(), 1u);
    for (const std::string& file : seen.files)
        EXPECT_FALSE(file.ends_with("/7")) << "outside the tree";
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
    EXPECT_EQ(logged(), "E Print RelFilePath unsuccessfully, RelFilePath=" + a + "/" + b + "b\n");
    const std::string outside = tree.path("outside/x");
    const std::string longest = std::string(382 - outside.size(), '/') + outside;
    EXPECT_EQ(seen.walk(longest), 0u);
    EXPECT_EQ(seen.walk("/" + longest), kFailed);
    EXPECT_EQ(logged(), "E Print RootPath unsuccessfully, RootPath=/" + longest + "/\n");
}

}  // namespace
}  // namespace korx::test
