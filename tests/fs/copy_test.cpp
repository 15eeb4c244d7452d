#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace {
unsigned sleeps;
}

// Waiting 300 seconds for a descriptor that never gets ready is not for tests.
extern "C" int usleep(useconds_t microseconds) {
    sleeps += microseconds == 10000;
    return 0;
}

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kAllBits = 0xFFFFFFFF;

uint32_t Raw(const std::string& source, const std::string& destination) {
    return KORX_CopyFile(source.c_str(), 0, destination.c_str(), 0);
}
uint32_t Safe(const std::string& source, const std::string& destination, uint32_t overwrite = 1) {
    return KORXFS_CopyFile(source.c_str(), 0, destination.c_str(), overwrite, 0);
}

struct Copy : RoomTest {
    bool logged(const std::string& line) {
        for (const std::string& text : syslog.texts()) {
            if (text == "[0] " + line + "\n")
                return true;
        }
        return false;
    }
};

TEST_F(Copy, MovesContentAndPermissions) {
    umask(022);
    for (const size_t size : {0, 1, 4096, 4097, 65536, 65537, 200000}) {
        std::string content;
        for (size_t i = 0; i < size; ++i)
            content += char(i * 31 >> 3);
        WriteFile("from", content);
        chmod("from", 0753);
        WriteFile("to", "old text that is longer than some");
        chmod("to", 0600);
        EXPECT_EQ(Raw("./from", "./to"), 0u);
        EXPECT_EQ(ReadFile("to"), content) << size;
        EXPECT_EQ(Mode("to"), 0600u) << "an existing file keeps its bits";
        EXPECT_EQ(Safe("./from", "./to"), 0u);
        EXPECT_EQ(ReadFile("to"), content) << size;
        EXPECT_EQ(Mode("to"), 0751u) << "the source's, less the umask";
        const Fault interrupted("write", 1, EINTR, 3);
        const Fault cut = Fault::Short("write", 4, 10, 2);
        EXPECT_EQ(Raw("./from", "./to"), 0u);
        EXPECT_EQ(ReadFile("to"), content) << size;
    }
}

TEST_F(Copy, FailureLeavesNoDestination) {
    const std::string from = tree.path("from");
    const struct {
        const char* call;
        unsigned nth;
        int error;
        std::string line;
        const char* left;  // of the old destination
    } rows[] = {
        {"malloc", 1, ENOMEM, "Malloc unsuccessfully.", "old"},
        {"open", 1, EACCES, "CopyFile:open file source path ./from errno:13!", "old"},
        {"fstat", 1, EIO, "get file " + from + " stat unsuccessfully, errno:5.", "old"},
        {"open", 2, EROFS, "CopyFile:open file destination path ./to errno:30!", ""},
        {"write", 2, ENOSPC, "Write file [./to] unsuccessfully, writeCnt [-1].", ""},
        {"read", 2, EINTR, "Read file [./from] unsuccessfully, errno:4.", ""},
    };
    WriteFile("from", std::string(10000, 'x'));
    for (const auto& row : rows) {
        WriteFile("to", "old");
        const Fault fault(row.call, row.nth, row.error);
        EXPECT_EQ(Raw("./from", "./to"), kFailed) << row.line;
        EXPECT_TRUE(logged(row.line)) << row.line;
        EXPECT_EQ(ReadFile("to"), row.left) << row.line;
        EXPECT_EQ(Exists("to"), row.left[0] != '\0') << row.line;
    }
    EXPECT_EQ(Raw("./from", "./none/to"), kFailed);
    EXPECT_TRUE(logged(
        "Get the abolute path and file name of file ./none/to unsuccessfully when copy file."));
    EXPECT_TRUE(logged("[ORXFS-LOCAL] Remove  unsuccessfully! errno=2."));
}

TEST_F(Copy, RawCopyOntoItselfLeavesTheFileAlone) {
    WriteFile("from", "precious");
    ASSERT_EQ(link("from", "hard"), 0);
    ASSERT_EQ(symlink("from", "soft"), 0);
    for (const char* destination : {"./from", "./hard", "./soft"}) {
        for (const int open_error : {0, EACCES}) {
            const Fault fault("open", open_error == 0 ? 99 : 2, open_error);
            syslog.clear();
            EXPECT_EQ(Raw("./from", destination), kFailed);
            ASSERT_EQ(syslog.lines().size(), 1u);
            EXPECT_EQ(syslog.lines()[0].priority, 3);
            EXPECT_EQ(ReadFile("from"), "precious") << destination;
            EXPECT_TRUE(Exists(destination));
        }
    }
}

TEST_F(Copy, ChecksItsNames) {
    WriteFile("from", "new");
    WriteFile("to", "old");
    const struct {
        const char* source;
        const char* destination;
        uint32_t overwrite;
        uint32_t result;
        const char* line;
    } rows[] = {
        {nullptr, "./to", 1, 32,
         "[ORXFS-LOCAL] Check copy filename unsuccessfully, srcFile or dstFile is NULL!"},
        {"", "./to", 1, 2, "[ORXFS-LOCAL] Check filename:  unsuccessfully!"},
        {"./from", "./to/", 1, 3, "[ORXFS-LOCAL] Check filename: ./to/ unsuccessfully!"},
        {"./to", "./to", 0, 12, "[ORXFS-LOCAL] Src File './to' is same to Dst File './to'!"},
        {"./none", "./to", 1, 4, "[ORXFS-LOCAL] File './none' is not exist!"},
        {"./from", "./to", 0, 5, "[ORXFS-LOCAL] File './to' is already exist!"},
    };
    for (const auto& row : rows) {
        syslog.clear();
        EXPECT_EQ(KORXFS_CopyFile(row.source, 0, row.destination, row.overwrite, 0), row.result);
        EXPECT_TRUE(logged(row.line)) << row.line;
        EXPECT_EQ(ReadFile("to"), "old");
    }
    EXPECT_EQ(syslog.lines().back().priority, 3);
    EXPECT_EQ(Safe("./from", "./none/to"), kFailed) << "only a full path can be made";
}

TEST_F(Copy, MakesTheDirectoryAndLeavesNoTemporary) {
    WriteFile("from", "new");
    umask(077);
    EXPECT_EQ(Safe("./from", tree.path("a/b/to"), 0), 0u);
    EXPECT_EQ(ReadFile("a/b/to"), "new");
    EXPECT_EQ(Mode("a/b"), 0750u);
    EXPECT_FALSE(Exists("a/b/to.orxtmp"));
}

// Which lengths go through the temporary name shows in the name that a failure gives.
TEST_F(Copy, UsesTheTemporaryNameWhereItFits) {
    WriteFile("from", "new");
    const auto directory = [](size_t length) {  // of so many characters, the slash at its end too
        return "." + std::string(length - 1, '/');
    };
    const struct {
        std::string destination;
        bool temporary;
    } rows[] = {
        {"./" + std::string(119, 'n'), true},
        {"./" + std::string(120, 'n'), false},
        {"./" + std::string(127, 'n'), false},
        {directory(147) + std::string(100, 'n'), true},
        {directory(148) + std::string(100, 'n'), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Safe("./from", row.destination), 0u);
        EXPECT_EQ(ReadFile(row.destination), "new");
        const Fault fault("read", 1, EIO);
        syslog.clear();
        EXPECT_EQ(Safe("./from", row.destination), kFailed);
        EXPECT_TRUE(
            logged("[ORXFS-LOCAL] Copy File unsuccessfully! src: ./from, dst: " + row.destination +
                   (row.temporary ? ".orxtmp" : "") + ", return 268435455"))
            << row.destination.size();
    }

    const std::string long_name(128, 'n');
    WriteFile(long_name, "old");
    EXPECT_EQ(Safe("./from", "./" + long_name), kFailed);
    EXPECT_TRUE(logged("nRet=34.Copy DstFileName unsuccessfully, DstFileName=" + long_name +
                       ", FileNameLen=128."));
    EXPECT_EQ(ReadFile(long_name), "old") << "refused before anything is deleted";
    const std::string long_directory = directory(257) + "to";
    WriteFile("to", "old");
    EXPECT_EQ(Safe("./from", long_directory), kFailed);
    EXPECT_TRUE(logged("nRet=34.Copy DstFileName unsuccessfully, DstFileName=" + long_directory +
                       ", FileNameLen=256."));
    EXPECT_EQ(ReadFile("to"), "old");
}

TEST_F(Copy, NeverDeletesItsSource) {
    const struct {
        const char* what;
        const char* source;
        const char* destination;
        uint32_t result;
    } rows[] = {
        {"same entry", "./d/file", "./d/../d/file", 12},
        {"through a linked directory", "./d/file", "./dlink/file", 12},
        {"source is a link to it", "./link", "./d/file", 12},
        {"source is a link to a link to it", "./chain", "./d/file", 12},
        {"a link on the source's way", "./chain", "././link", 12},
        {"the source's own link", "./link", "././link", 12},
        {"the temporary name", "./x.orxtmp", "./x", 12},
        {"another hard link", "./d/file", "./hard", 0},
        {"a link to the source", "./d/file", "./link", 0},
        {"the same name elsewhere", "./d/file", "./file", 0},
    };
    for (const auto& row : rows) {
        MakeDirs("d");
        WriteFile("d/file", "precious");
        WriteFile("x.orxtmp", "precious");
        WriteFile("x", "old");
        WriteFile("file", "old");
        (void) symlink("d", "dlink");
        (void) symlink("d/file", "link");
        (void) symlink(tree.path("link").c_str(), "chain");
        (void) link("d/file", "hard");
        EXPECT_EQ(Safe(row.source, row.destination), row.result) << row.what;
        EXPECT_EQ(ReadFile(row.source), "precious") << row.what;
        if (row.result == 0) {
            EXPECT_EQ(ReadFile(row.destination), "precious") << row.what;
        } else {
            EXPECT_TRUE(logged(std::string("[ORXFS-LOCAL] Src File '") + row.source +
                               "' is same to Dst File '" + row.destination + "'!"));
            EXPECT_EQ(ReadFile("x"), "old");
        }
        for (const char* name : {"link", "chain", "hard", "dlink"})
            unlink(name);
    }
}

TEST_F(Copy, DoesNotWriteThroughAPlantedLink) {
    WriteFile("from", "new");
    WriteFile("outside", "kept");
    ASSERT_EQ(symlink("outside", "to.orxtmp"), 0);
    EXPECT_EQ(Safe("./from", "./to"), 0u);
    ASSERT_EQ(symlink("outside", "to.orxtmp"), 0);
    {
        const Fault fault("unlink", 1, EPERM);  // as if it had been planted right afterwards
        EXPECT_EQ(Safe("./from", "./to"), kFailed);
    }
    EXPECT_EQ(ReadFile("outside"), "kept");
    EXPECT_FALSE(Exists("to.orxtmp"));
}

TEST_F(Copy, LogsARenameThatFails) {
    WriteFile("from", "new");
    const Fault fault("rename", 1, EIO);
    EXPECT_EQ(Safe("./from", "./to"), 0u);
    ASSERT_FALSE(syslog.lines().empty());
    EXPECT_EQ(
        syslog.lines().back(),
        (SyslogLine{3, "[0] [ORXFS-LOCAL] Rename ./to.orxtmp to ./to unsuccessfully, errno:5.\n"}));
    EXPECT_FALSE(Exists("to"));
    EXPECT_FALSE(Exists("to.orxtmp"));
}

TEST_F(Copy, RefusesAProtectedDestination) {
    WriteFile("from", "new");
    WriteFile("to", "old");
    chmod("to", 0444);
    const Fault fault("remove", 1, EPERM);
    EXPECT_EQ(Safe("./from", "./to"), 6u);
    EXPECT_TRUE(logged("[ORXFS-LOCAL] File './to' is protected!"));
    EXPECT_EQ(ReadFile("to"), "old");
}

TEST_F(Copy, BoundedReadReturnsWhatThereIs) {
    int ends[2];
    char buffer[100] = {};
    EXPECT_EQ(ORXFS_Read(-1, nullptr, 10), kAllBits);
    EXPECT_EQ(ORXFS_Read(-1, buffer, 0), 0u);
    EXPECT_TRUE(syslog.texts().empty());
    EXPECT_EQ(ORXFS_Read(-1, buffer, 10), kAllBits);
    EXPECT_TRUE(logged("[ORXFS-LOCAL] read fd -1 unsuccessfully!, errno:9."));

    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    ASSERT_EQ(write(ends[1], "0123456789abc", 13), 13);
    const Fault interrupted("read", 2, EINTR, 3);
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, 3), 3u);
    close(ends[1]);
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, sizeof buffer), 10u);
    EXPECT_STREQ(buffer, "3456789abc");
    EXPECT_EQ(sleeps, 3u);
    close(ends[0]);
}

TEST_F(Copy, BoundedReadGivesUp) {
    int ends[2];
    char buffer[100];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    ASSERT_EQ(write(ends[1], "0123456789", 10), 10);
    sleeps = 0;
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, sizeof buffer), kAllBits);
    EXPECT_EQ(sleeps, 30000u);
    EXPECT_TRUE(logged("[ORXFS-LOCAL] read fd " + std::to_string(ends[0]) +
                       " unsuccessfully, buflen 100, left 90, retry too many times!"));
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
}  // namespace korx::test
