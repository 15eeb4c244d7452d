#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
using Lines = std::vector<SyslogLine>;

SyslogLine Line(int priority, const std::string& text) {
    return {priority, "[0] " + text + "\n"};
}
SyslogLine Info(const std::string& text) {
    return Line(6, text);
}
SyslogLine Warning(const std::string& text) {
    return Line(4, text);
}
SyslogLine Err(const std::string& text) {
    return Line(3, text);
}

int Flags(const char* path, int add = 0, int remove = 0) {
    const Untapped untapped;
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int flags = 0;
    if (ioctl(fd, FS_IOC_GETFLAGS, &flags) < 0)
        flags = 0;
    int changed = (flags | add) & ~remove;
    if (changed != flags && ioctl(fd, FS_IOC_SETFLAGS, &changed) < 0)
        changed = flags;
    close(fd);
    return changed;
}

int LowestFreeDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

struct Protection : RoomTest {
    Protection() {
        WriteFile("f", "");
        EXPECT_EQ(symlink("f", "l"), 0);
        EXPECT_EQ(symlink("none", "dangling"), 0);
        MakeDirs("d");
    }
    ~Protection() override {
        Flags("f", 0, FS_IMMUTABLE_FL);
        Flags("d", 0, FS_IMMUTABLE_FL);
    }
    // Neither every file system keeps the flag nor every sandbox lets it be set.
    static bool flag_works() {
        const bool works = (Flags("f", FS_IMMUTABLE_FL) & FS_IMMUTABLE_FL) != 0;
        Flags("f", 0, FS_IMMUTABLE_FL);
        return works;
    }
};

TEST_F(Protection, WriteRightsStandInForTheFlag) {
    const auto protect = KORX_ProtectFile;
    const auto undo = KORX_UndoProtectFile;
    const struct {
        uint32_t (*change)(const char*);
        unsigned nth;  // 1 reads the flags, 2 sets them
        int error;
        mode_t before, after;
        uint32_t result;
        Lines lines;
    } rows[] = {
        {protect,
         1,
         ENOTTY,
         0664,
         0444,
         0,
         {Warning("[ORX-LIB] ioctl return err when protcet file, errno 25, try another way."),
          Info("[ORX-LIB] File 'l' remove write right OK. ")}},
        {protect,
         2,
         EPERM,
         04620,
         04400,
         0,
         {Warning("[ORX-LIB] Proc has no right to protect file!")}},
        {protect,
         2,
         EIO,
         0664,
         0664,
         kFailed,
         {Err("[ORX-LIB] File 'l' protect unsuccessful ioctl setflag, ret(268435455), errno:5.")}},
        {undo,
         1,
         EIO,
         0440,
         0662,
         0,
         {Warning("ioctl did not succeed when unprotect unsuccessfully,try another way, "
                  "PathName=[l], errno=[5]."),
          Info("File 'l' give write right OK when ioctl unsuccessfully. ")}},
    };
    for (const auto& row : rows) {
        if (row.nth == 2 && KORX_IsForIoctl("f") != 1)
            continue;  // the flags cannot even be read
        chmod("f", row.before);
        syslog.clear();
        const Fault fault("ioctl", row.nth, row.error);
        EXPECT_EQ(row.change("l"), row.result);
        EXPECT_EQ(syslog.lines(), row.lines);
        struct stat st;
        ASSERT_EQ(stat("f", &st), 0);
        EXPECT_EQ(st.st_mode & 07777, row.after) << "of the file, not of the link to it";
    }
    chmod("f", 0644);
    syslog.clear();
    const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
    const Fault fault("fchmod", 1, EROFS);
    EXPECT_EQ(KORX_ProtectFile("f"), 0u) << "tried is done";
    EXPECT_EQ(syslog.lines()[1], Warning("fchmod file f unsuccessfully. errno: 30"));
}

TEST_F(Protection, TheFlagIsSetOnceAndAlone) {
    if (!flag_works())
        GTEST_SKIP() << "no immutable flag in /tmp";
    chmod("f", 0644);
    Flags("f", FS_NODUMP_FL);
    EXPECT_EQ(KORX_ProtectFile("l"), 0u);
    EXPECT_EQ(KORX_ProtectFile("f"), 0u);
    EXPECT_EQ(syslog.lines(), (Lines{Info("[ORX-LIB] File 'l' protect OK. ")}));
    EXPECT_EQ(Flags("f") & (FS_NODUMP_FL | FS_IMMUTABLE_FL), FS_NODUMP_FL | FS_IMMUTABLE_FL);
    EXPECT_EQ(Mode("f"), 0644u);
    EXPECT_EQ(KORX_IsFileProtected("f"), 1u);
    EXPECT_EQ(open("f", O_WRONLY), -1);

    const std::string refused = "File 'f' undo protect unsuccessfully. setflag.";
    syslog.clear();
    {
        const Fault fault("ioctl", 2, EIO);
        EXPECT_EQ(KORX_UndoProtectFile("f"), kFailed);
    }
    {
        const Fault fault("ioctl", 2, EPERM);
        EXPECT_EQ(KORX_UndoProtectFile("f"), 0u);
    }
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Ioctl unsuccessfully, PathName=[f], errno=[5]."), Err(refused),
                     Err("Ioctl unsuccessfully, PathName=[f], errno=[1]."),
                     Info("Proc has no right to unprotect."),
                     Warning("fchmod file f unsuccessfully. errno: 1"), Err(refused)}));
    syslog.clear();
    EXPECT_EQ(KORX_UndoProtectFile("l"), 0u);
    EXPECT_EQ(syslog.lines(), (Lines{Info("File 'l' undo protect OK. ")}));
    EXPECT_EQ(Flags("f") & (FS_NODUMP_FL | FS_IMMUTABLE_FL), FS_NODUMP_FL);
    EXPECT_EQ(Mode("f"), 0644u);
}

TEST_F(Protection, UndoGivesOnlyWhatNobodyHas) {
    const struct {
        mode_t before, after;
    } rows[] = {{0400, 0622}, {0200, 0200}, {0002, 0002}, {0555, 0777}};
    for (const auto& row : rows) {
        chmod("f", row.before);
        EXPECT_EQ(KORX_UndoProtectFile("f"), 0u);
        EXPECT_EQ(Mode("f"), KORX_IsForIoctl("f") == 1 ? row.after : row.before | 0222);
    }
}

TEST_F(Protection, TellsWhoMayWrite) {
    const bool has_flags = KORX_IsForIoctl("f") == 1;
    chmod("f", 0444);
    EXPECT_EQ(KORX_IsFileProtected("f"), 1u);
    EXPECT_EQ(KORX_IsFileWriteable("f"), 0u);
    EXPECT_EQ(KORX_IsFileWriteable("l"), 1u) << "the link's own bits";
    EXPECT_EQ(KORX_RmWriteRight("dangling"), kFailed);
    EXPECT_EQ(KORX_GiveWriteRight(nullptr), kFailed);
    EXPECT_EQ(KORX_IsFileWriteable("none"), 0u);
    EXPECT_EQ(KORX_GiveWriteRight("l"), 0u);
    EXPECT_EQ(Mode("f"), 0666u);
    EXPECT_EQ(KORX_IsFileProtected("f"), 0u);
    {
        const Fault denied("access", 1, EACCES, Fault::kAll);
        EXPECT_EQ(KORX_IsFileProtected("f"), has_flags ? 1u : 0u);
        const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
        EXPECT_EQ(KORX_IsFileProtected("f"), 0u) << "only the bits count without flags";
        EXPECT_EQ(KORX_IsForIoctl("f"), 0u);
    }
    EXPECT_EQ(KORX_RmWriteRight("l"), 0u);
    EXPECT_EQ(Mode("f"), 0444u);
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(KORX_IsFileProtected("dangling"), 0u);
    EXPECT_EQ(syslog.lines(), (Lines{Info("File 'dangling' is not exist.")}));
}

TEST_F(Protection, NeitherHangsNorLeaks) {
    const struct {
        uint32_t (*call)(const char*);
        uint32_t unopened;
        std::string line;
    } rows[] = {
        {KORX_IsForIoctl, 1, "open file 'f' return err when protect it, errno:13."},
        {KORX_ProtectFile, kFailed,
         "[ORX-LIB] open file 'f' return err when protect it, errno:13."},
        {KORX_UndoProtectFile, kFailed,
         "open file 'f' unsuccessfully when unprotect it, errno:13."},
    };
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    KORX_UndoProtectFile("fifo");  // the system log is open from here on
    const int free = LowestFreeDescriptor();
    for (const auto& row : rows) {
        row.call("fifo");
        syslog.clear();
        EXPECT_EQ(row.call("dangling"), kFailed);
        const Fault fault("open", 1, EACCES);
        EXPECT_EQ(row.call("f"), row.unopened);
        EXPECT_EQ(syslog.lines(), (Lines{Err("[ORX-LIB] open file 'dangling' return err, errno:2."),
                                         Err(row.line)}));
    }
    Flags("fifo", 0, FS_IMMUTABLE_FL);
    for (const int error : {ENOTTY, EPERM, EIO}) {
        const Fault fault("ioctl", 1, error, Fault::kAll);
        KORX_ProtectFile("f");
        KORX_UndoProtectFile("f");
    }
    EXPECT_EQ(LowestFreeDescriptor(), free);
}

TEST_F(Protection, FrontEndsCheckFirst) {
    const std::string n383(383, 'n');
    const auto protect = ORXFS_ProtectFile;
    const auto undo = ORXFS_UndoProtectFile;
    const struct {
        uint32_t (*call)(const char*, uint32_t);
        const char* name;
        uint32_t result;
        Lines lines;
    } rows[] = {
        {protect, nullptr, 3, {Warning("[ORXFS-LOCAL] Check filename: (null) unsuccessfully!")}},
        {protect,
         "",
         3,
         {Err("[ORXFS-LOCAL] filename length is zero!"),
          Err("[ORXFS-LOCAL] dirname length is zero!"),
          Warning("[ORXFS-LOCAL] Check filename:  unsuccessfully!")}},
        {protect,
         n383.c_str(),
         3,
         {Err("[ORXFS-LOCAL] filename " + n383 + " length is too long!"),
          Err("[ORXFS-LOCAL] dirname " + n383 + " length is too long!"),
          Warning("[ORXFS-LOCAL] Check filename: " + n383 + " unsuccessfully!")}},
        {protect, "dangling", 4, {Warning("[ORXFS-LOCAL] File 'dangling' is not exist!")}},
        {protect, "l", 22, {Warning("[ORXFS-LOCAL] Symlink File 'l' not permit to protect!")}},
        {undo, nullptr, 32, {}},
        {undo, "", 2, {Err("[ORXFS-LOCAL] filename length is zero!")}},
        {undo, "d/", 3, {Err("[ORXFS-LOCAL] filename d/ is end by '/'!")}},
        {undo, "dangling", 4, {}},
        {undo, "l", 24, {}},
    };
    chmod("f", 0640);
    for (const auto& row : rows) {
        syslog.clear();
        EXPECT_EQ(row.call(row.name, 0), row.result);
        EXPECT_EQ(syslog.lines(), row.lines);
    }
    EXPECT_EQ(Mode("f"), 0640u);

    const Fault flags("ioctl", 1, ENOTTY, Fault::kAll);
    EXPECT_EQ(ORXFS_ProtectFile("d/", 0), 0u);
    EXPECT_EQ(Mode("d") & 0222, 0u);
    EXPECT_EQ(ORXFS_UndoProtectFile("d", 0), 0u);
    EXPECT_EQ(Mode("d") & 0222, 0222u);
    const Fault fault("open", 1, EACCES, 2);
    EXPECT_EQ(ORXFS_ProtectFile("f", 0), kFailed);
    EXPECT_EQ(syslog.lines().back(),
              Err("[ORXFS-LOCAL] protect file 'f' unsuccessfully, return code: 268435455 ."));
    EXPECT_EQ(ORXFS_UndoProtectFile("f", 0), kFailed);
    EXPECT_EQ(syslog.lines().back(),
              Err("[ORXFS-LOCAL]File 'f' undo protect unsuccessfully, return code: 268435455."));
}

}  // namespace
}  // namespace korx::test
