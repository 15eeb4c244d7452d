#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalidParam = 0x71000002;
constexpr uint32_t kCreateDirFailed = 0x71000004;
using Lines = std::vector<SyslogLine>;

SyslogLine Err(const std::string& text) {
    return {3, "[0] " + text + "\n"};
}

struct Basics : RoomTest {};

TEST_F(Basics, TellsWhatExists) {
    WriteFile("f", "");
    MakeDirs("d/full");
    (void) symlink("d", "ld");
    (void) symlink("none", "dangling");
    const struct {
        const char* path;
        uint32_t file, directory, link, empty;
    } rows[] = {
        {"f", 1, 0, 0, 15}, {"d", 1, 1, 0, 0},         {"d/full", 1, 1, 0, 1},
        {"ld", 1, 1, 1, 0}, {"dangling", 0, 0, 1, 15}, {"none", 0, 0, 0, 1},
        {"", 0, 0, 0, 1},   {nullptr, 0, 0, 0, 1},
    };
    for (const auto& row : rows) {
        const char* const name = row.path == nullptr ? "null" : row.path;
        EXPECT_EQ(KORX_IsFileExist(row.path), row.file) << name;
        EXPECT_EQ(KORX_IsDirExist(row.path), row.directory) << name;
        EXPECT_EQ(ORX_IsSymLink(row.path, 0), row.link) << name;
        EXPECT_EQ(KORX_IsDirEmpty(row.path), row.empty) << name;
    }
    EXPECT_EQ(syslog.lines(), (Lines{Err("Path:f not Exist, errno:20."),
                                     Err("Path:dangling not Exist, errno:2.")}));
}

TEST_F(Basics, MakesDirectoriesWithExactlyTheMode) {
    umask(077);
    MakeDirs("a");
    chmod("a", 0700);
    WriteFile("file", "");
    const std::string root = tree.root(), pad(383 - root.size() - 4, '/');
    const std::string longest = root + pad + "long";
    const struct {
        std::string path;
        uint32_t result;
        Lines lines;
    } rows[] = {
        {root + "/a/b//c/", 0, {}},
        {longest, 0, {}},
        {root + "/file", 0, {}},
        {"/", 0, {}},
        {"a/b", kInvalidParam, {Err("The path name a/b is invalid,it should be full path. ")}},
        {"", kInvalidParam, {Err("The path name  is invalid,it should be full path. ")}},
        {longest + "x",
         kInvalidParam,
         {Err("The path name length of " + longest + "x is 384 and is invalid. ")}},
        {root + "/file/x/y",
         kCreateDirFailed,
         {Err("Create " + root + "/file/x/y directory unsuccessfully as 20. ")}},
    };
    for (const auto& row : rows) {
        syslog.clear();
        EXPECT_EQ(KORX_Mkdir(row.path.c_str(), 0757), row.result) << row.path;
        EXPECT_EQ(syslog.lines(), row.lines);
    }
    EXPECT_EQ(Mode("a"), 0700u) << "was there before";
    EXPECT_EQ(Mode("a/b"), 0757u);
    EXPECT_EQ(Mode("a/b/c"), 0757u);
    EXPECT_EQ(Mode("long"), 0757u);
}

TEST_F(Basics, ChangesTheFileBehindALink) {
    WriteFile("f", "");
    (void) symlink("f", "l");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    EXPECT_EQ(KORX_Fchmod("l", 04751), 0u);
    EXPECT_EQ(KORX_Fchmod("fifo", 0640), 0u) << "and does not wait for a writer";
    EXPECT_EQ(Mode("fifo"), 0640u);
    struct stat st;
    ASSERT_EQ(stat("f", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 04751u);
    EXPECT_EQ(KORX_Fchmod("none", 0600), kFailed);
    EXPECT_EQ(KORX_Fchmod(nullptr, 0600), kFailed);
    EXPECT_EQ(syslog.lines(), Lines{});

    const struct {
        const char* call;
        SyslogLine line;
    } rows[] = {
        {"open", Err("Open file l unsuccessfully. errno: 5")},
        {"fstat", Err("fstat file l unsuccessfully. errno: 5")},
        {"fchmod", {4, "[0] fchmod file l unsuccessfully. errno: 5\n"}},
    };
    for (const auto& row : rows) {
        syslog.clear();
        const Fault fault(row.call, 1, EIO);
        const int free = dup(0);
        close(free);
        EXPECT_EQ(KORX_Fchmod("l", 0600), kFailed);
        EXPECT_EQ(syslog.lines(), Lines{row.line});
        EXPECT_EQ(dup(0), free) << row.call;
        close(free);
    }
}

TEST_F(Basics, LocksTheWholeFileAgainstOtherProcesses) {
    const int fd = open("lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(KORX_LockFile(-1), kFailed);
    EXPECT_EQ(KORX_LockFile(fd), 0u);
    const auto owner = [&](off_t at) {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = at;
        lock.l_len = 1;
        return fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
    };
    const pid_t self = getpid();
    EXPECT_EQ(RunChild([&] { return owner(0) == self && owner(off_t{1} << 40) == self ? 0 : 1; }),
              0);

    EXPECT_EQ(KORX_UnLockFile(fd), 0u);
    EXPECT_EQ(RunChild([&] { return int(KORX_LockFile(fd)); }), 0);

    const Fault interrupted("fcntl", 1, EINTR, 3);
    EXPECT_EQ(KORX_LockFile(fd), 0u) << "the wait goes on after a signal";
    EXPECT_EQ(interrupted.calls(), 4u);
    const Fault deadlock("fcntl", 1, EDEADLK);
    EXPECT_EQ(KORX_LockFile(fd), kFailed);
    EXPECT_EQ(syslog.lines(), Lines{});
    close(fd);
}

TEST_F(Basics, MatchesNames) {
    EXPECT_EQ(KORX_IsPostfixMatch("A.LOG", ".log"), 1u);
    EXPECT_EQ(KORX_IsPostfixMatch(".log", ".log"), 0u);
    EXPECT_EQ(KORX_IsPostfixMatch("a", ""), 1u);
    EXPECT_EQ(KORX_IsPostfixMatch("a.log.x", ".log"), 0u);
    const struct {
        const char *text, *prefix;
        uint32_t result;
    } rows[] = {{"/opt", "/opt", 1},  {"/opt/x", "/opt", 1}, {"/op", "/opt", 0},
                {"x/opt", "/opt", 0}, {"/OPT", "/opt", 0},   {"  ", " ", 0},
                {"a", "", 0},         {" a", " ", 0},        {nullptr, "a", 0},
                {"a", nullptr, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(KORX_IsPrefixMatch(row.text, row.prefix), row.result);
    char path[] = "/a/b", bare[] = "ab", slash[] = "/a/";
    EXPECT_EQ(KORX_GetFileName(path), path + 3);
    EXPECT_EQ(KORX_GetFileName(bare), bare);
    EXPECT_STREQ(KORX_GetFileName(slash), "");
    char ended[] = "ab\r\n", two[] = "\r\n", one[] = "\n";
    KORX_RemoveLastRn(ended);
    KORX_RemoveLastRn(two);
    KORX_RemoveLastRn(one);
    KORX_RemoveLastRn(nullptr);
    EXPECT_STREQ(ended, "ab");
    EXPECT_STREQ(two, "\r");
    EXPECT_STREQ(one, "\n");

    const std::string n255(255, 'n'), n383(383, 'n');
    const struct {
        const char* name;
        uint32_t as_file, as_directory;
    } lengths[] = {{nullptr, 32, 32}, {"", 2, 14},       {"a", 0, 0},       {"a/", 3, 0},
                   {&n255[1], 0, 0},  {&n255[0], 0, 13}, {&n383[1], 0, 13}, {n383.c_str(), 1, 13}};
    for (const auto& row : lengths) {
        EXPECT_EQ(KORX_CheckFileName(row.name, 0), row.as_file);
        EXPECT_EQ(KORX_CheckDirName(row.name), row.as_directory);
    }
    EXPECT_EQ(KORX_CheckFileName((n383 + "/").c_str(), 0), 1u) << "too long before the slash";
}

TEST_F(Basics, LooksUpUsersAndGroups) {
    uint32_t id = 77;
    EXPECT_EQ(KORX_GetUidByName("no such user", &id), kFailed);
    EXPECT_EQ(KORX_GetGidByName("no such group", &id), kFailed);
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(KORX_GetUidByName(nullptr, &id), kFailed);
    EXPECT_EQ(KORX_GetGidByName("root", nullptr), kFailed);
    {
        const Fault user("getpwnam_r", 1, ERANGE), group("getgrnam_r", 1, ERANGE);
        EXPECT_EQ(KORX_GetUidByName("root", &id), kFailed);
        EXPECT_EQ(KORX_GetGidByName("root", &id), kFailed);
    }
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("param error"), Err("param error"), Err("getpwnam failed, errno:34"),
                     Err("getgrnam failed, errno:34")}));
    EXPECT_EQ(id, 77u);
    EXPECT_EQ(KORX_GetUidByName("daemon", &id), 0u);
    EXPECT_EQ(id, 1u);
    id = 77;
    EXPECT_EQ(KORX_GetGidByName("daemon", &id), 0u);
    EXPECT_EQ(id, 1u);
}

TEST_F(Basics, WritesUntilEverythingIsOut) {
    const int fd = open("out", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(KORX_Write(fd, nullptr, 3), -1);
    EXPECT_EQ(KORX_Write(-1, "x", 0), 0);
    EXPECT_EQ(KORX_Write(-1, "x", -5), -5);
    {
        const Fault interrupted("write", 1, EINTR), again("write", 2, EAGAIN);
        const Fault cut = Fault::Short("write", 3, 2);
        EXPECT_EQ(KORX_Write(fd, "abcdef", 6), 6);
    }
    {
        const Fault cut = Fault::Short("write", 1, 1);
        const Fault full("write", 2, ENOSPC);
        EXPECT_EQ(KORX_Write(fd, "gh", 2), -1);
    }
    errno = EAGAIN;
    const Fault nothing = Fault::Short("write", 1, 0);
    EXPECT_EQ(KORX_Write(fd, "xyz", 3), 0) << "a stale EAGAIN does not spin";
    EXPECT_EQ(ReadFile("out"), "abcdefg");
    close(fd);
}

TEST_F(Basics, DeletesFilesAndEmptyDirectories) {
    WriteFile("f", "");
    MakeDirs("d/sub");
    EXPECT_EQ(KORX_DelFile(nullptr, 0), 32u);
    EXPECT_EQ(KORX_DelFile("f", 0), 0u);
    EXPECT_EQ(KORX_DelFile("f", 0), 29u);
    EXPECT_EQ(KORX_DelFile("d", 0), 29u);
    EXPECT_EQ(KORX_DelFile("d/sub", 0), 0u);
    const std::string failed = "[0] [ORXFS-LOCAL] Remove ";
    EXPECT_EQ(syslog.lines(), (Lines{{6, "[0] [ORXFS-LOCAL] Success to remove f.\n"},
                                     {4, failed + "f unsuccessfully! errno=2.\n"},
                                     {4, failed + "d unsuccessfully! errno=39.\n"},
                                     {6, "[0] [ORXFS-LOCAL] Success to remove d/sub.\n"}}));
}

}  // namespace
}  // namespace korx::test
