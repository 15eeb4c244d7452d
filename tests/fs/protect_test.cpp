#include <linux/fs.h>
#include <sys/ioctl.h>

#include "fs/fs_test.h"

namespace korx::test {
namespace {

// Changes the inode flags of a file as far as that is possible, and returns what they are then.
int Flags(const char* path, int add = 0, int remove = 0) {
    const Untapped untapped;
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int flags = 0;
    if (ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (add | remove) != 0) {
        flags = (flags | add) & ~remove;
        (void) ioctl(fd, FS_IOC_SETFLAGS, &flags);
        (void) ioctl(fd, FS_IOC_GETFLAGS, &flags);
    }
    close(fd);
    return flags;
}

struct Protection : FsTest {
    Protection() {
        WriteFile("f", "");
        MakeDirs("d");
        EXPECT_EQ(symlink("f", "l"), 0);
        EXPECT_EQ(symlink("none", "dangling"), 0);
        EXPECT_EQ(mkfifo("fifo", 0600), 0);
    }
    ~Protection() override {
        for (const char* name : {"f", "d", "fifo"})
            Flags(name, 0, FS_IMMUTABLE_FL);
    }
};

TEST_F(Protection, WriteRightsStandInForTheFlag) {
    const struct {
        uint32_t (*change)(const char*);
        unsigned nth;  // 1 reads the flags, 2 sets them
        int error;
        mode_t before, after;
        uint32_t result;
        const char* levels;
    } rows[] = {{KORX_ProtectFile, 1, ENOTTY, 0664, 0444, 0, "WI"},
                {KORX_ProtectFile, 2, EPERM, 0620, 0400, 0, "W"},
                {KORX_ProtectFile, 2, EIO, 0664, 0664, kFailed, "E"},
                {KORX_UndoProtectFile, 1, EIO, 0440, 0662, 0, "WI"}};
    for (const auto& row : rows) {
        if (row.nth == 2 && KORX_IsForIoctl("f") != 1)
            continue;  // the flags cannot even be read
        chmod("f", row.before);
        const Fault fault("ioctl", row.nth, row.error);
        EXPECT_EQ(row.change("l"), row.result);
        EXPECT_EQ(levels(), row.levels);
        EXPECT_EQ(Mode("f"), row.after) << "worked out from the file, not from the link to it";
    }
    const Fault flags("ioctl", 1, ENOTTY), fault("fchmod", 1, EROFS);
    EXPECT_EQ(KORX_ProtectFile("f"), 0u) << "tried is done";
    EXPECT_EQ(
        logged(),
        "W [ORX-LIB] ioctl return err when protcet file, errno 25, try another way.\n"
        "W fchmod file f unsuccessfully. errno: 30\nI [ORX-LIB] File 'f' remove write right OK. \n");
}

TEST_F(Protection, TheFlagIsSetOnceAndAlone) {
    // Neither every file system keeps the flag nor every sandbox lets it be set.
    if ((Flags("f", FS_IMMUTABLE_FL) & FS_IMMUTABLE_FL) == 0)
        GTEST_SKIP() << "no immutable flag in /tmp";
    Flags("f", FS_NODUMP_FL, FS_IMMUTABLE_FL);
    chmod("f", 0644);
    EXPECT_EQ(KORX_ProtectFile("l"), 0u);
    EXPECT_EQ(KORX_ProtectFile("f"), 0u);
    EXPECT_EQ(logged(), "I [ORX-LIB] File 'l' protect OK. \n");
    EXPECT_EQ(Flags("f") & (FS_NODUMP_FL | FS_IMMUTABLE_FL), FS_NODUMP_FL | FS_IMMUTABLE_FL);
    EXPECT_EQ(Mode("f"), 0644u);
    EXPECT_EQ(KORX_IsFileProtected("f"), 1u);

    for (const auto& [error, result, lines] :
         {std::tuple(EIO, kFailed, "EE"), {EPERM, 0u, "EIWE"}}) {
        const Fault fault("ioctl", 2, error);
        EXPECT_EQ(KORX_UndoProtectFile("f"), result);
        EXPECT_EQ(levels(), lines);
    }
    EXPECT_EQ(KORX_UndoProtectFile("l"), 0u);
    EXPECT_EQ(logged(), "I File 'l' undo protect OK. \n");
    EXPECT_EQ(Flags("f") & (FS_NODUMP_FL | FS_IMMUTABLE_FL), FS_NODUMP_FL);
    for (const auto& [before, after] : {std::pair(0400, 0622), std::pair(0020, 0020)}) {
        chmod("f", mode_t(before));
        EXPECT_EQ(KORX_UndoProtectFile("f"), 0u);
        EXPECT_EQ(Mode("f"), mode_t(after)) << "given only where nobody has it";
    }
}

TEST_F(Protection, TellsWhoMayWrite) {
    const uint32_t has_flags = KORX_IsForIoctl("f");
    chmod("f", 0640);
    EXPECT_EQ(KORX_RmWriteRight("l"), 0u);
    EXPECT_EQ(Mode("f"), 0440u);
    EXPECT_EQ(KORX_IsFileProtected("f"), 1u);
    EXPECT_EQ(KORX_IsFileWriteable("f"), 0u);
    EXPECT_EQ(KORX_IsFileWriteable("l"), 1u) << "the link's own bits";
    EXPECT_EQ(KORX_RmWriteRight("dangling"), kFailed);
    EXPECT_EQ(KORX_GiveWriteRight("dangling"), kFailed);
    EXPECT_EQ(KORX_IsFileWriteable("none"), 0u);
    EXPECT_EQ(KORX_GiveWriteRight("l"), 0u);
    EXPECT_EQ(Mode("f"), 0662u);
    EXPECT_EQ(KORX_IsFileProtected("f"), 0u);
    const Fault denied("access", 1, EACCES, Fault::kAll);
    EXPECT_EQ(KORX_IsFileProtected("f"), has_flags);
    EXPECT_EQ(logged(), "");
    const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
    EXPECT_EQ(KORX_IsFileProtected("f"), 0u) << "only the bits count without flags";
    EXPECT_EQ(KORX_IsFileProtected("dangling"), 0u);
    EXPECT_EQ(logged(), "I File 'dangling' is not exist.\n");
}

TEST_F(Protection, NeitherHangsNorLeaks) {
    const struct {
        uint32_t (*call)(const char*);
        uint32_t unopened;
    } rows[] = {{KORX_IsForIoctl, 1}, {KORX_ProtectFile, kFailed}, {KORX_UndoProtectFile, kFailed}};
    const auto open_before = OpenFiles();
    for (const auto& row : rows) {
        row.call("fifo");
        (void) logged();
        EXPECT_EQ(row.call("dangling"), kFailed);
        const Fault fault("open", 1, EACCES), flags("ioctl", 2, EIO, Fault::kAll);
        EXPECT_EQ(row.call("f"), row.unopened);
        EXPECT_EQ(levels(), "EE");
        row.call("f");
        row.call("f");
        EXPECT_EQ(OpenFiles(), open_before);
    }
}

// A name that leads elsewhere at the second look.
TEST_F(Protection, ActsOnTheOpenedFileAlone) {
    const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
    WriteFile("foreign", "");
    const struct {
        uint32_t (*call)(const char*, uint32_t);
        mode_t mode;
        uint32_t result;
    } rows[] = {{ORXFS_ProtectFile, 0600, 22}, {ORXFS_UndoProtectFile, 0400, 24}};
    for (const auto& row : rows) {
        WriteFile("file", "");
        ASSERT_EQ(symlink("foreign", "link"), 0);
        chmod("foreign", row.mode);
        const Fault swap =
            Fault::Meanwhile("open", 1, [] { ASSERT_EQ(rename("link", "file"), 0); });
        EXPECT_EQ(row.call("file", 0), row.result);
        EXPECT_EQ(Mode("foreign"), row.mode);
        unlink("file");
    }
    const std::pair<uint32_t (*)(const char*), mode_t> changes[] = {{KORX_RmWriteRight, 0400},
                                                                    {KORX_GiveWriteRight, 0622}};
    for (const auto& [change, mode] : changes) {
        WriteFile("file", "");
        WriteFile("private", "");
        chmod("file", 0755);
        chmod("private", 0600);
        const Fault swap =
            Fault::Meanwhile("open", 1, [] { ASSERT_EQ(rename("private", "file"), 0); });
        EXPECT_EQ(change("file"), 0u);
        EXPECT_EQ(Mode("file"), mode) << "worked out from its own bits";
    }
}

TEST_F(Protection, FrontEndsCheckFirst) {
    const struct {
        uint32_t (*call)(const char*, uint32_t);
        const char* name;
        uint32_t result;
        const char* levels;
    } rows[] = {{ORXFS_ProtectFile, "", 3, "EEW"},
                {ORXFS_ProtectFile, "dangling", 4, "W"},
                {ORXFS_ProtectFile, "l", 22, "W"},
                {ORXFS_UndoProtectFile, "d/", 3, "E"},
                {ORXFS_UndoProtectFile, "l", 24, ""}};
    const mode_t before = Mode("f");
    for (const auto& row : rows) {
        EXPECT_EQ(row.call(row.name, 0), row.result);
        EXPECT_EQ(levels(), row.levels);
    }
    EXPECT_EQ(Mode("f"), before);
    const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
    EXPECT_EQ(ORXFS_ProtectFile("d/", 0), 0u);
    EXPECT_EQ(Mode("d") & 0222, 0u);
    EXPECT_EQ(ORXFS_UndoProtectFile("d", 0), 0u);
    EXPECT_EQ(Mode("d") & 0222, 0222u);
    const Fault fault("open", 1, EACCES, 2);
    EXPECT_EQ(ORXFS_ProtectFile("f", 0), kFailed);
    EXPECT_EQ(ORXFS_UndoProtectFile("f", 0), kFailed);
}

}  // namespace
}  // namespace korx::test
