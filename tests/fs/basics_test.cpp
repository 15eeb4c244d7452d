#include "fs/fs_test.h"

namespace korx::test {
namespace {

using Basics = FsTest;

TEST_F(Basics, TellsWhatExists) {
    WriteFile("f", "");
    MakeDirs("d/full");
    (void) symlink("d", "ld");
    (void) symlink("none", "dangling");
    struct Row {
        const char* path;
        uint32_t file, directory, link, empty;
    };
    for (const Row& row : {Row{"f", 1, 0, 0, 15}, Row{"d", 1, 1, 0, 0}, Row{"d/full", 1, 1, 0, 1},
                           Row{"ld", 1, 1, 1, 0}, Row{"dangling", 0, 0, 1, 15},
                           Row{"none", 0, 0, 0, 1}, Row{nullptr, 0, 0, 0, 1}}) {
        EXPECT_EQ(KORX_IsFileExist(row.path), row.file);
        EXPECT_EQ(KORX_IsDirExist(row.path), row.directory);
        EXPECT_EQ(ORX_IsSymLink(row.path, 0), row.link);
        EXPECT_EQ(KORX_IsDirEmpty(row.path), row.empty);
    }
    EXPECT_EQ(logged(), "E Path:f not Exist, errno:20.\nE Path:dangling not Exist, errno:2.\n");
}

TEST_F(Basics, MakesDirectoriesWithExactlyTheMode) {
    umask(077);
    MakeDirs("a");
    chmod("a", 0700);
    WriteFile("file", "");
    const std::string root = tree.root(),
                      longest = root + std::string(379 - root.size(), '/') + "long";
    const std::string over = longest + "x", blocked = root + "/file/x/y";
    for (const std::string& path : {root + "/a/b//c/", longest, root + "/file", std::string("/")})
        EXPECT_EQ(KORX_Mkdir(path.c_str(), 0757), 0u) << path;
    EXPECT_EQ(logged(), "");
    for (const char* path : {over.c_str(), "", "a/d"})
        EXPECT_EQ(KORX_Mkdir(path, 0757), kInvalidParam) << path;
    EXPECT_EQ(KORX_Mkdir(blocked.c_str(), 0757), 0x71000004u);
    EXPECT_TRUE(
        logged().ends_with("E The path name a/d is invalid,it should be full path. \nE Create " +
                           blocked + " directory unsuccessfully as 20. \n"));
    EXPECT_EQ(Mode("a"), 0700u) << "was there before";
    for (const char* made : {"a/b", "a/b/c", "long"})
        EXPECT_EQ(Mode(made), 0757u);
}

TEST_F(Basics, GivesTheModeToNothingThatItHasNotMade) {
    WriteFile("foreign", "");
    chmod("foreign", 0600);
    MakeDirs("directory");
    chmod("directory", 0600);
    ASSERT_EQ(symlink("foreign", "link"), 0);
    ASSERT_EQ(symlink("directory", "way"), 0);
    for (const char* other : {"link", "way", "foreign"}) {
        const Fault swap = Fault::Meanwhile("open", 1, [&] {
            ASSERT_EQ(rmdir("made"), 0);
            ASSERT_EQ(rename(other, "made"), 0);
        });
        EXPECT_EQ(KORX_Mkdir(tree.path("made").c_str(), 0777), 0u);
        EXPECT_EQ(Mode("made"), 0600u) << other;
        if (other[0] != 'f')
            unlink("made");
    }
}

TEST_F(Basics, ChangesTheFileBehindALink) {
    WriteFile("f", "");
    (void) symlink("f", "l");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    EXPECT_EQ(KORX_Fchmod("l", 0751), 0u);
    EXPECT_EQ(Mode("f"), 0751u);
    EXPECT_EQ(KORX_Fchmod("fifo", 0640), 0u) << "and does not wait for a writer";
    EXPECT_EQ(KORX_Fchmod("none", 0600), kFailed);
    EXPECT_EQ(logged(), "");
    const auto open_before = OpenFiles();
    for (const auto& [call, line] : {std::pair("open", "E Open file"),
                                     {"fstat", "E fstat file"},
                                     {"fchmod", "W fchmod file"}}) {
        const Fault fault(call, 1, EIO);
        EXPECT_EQ(KORX_Fchmod("l", 0600), kFailed);
        EXPECT_EQ(logged(), std::string(line) + " l unsuccessfully. errno: 5\n");
        EXPECT_EQ(OpenFiles(), open_before);
    }
}

TEST_F(Basics, LocksTheWholeFileAgainstOtherProcesses) {
    const int fd = open("lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(KORX_LockFile(-1), kFailed);
    EXPECT_EQ(KORX_LockFile(fd), 0u);
    const auto is_locked = [&] {
        struct flock far = {};
        far.l_type = F_WRLCK;
        far.l_start = off_t{1} << 40;
        return fcntl(fd, F_GETLK, &far) == 0 && far.l_type == F_WRLCK ? 1 : 0;
    };
    EXPECT_EQ(RunChild(is_locked), 1);
    EXPECT_EQ(KORX_UnLockFile(fd), 0u);
    EXPECT_EQ(RunChild(is_locked), 0);
    const Fault interrupted("fcntl", 1, EINTR, 3);
    EXPECT_EQ(KORX_LockFile(fd), 0u) << "the wait goes on after a signal";
    const Fault deadlock("fcntl", 1, EDEADLK);
    EXPECT_EQ(KORX_LockFile(fd), kFailed);
    EXPECT_EQ(logged(), "");
    close(fd);
}

TEST_F(Basics, MatchesAndChecksNames) {
    EXPECT_EQ(KORX_IsPostfixMatch("A.LOG", ".log"), 1u);
    EXPECT_EQ(KORX_IsPostfixMatch(".log", ".log"), 0u);
    EXPECT_EQ(KORX_IsPrefixMatch("/opt", "/opt"), 1u);
    for (const auto& [text, prefix] : {std::pair("x/opt", "/opt"), {"/OPT", "/opt"}, {" a", " "}})
        EXPECT_EQ(KORX_IsPrefixMatch(text, prefix), 0u) << text;
    const std::string n255(255, 'n'), n383(383, 'n');
    const struct {
        const char* name;
        uint32_t as_file, as_directory;
    } names[] = {{nullptr, 32, 32}, {"", 2, 14},       {"a/", 3, 0},     {&n255[1], 0, 0},
                 {&n255[0], 0, 13}, {&n383[1], 0, 13}, {&n383[0], 1, 13}};
    for (const auto& row : names) {
        EXPECT_EQ(KORX_CheckFileName(row.name, 0), row.as_file);
        EXPECT_EQ(KORX_CheckDirName(row.name), row.as_directory);
    }
}

TEST_F(Basics, LooksUpUsersAndGroups) {
    for (const auto look_up : {KORX_GetUidByName, KORX_GetGidByName}) {
        uint32_t id = 77;
        EXPECT_EQ(look_up("nobody of this name", &id), kFailed);
        EXPECT_EQ(id, 77u);
        EXPECT_EQ(look_up("daemon", &id), 0u);
        EXPECT_EQ(id, 1u);
    }
}

TEST_F(Basics, WritesUntilEverythingIsOut) {
    const int fd = open("out", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(KORX_Write(fd, nullptr, 3), -1);
    EXPECT_EQ(KORX_Write(-1, "x", -5), -5);
    const Fault interrupted("write", 1, EINTR), would_block("write", 2, EAGAIN);
    const Fault cut = Fault::Short("write", 3, 2, 3), full("write", 6, ENOSPC);
    EXPECT_EQ(KORX_Write(fd, "abcdef", 6), 6);
    EXPECT_EQ(KORX_Write(fd, "lost", 4), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(ReadFile("out"), "abcdef");
    close(fd);
}

TEST_F(Basics, DeletesFilesAndEmptyDirectories) {
    MakeDirs("d/sub");
    EXPECT_EQ(KORX_DelFile("d", 0), 29u);
    EXPECT_EQ(KORX_DelFile("d/sub", 0), 0u);
    EXPECT_EQ(logged(),
              "W [ORXFS-LOCAL] Remove d unsuccessfully! errno=39.\n"
              "I [ORXFS-LOCAL] Success to remove d/sub.\n");
}

}  // namespace
}  // namespace korx::test
