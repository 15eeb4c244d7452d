#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <regex>

#include "fs/fs_test.h"
#include "korx/log.h"
#include "korx/path.h"

namespace korx::test {
namespace {

constexpr char kStamp[] = R"(\[20\d{6}-\d\d:\d\d:\d\d\.\d{6}\])";

struct SpaceFull : FsTest {
    SpaceFull() {
        MakeDirs(tree.path("logs"));
        g_stPtnPath = {};
        tree.path("logs").copy(g_stPtnPath.acLogPath, sizeof g_stPtnPath.acLogPath - 1);
    }
    std::string log() { return ReadFile("logs/orx_spacefull.log"); }
};

std::string Record(const std::string& name, const char* value) {
    std::string text(200, ' ');
    const int length = snprintf(text.data(), text.size(), "%100s%10s\r\n", name.c_str(), value);
    text.resize(size_t(length));
    return text;
}

bool Matches(const std::string& text, const std::string& before, const std::string& record) {
    return std::regex_match(text, std::regex(before + kStamp + record));
}

TEST_F(SpaceFull, StartsAnewBehindTheReservation) {
    ORX_SpaceFullLogInit();
    ORX_SpaceFull("/var", 87);
    EXPECT_TRUE(Matches(log(), " {5120}", Record("/var", "87"))) << log();
    ORX_SpaceFull(std::string(120, 'n').c_str(), 4294967295u);
    EXPECT_TRUE(Matches(log(), R"(\[orx_spacefull\] start:\r\n\])",
                        Record(std::string(120, 'n'), "4294967295")))
        << log();
    EXPECT_EQ(Mode("logs/orx_spacefull.log"), 0640u);
    const size_t restarted = log().size();
    ORX_SpaceFull("/var", 7);
    EXPECT_EQ(log().size(), restarted + 138);
}

TEST_F(SpaceFull, TellsThatADiskHasNoRoomForTheReservation) {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    ORX_SpaceFullLogInit();
    EXPECT_EQ(syslog.texts(),
              std::vector<std::string>{
                  "[0] Spacefulllog init fwrite unsuccessfully, retCode=4096, ferror=1.\n"});
}

TEST_F(SpaceFull, WritesToStandardOutputWhenThereIsNoLog) {
    ORX_SpaceFullLogInit();
    ORX_SpaceFull("/var", 1);
    const std::string before = log();
    const int out = open("out", O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(RunChild([&] {
                  dup2(out, STDOUT_FILENO);
                  const Fault fault("fopen", 1, EACCES);
                  ORX_SpaceFull("/var", 2);
                  return 0;
              }),
              0);
    EXPECT_TRUE(Matches(ReadFile("out"), "", Record("/var", "2"))) << ReadFile("out");
    EXPECT_EQ(log(), before);
    close(out);
}

TEST_F(SpaceFull, RecordsTheUsageOfEachFileSystem) {
    const long page = sysconf(_SC_PAGESIZE);
    struct Row {
        std::string size;  // of a tmpfs
        long used_pages;
        const char* percent;
    };
    MakeDirs("mnt");
    for (const Row& row : {Row{"nr_blocks=1000", 875, "88"}, Row{"nr_blocks=1000", 874, "87"},
                           Row{"nr_blocks=3", 3, "100"},
                           Row{"size=" + std::to_string((1L << 60) + 45 * page), 5, "0"}}) {
        if (mount("none", "mnt", "tmpfs", 0, row.size.c_str()) != 0)
            GTEST_SKIP() << "cannot mount here";
        WriteFile("mnt/f", std::string(static_cast<size_t>(row.used_pages * page), 'x'));
        ORX_GetAndSaveAllDfInfo();
        const std::string text = log();
        umount2("mnt", MNT_DETACH);
        const std::string record = Record(tree.path("mnt"), row.percent);
        EXPECT_TRUE(text.ends_with(record)) << row.percent << ": " << text;
        EXPECT_EQ(text.find("/proc"), std::string::npos) << "it has no blocks";
    }
}

}  // namespace
}  // namespace korx::test
