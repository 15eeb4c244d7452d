#include "fs/fs_test.h"

namespace korx::test {
namespace {

constexpr uint32_t kAllBits = 0xFFFFFFFF;

uint32_t Raw(const std::string& source, const std::string& destination) {
    return KORX_CopyFile(source.c_str(), 0, destination.c_str(), 0);
}
uint32_t Safe(const std::string& source, const std::string& destination, uint32_t overwrite = 1) {
    return KORXFS_CopyFile(source.c_str(), 0, destination.c_str(), overwrite, 0);
}

struct Copy : FsTest {
    Copy() {
        WriteFile("from", "new");
        WriteFile("to", "old");
    }
};

TEST_F(Copy, MovesContentAndPermissions) {
    umask(022);
    for (const size_t size : {0, 1, 4096, 4097, 200000}) {
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
        // The kernel moves all of it, or nothing, or only a part.
        const Fault interrupted("write", 1, EINTR, 3);
        const Fault cut = Fault::Short("write", 4, 10, 2);
        for (const unsigned part : {1, 2, 3}) {
            const Fault short_step = Fault::Short("sendfile", 1, 5000, 2);
            const Fault no_more("sendfile", part, EINVAL, Fault::kAll);
            EXPECT_EQ(Raw("./from", "./to"), 0u);
            EXPECT_EQ(ReadFile("to"), content) << size << " after " << part;
        }
    }
}

// Holes, a size that is told as 0, and what grows while it is copied.
TEST_F(Copy, TrustsNoSize) {
    ASSERT_EQ(truncate("from", 300000), 0);
    EXPECT_EQ(Raw("./from", "./to"), 0u);
    EXPECT_EQ(ReadFile("to"), ReadFile("from"));
    EXPECT_EQ(Raw("/proc/version", "./to"), 0u);
    EXPECT_EQ(ReadFile("to"), ReadFile("/proc/version"));
    const Fault growth =
        Fault::Meanwhile("read", 1, [] { ASSERT_EQ(truncate("from", 600000), 0); });
    EXPECT_EQ(Raw("./from", "./to"), 0u);
    EXPECT_EQ(ReadFile("to").size(), 600000u);
}

TEST_F(Copy, FailureLeavesNoDestination) {
    struct Row {
        const char* call;
        unsigned nth;
        int error;
        std::string line;
        const char* left;  // of the old destination
    };
    WriteFile("from", std::string(10000, 'x'));
    for (const Row& row :
         {Row{"malloc", 1, ENOMEM, "E Malloc unsuccessfully.\n", "old"},
          Row{"open", 1, EACCES, "W CopyFile:open file source path ./from errno:13!\n", "old"},
          Row{"fstat", 1, EIO,
              "E get file " + tree.path("from") + " stat unsuccessfully, errno:5.\n", "old"},
          Row{"open", 2, EROFS, "E CopyFile:open file destination path ./to errno:30!\n", ""},
          Row{"write", 2, ENOSPC, "E Write file [./to] unsuccessfully, writeCnt [-1].\n", ""},
          Row{"read", 2, EINTR, "E Read file [./from] unsuccessfully, errno:4.\n", ""}}) {
        WriteFile("to", "old");
        // What the kernel gives up is read and written: that tells what is wrong.
        const Fault part = Fault::Short("sendfile", 1, 1000);
        const Fault given_up("sendfile", 2, ENOSPC, Fault::kAll);
        const Fault fault(row.call, row.nth, row.error);
        EXPECT_EQ(Raw("./from", "./to"), kFailed) << row.line;
        EXPECT_TRUE(logged().starts_with(row.line)) << row.line;
        EXPECT_EQ(ReadFile("to"), row.left) << row.line;
        EXPECT_EQ(Exists("to"), row.left[0] != '\0') << row.line;
    }
}

TEST_F(Copy, RawCopyOntoItselfLeavesTheFileAlone) {
    ASSERT_EQ(link("from", "hard"), 0);
    ASSERT_EQ(symlink("from", "soft"), 0);
    for (const std::string destination : {"./from", "./hard", "./soft"}) {
        for (const int open_error : {0, EACCES}) {
            const Fault fault("open", open_error == 0 ? 99 : 2, open_error);
            EXPECT_EQ(Raw("./from", destination), kFailed);
            EXPECT_EQ(levels(), "E");
            EXPECT_EQ(ReadFile("from"), "new") << destination;
            EXPECT_TRUE(Exists(destination));
        }
    }
}

TEST_F(Copy, RawCopyLooksAtWhatItHasOpened) {
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    WriteFile("from", std::string(1000, 'x'));  // a FIFO would hold it
    EXPECT_EQ(Raw("./from", "./fifo"), kFailed);
    EXPECT_EQ(levels(), "E");
    EXPECT_EQ(Raw("./from", "/dev/null"), 0u);
    ASSERT_EQ(link("from", "hard"), 0);
    ASSERT_EQ(symlink("from", "soft"), 0);
    for (const char* other : {"hard", "soft", "fifo"}) {
        const Fault swap =
            Fault::Meanwhile("open", 2, [&] { ASSERT_EQ(rename(other, "to"), 0) << other; });
        EXPECT_EQ(Raw("./from", "./to"), kFailed) << other;
        EXPECT_EQ(levels(), "E");
        EXPECT_EQ(ReadFile("from").size(), 1000u) << other;
        EXPECT_TRUE(Exists("to"));
    }
    const Fault move = Fault::Meanwhile("read", 1, [] { ASSERT_EQ(rename("from", "to"), 0); });
    const Fault fault("read", 2, EIO);
    EXPECT_EQ(Raw("./from", "./to"), kFailed);
    EXPECT_EQ(ReadFile("to").size(), 1000u) << "it is the source now";
}

TEST_F(Copy, ChecksItsNamesAndMakesTheDirectory) {
    const struct {
        const char *source, *destination;
        uint32_t overwrite, result;
        const char* levels;
    } rows[] = {{nullptr, "./to", 1, 32, "E"},   {"", "./to", 1, 2, "EE"},
                {"./from", "./to/", 1, 3, "EE"}, {"./none", "./to", 1, 4, "W"},
                {"./from", "./to", 0, 5, "E"},   {"./to", "./to", 0, 12, "E"}};
    for (const auto& row : rows) {
        EXPECT_EQ(KORXFS_CopyFile(row.source, 0, row.destination, row.overwrite, 0), row.result);
        EXPECT_EQ(levels(), row.levels) << row.result;
        EXPECT_EQ(ReadFile("to"), "old");
    }
    EXPECT_EQ(Safe("./from", "./none/to"), kFailed) << "only a full path can be made";
    umask(077);
    EXPECT_EQ(Safe("./from", tree.path("a/b/to"), 0), 0u);
    EXPECT_EQ(ReadFile("a/b/to"), "new");
    EXPECT_EQ(Mode("a/b"), 0750u);
    EXPECT_FALSE(Exists("a/b/to.orxtmp"));
}

// Which lengths go through the temporary name shows in the name that a failure gives.
TEST_F(Copy, UsesTheTemporaryNameWhereItFits) {
    const auto directory = [](size_t length) {  // of so many characters, the slash at its end too
        return "." + std::string(length - 1, '/');
    };
    const std::string n100(100, 'n'), n120(120, 'n'), n128(128, 'n');
    struct Row {
        std::string destination;
        bool temporary;
    };
    for (const Row& row : {Row{"./" + n120.substr(1), true}, Row{"./" + n120, false},
                           Row{"./" + n128.substr(1), false}, Row{directory(147) + n100, true},
                           Row{directory(148) + n100, false}}) {
        EXPECT_EQ(Safe("./from", row.destination), 0u);
        EXPECT_EQ(ReadFile(row.destination), "new");
        const Fault fault("read", 1, EIO);
        EXPECT_EQ(Safe("./from", row.destination), kFailed);
        EXPECT_TRUE(logged().ends_with(
            "E [ORXFS-LOCAL] Copy File unsuccessfully! src: ./from, dst: " + row.destination +
            (row.temporary ? ".orxtmp" : "") + ", return 268435455\n"));
    }
    WriteFile(n128, "old");
    for (const std::string& over : {"./" + n128, directory(257) + "to"}) {
        EXPECT_EQ(Safe("./from", over), kFailed);
        EXPECT_TRUE(
            logged().starts_with("E nRet=34.Copy DstFileName unsuccessfully, DstFileName="));
        EXPECT_EQ(ReadFile(over), "old") << "refused before anything is deleted";
    }
}

TEST_F(Copy, NeverDeletesItsSource) {
    struct Row {
        const char *what, *source, *destination;
        uint32_t result;
    };
    for (const Row& row : {Row{"same entry", "./d/file", "./d/../d/file", 12},
                           Row{"through a linked directory", "./d/file", "./dlink/file", 12},
                           Row{"source is a link to it", "./link", "./d/file", 12},
                           Row{"source is a link to a link to it", "./chain", "./d/file", 12},
                           Row{"a link on the source's way", "./chain", "././link", 12},
                           Row{"the source's own link", "./link", "././link", 12},
                           Row{"the temporary name", "./x.orxtmp", "./x", 12},
                           Row{"a link in the middle of the way", "./dlink/file", "./dlink", 12},
                           Row{"another hard link", "./d/file", "./hard", 0},
                           Row{"a link to the source", "./d/file", "./link", 0},
                           Row{"the same name elsewhere", "./d/file", "./file", 0}}) {
        MakeDirs("d");
        for (const char* name : {"d/file", "x.orxtmp"})
            WriteFile(name, "precious");
        for (const char* name : {"x", "file"})
            WriteFile(name, "old");
        (void) symlink("d", "dlink");
        (void) symlink("d/file", "link");
        (void) symlink(tree.path("link").c_str(), "chain");
        (void) link("d/file", "hard");
        (void) logged();
        EXPECT_EQ(Safe(row.source, row.destination), row.result) << row.what;
        EXPECT_EQ(ReadFile(row.source), "precious") << row.what;
        const bool copied = row.result == 0;
        EXPECT_EQ(ReadFile(copied ? row.destination : "x"), copied ? "precious" : "old");
        EXPECT_EQ(levels() == "E", row.result != 0) << row.what;
        for (const char* name : {"link", "chain", "hard", "dlink"})
            unlink(name);
    }
}

// Between clean names, to one where nothing stands, less is looked at: nobody can tell.
TEST_F(Copy, TakesAShorterWayToTheSameEnd) {
    const auto nothing = [] {};
    const struct {
        const char* what;
        std::function<void()> prepare;
        const char *source, *destination, *call;
        unsigned looks;  // that the short way needs still, in calls of realpath
    } rows[] = {
        {"fresh", nothing, "from", "w/to", "", 0},
        {"old", [] { WriteFile("w/to", "old"); }, "from", "w/to", "", 2},
        {"dangling", [] { (void) symlink("x", "w/to"); }, "from", "w/to", "", 2},
        {"temporary", [] { WriteFile("w/to.orxtmp", "old"); }, "from", "w/to", "", 1},
        {"itself", [] { WriteFile("w/to.orxtmp", "src"); }, "w/to.orxtmp", "w/to", "", 0},
        {"no directory", nothing, "from", "w/a/to", "", 1},
        {"linked directory", [] { (void) symlink(".", "w/l"); }, "from", "w/l/to", "", 1},
        {"linked source", [] { (void) symlink("../from", "w/l"); }, "w/l", "w/to", "", 2},
        {"no source", nothing, "none", "w/to", "", 0},
        {"a directory", nothing, "w", "w/to", "", 1},
        {"unwritten", nothing, "from", "w/to", "write", 1},
        {"unread", nothing, "from", "w/to", "read", 1},
        {"unmoved", nothing, "from", "w/to", "rename", 0},
    };
    for (const auto& row : rows) {
        std::string ends[2];
        for (const bool is_long : {false, true}) {
            MakeDirs("w");
            row.prepare();
            const auto open_before = OpenFiles();
            (void) logged();
            const Fault unnamed("syscall", is_long ? 1 : 99, EACCES, Fault::kAll);
            const Fault given_up("sendfile", *row.call == '\0' ? 99 : 1, EINVAL, Fault::kAll);
            const Fault fault(*row.call == '\0' ? "fsync" : row.call, 1, EIO);
            const CallCount looks("realpath");
            const std::string to = tree.path(row.destination);
            const uint32_t code = Safe(tree.path(row.source), to);
            EXPECT_TRUE(is_long || looks.value() == row.looks || !HasOpenat2())
                << row.what << looks.value();
            ends[is_long] = std::to_string(code) + "\n" + logged() + ReadFile(to);
            ends[is_long] += Exists(to + ".orxtmp") ? " and a temporary file" : "";
            EXPECT_EQ(OpenFiles(), open_before) << row.what;
            ORX_RmParentDir("w", 1);
        }
        EXPECT_EQ(ends[0], ends[1]) << row.what;
    }
}

TEST_F(Copy, DoesNotWriteThroughAPlantedLink) {
    WriteFile("outside", "kept");
    for (const uint32_t result : {0u, kFailed}) {
        ASSERT_EQ(symlink("outside", "to.orxtmp"), 0);
        const Fault fault("unlink", result == 0 ? 99 : 1, EPERM);  // as if planted right afterwards
        EXPECT_EQ(Safe("./from", "./to"), result);
    }
    EXPECT_EQ(ReadFile("outside"), "kept");
    EXPECT_FALSE(Exists("to.orxtmp"));
}

TEST_F(Copy, FailsWhereItMayNotReplace) {
    const Fault fault("rename", 1, EIO);
    EXPECT_EQ(Safe("./from", "./to"), 0u);
    EXPECT_TRUE(logged().ends_with(
        "E [ORXFS-LOCAL] Rename ./to.orxtmp to ./to unsuccessfully, errno:5.\n"));
    EXPECT_FALSE(Exists("to") || Exists("to.orxtmp"));

    WriteFile("to", "old");
    chmod("to", 0444);
    const Fault kept("remove", 1, EPERM);
    EXPECT_EQ(Safe("./from", "./to"), 6u) << "it is protected";
    EXPECT_EQ(ReadFile("to"), "old");
}

TEST_F(Copy, BoundedReadReturnsWhatThereIsOrGivesUp) {
    // Waiting 300 seconds for a descriptor that never gets ready is not for tests.
    const Fault naps = Fault::Short("usleep", 1, 0, Fault::kAll);
    int ends[2];
    char buffer[100] = {};
    EXPECT_EQ(ORXFS_Read(-1, buffer, 10), kAllBits);
    (void) logged();
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    ASSERT_EQ(write(ends[1], "0123456789", 10), 10);
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, sizeof buffer), kAllBits);
    EXPECT_EQ(naps.calls(), 30000u);
    EXPECT_EQ(naps.asked(), 300'000'000u);
    EXPECT_TRUE(logged().ends_with(", buflen 100, left 90, retry too many times!\n"));
    ASSERT_EQ(write(ends[1], "0123456789abc", 13), 13);
    close(ends[1]);
    std::fill_n(buffer, sizeof buffer, '\0');
    const Fault interrupted("read", 2, EINTR, 3);
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, 3), 3u);
    EXPECT_EQ(ORXFS_Read(ends[0], buffer, sizeof buffer), 10u);
    EXPECT_STREQ(buffer, "3456789abc");
    EXPECT_EQ(naps.calls(), 30003u);
    close(ends[0]);
}

}  // namespace
}  // namespace korx::test
