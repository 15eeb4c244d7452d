// korx ini as it is used: alone, beside others, and with calls that fail.
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <set>

#include "base/unique.h"
#include "run.h"
#include "support/processes.h"
#include "tapped.h"

namespace korx::test {
namespace {

struct IniCommand : RoomTest {};

TEST_F(IniCommand, GetsAndListsWhatTheLoaderSees) {
    WriteFile("p.ini", "[A]\nx = \"a b\" \ny=\nq=\"open\n[A]\nx=2\n[B]\n");
    WriteFile("long.ini", "[A]\nx=" + std::string(257, 'v') + "\n");
    const struct {
        int status;
        std::string out, command;
    } kCases[] = {{0, "a b\n", "get p.ini A x"},
                  {0, "\"a b\"\n", "get p.ini [A] x --raw"},
                  {0, "\n", "get p.ini A y"},
                  {1, "", "get p.ini A none"},
                  {1, "", "get p.ini A q"},
                  {1, "", "get p.ini a x"},
                  {0, "[A]\nx=\"a b\"\ny=\nq=\"open\n[A]\nx=2\n[B]\n", "list p.ini"},
                  {0, "[B]\n", "list p.ini B"},
                  {1, "", "list p.ini C"}};
    for (const auto& row : kCases) {
        const Result result = Korx("ini " + row.command);
        EXPECT_EQ(result.status, row.status) << row.command;
        EXPECT_EQ(result.out, row.out) << row.command;
    }
    Expect("ini get none.ini A x", 3, "none.ini");
    Expect("ini get long.ini A x", 3, "long.ini:2");
    Expect("ini get long.ini A x --default 5", 3, "long.ini:2");
}

TEST_F(IniCommand, ChangesAllOrNothingAndBack) {
    const std::string text = "; why\n[A]\nx=1\ny=2\ny=3\n";
    WriteFile("p.ini", text);
    const struct {
        int status;
        std::string out, command;
    } kSteps[] = {{0, "8\n", "get p.ini A none --default 8"},
                  {0, "8\n", "get none.ini A none --default 8"},
                  {0, "1\n", "get p.ini A x --default 8"},
                  {0, "", "set p.ini A x=5 z=a [B] v= w=0 --keep-comments"},
                  {1, "-[A] x=1\n+[A] x=5\n+[A] z=a\n+[B] w=0\n+[B] v=\n", "diff p.ini"},
                  {1, "-[A] z=a\n-[A] x=5\n+[A] x=1\n-[B] w=0\n-[B] v=\n", "diff p.ini p.ini-"},
                  {0, "", "diff p.ini p.ini"},
                  {0, "", "revert p.ini"},
                  {0, "1\n", "get p.ini A x"},
                  {1,
                   R"({"section":"[A]","key":"z","old":"a"}
{"section":"[A]","key":"x","old":"5","new":"1"}
{"section":"[B]","key":"w","old":"0"}
{"section":"[B]","key":"v","old":""}
)",
                   "diff p.ini --json"},
                  {0, "", "revert p.ini"},
                  {1, "", "unset p.ini A x none"},
                  {1, "", "set p.ini A x=6 none=6 --existing"},
                  {2, "", "set p.ini A x=6 C v=1 D"},
                  {2, "", "set p.ini A x"},
                  {2, "", "set p.ini A x 6 --json"},
                  {2, "", "set p.ini A x=6 y==6 z=6"},
                  {0, "5\n", "get p.ini A x"},
                  {0, "", "unset p.ini A y z"},
                  {0, "[A]\nx=5\n[B]\nw=0\nv=\n", "list p.ini"},
                  {0, "", "revert p.ini"},
                  {0, "", "set p.ini A x [z]"},
                  {0, "[z]\n", "get p.ini A x"},
                  {3, "", "diff none.ini"},
                  {3, "", "revert none.ini"}};
    for (const auto& row : kSteps) {
        const Result result = Korx("ini " + row.command);
        EXPECT_EQ(result.status, row.status) << row.command << "\n" << result.err;
        EXPECT_EQ(result.out, row.out) << row.command;
    }
    EXPECT_EQ(ReadFile("p.ini-"), "; why\n[A]\nz=a\nx=5\ny=2\ny=3\n\n[B]\nw=0\nv=\n");
    unlink("p.ini-");
    ASSERT_EQ(link("p.ini", "p.ini-"), 0);  // left by a save that was killed
    Expect("ini revert p.ini", 1);
}

TEST_F(IniCommand, ChangesTheFileThatLinksLeadTo) {
    MakeDirs("real");
    WriteFile("real/p.ini", "[A]\nx=1\n");
    ASSERT_EQ(chown("real/p.ini", 12, 34), 0);
    ASSERT_EQ(symlink("real", "folder"), 0);
    ASSERT_EQ(symlink("folder/p.ini", "link.ini"), 0);
    ASSERT_EQ(symlink("none.ini", "dangling.ini"), 0);
    for (const char* name : {"link.ini", "folder/p.ini"})
        for (const char* how : {" --keep-comments", ""}) {
            const std::string value = std::string("by-") + name[0] + (how[0] == ' ' ? "k" : "");
            Expect(std::string("ini set ") + name + " A x " + value + how, 0);
            EXPECT_EQ(ReadFile("real/p.ini"), "[A]\nx=" + value + "\n");
        }
    Expect("ini diff link.ini", 1, "by-fk");
    Expect("ini revert link.ini", 0);
    struct stat st;
    ASSERT_EQ(lstat("link.ini", &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(stat("link.ini", &st), 0);
    EXPECT_EQ(st.st_uid * 100 + st.st_gid, 1234u);
    EXPECT_TRUE(Exists("real/p.ini.lock") && Exists("real/p.ini-") && !Exists("link.ini.lock"));
    for (const char* command : {"set dangling.ini A x 1", "unset dangling.ini A x"})
        Expect(std::string("ini ") + command, 3, "a link that leads nowhere");
    EXPECT_FALSE(Exists("none.ini") || Exists("dangling.ini.lock"));
    WriteFile("none.ini", "");
    chmod("none.ini", 0444);
    Expect(Korx("ini set none.ini A x 1", -1, 12), 3, "none.ini: Permission denied");
    EXPECT_FALSE(Exists("none.ini.lock"));
    const UniqueFd fd(open("none.ini", O_RDONLY | O_CLOEXEC));
    int flags = FS_IMMUTABLE_FL;
    if (ioctl(fd.get(), FS_IOC_SETFLAGS, &flags) == 0) {  // not every file system has them
        Expect("ini set none.ini A x 1", 3, "none.ini: Operation not permitted (it is protected");
        flags = 0;
        EXPECT_EQ(ioctl(fd.get(), FS_IOC_SETFLAGS, &flags), 0);
    }
}

#ifdef KORX_TAPPED
TEST_F(IniCommand, SaysWhatDidNotWorkOutAndGoesAnotherWay) {
    const struct {
        const char *fault, *command;
        int status;
        const char *said, *text, *backup;
    } kCases[] = {
        {"fsync 2 5", "set p.ini A x 2", 0, "may not be on disk yet", "[A]\nx=2\n", "[A]\nx=1\n"},
        {"link 1 1", "set p.ini A x 2", 0, "no backup: ", "[A]\nx=2\n", ""},
        {"write 1 28", "set p.ini A x 2", 5, "p.ini+: No space", "[A]\nx=1\n", "[A]\nx=0\n"},
        {"fsync 1 5", "unset p.ini A x", 5, "p.ini+: Input/output", "[A]\nx=1\n", "[A]\nx=0\n"},
        {"fsync 2 5", "revert p.ini", 0, "may not be on disk yet", "[A]\nx=0\n", "[A]\nx=1\n"},
        {"renameat2 1 22", "revert p.ini", 0, "", "[A]\nx=0\n", "[A]\nx=1\n"}};
    for (const auto& row : kCases) {
        for (const char* name : {"p.ini", "p.ini-"})
            unlink(name);
        WriteFile("p.ini", "[A]\nx=1\n");
        WriteFile("p.ini-", "[A]\nx=0\n");
        const Tapped tapped(row.fault);
        const Result result = Korx(std::string("ini ") + row.command);
        SCOPED_TRACE(std::string(row.command) + " with " + row.fault + ": " + result.err);
        EXPECT_EQ(result.status, row.status);
        EXPECT_TRUE(Has(result.err, row.said) && result.err.empty() == !*row.said);
        EXPECT_EQ(ReadFile("p.ini"), row.text);
        EXPECT_EQ(ReadFile("p.ini-"), row.backup);
    }
}

TEST_F(IniCommand, StartsOverWhenAFileIsReplacedInTheMiddle) {
    const auto replace = [](const char* name, const char* text) {
        WriteFile("new", text);
        rename("new", name);
    };
    const struct {
        const char* stop;  // before which call
        std::function<void()> meanwhile;
        const char* text;
    } kCases[] = {
        {"fsync 1", [&] { replace("real.ini", "[A]\ny=3\n"); }, "[A]\nx=2\ny=3\n"},
        {"fsync 1", [&] { replace("real.ini+", "other"); }, "[A]\nx=2\n"},
        {"rename 1", [&] { replace("real.ini+", "[A]\nz=4\n"); }, "[A]\nx=2\nz=4\n"},
        {"rename 1", [&] { unlink("real.ini+"); }, "[A]\nx=2\n"},
        {"fsync 1",
         [&] {
             unlink("p.ini");
             WriteFile("p.ini", "[A]\nw=5\n");
         },
         "[A]\nx=2\nw=5\n"},
    };
    for (const auto& row : kCases) {
        WriteFile("real.ini", "[A]\nx=1\n");
        unlink("p.ini");
        ASSERT_EQ(symlink("real.ini", "p.ini"), 0);
        const Tapped tapped(std::string(row.stop) + " -1");
        Command command("ini set p.ini A x 2 --keep-comments");
        ASSERT_EQ(waitpid(command.pid(), nullptr, WUNTRACED), command.pid());
        row.meanwhile();
        kill(command.pid(), SIGCONT);
        EXPECT_EQ(command.wait(), 0) << row.stop << ReadFile("cmd.err");
        EXPECT_EQ(ReadFile("p.ini"), row.text) << row.stop;
    }
    EXPECT_EQ(ReadFile("real.ini"), "[A]\nx=1\n");  // the name led elsewhere in the end
}
#endif

TEST_F(IniCommand, SetsDurablyAndSaysWhatIsLost) {
    const std::string text = "; why\n[A]\nx=1 \n";
    WriteFile("p.ini", text);
    chmod("p.ini", 0664);
    WriteFile("p.ini+", "left over");
    Expect("ini set p.ini A x 2 --keep-comments", 0);
    EXPECT_EQ(ReadFile("cmd.err"), "");
    EXPECT_EQ(ReadFile("p.ini"), "; why\n[A]\nx=2 \n");
    EXPECT_EQ(ReadFile("p.ini-"), text);
    EXPECT_EQ(Mode("p.ini"), 0640u);
    EXPECT_FALSE(Exists("p.ini+"));

    Expect("ini set p.ini A y 3", 0);
    EXPECT_TRUE(Has(ReadFile("cmd.err"), "1 comments"));
    Expect("ini set p.ini A z 1 --existing", 1);
    Expect("ini set none.ini A z 1", 3);
    for (const std::string& value :
         Args{"a=b", " a", "a\nb", "\"a", "\"a\" b", std::string(256, 'v')})
        for (const char* how : {"--json", "--keep-comments"})
            EXPECT_EQ(Korx({"ini", "set", "p.ini", "A", "x", value, how}).status, 2) << value;
    Expect("ini set p.ini A #x 1", 2);
    EXPECT_EQ(ReadFile("p.ini"), "[A]\ny=3\nx=2\n");
    WriteFile("long.ini", "[A]\nx=" + std::string(257, 'v') + "\n");
    EXPECT_NE(Korx("ini set long.ini A y 1 --keep-comments").status, 0);
}

TEST_F(IniCommand, LosesNoChangeBesideTheComponentsProcesses) {
    constexpr int kChanges = 40;
    WriteFile("p.ini", "; kept\n[A]\n");
    const auto change = [](int child) {
        for (int i = 0; i < kChanges; ++i) {
            const std::string key = "k" + std::to_string(child * kChanges + i);
            const std::string set = KORX_TOOL " ini set --keep-comments p.ini A " + key + " 1";
            if (child == 0 ? KORX_IniSetOrAddValue("./p.ini", "[A]", key.c_str(), "1") != 0
                           : system(set.c_str()) != 0)
                return 1;
        }
        return 0;
    };
    EXPECT_EQ(RunChildren(3, change), 0);
    const std::string text = ReadFile("p.ini");
    EXPECT_EQ(std::count(text.begin(), text.end(), '='), 3 * kChanges);
}

TEST_F(IniCommand, WaitsForTheLockFileThatIsThereNow) {
    (void) alarm(60);  // instead of a hang
    WriteFile("p.ini", "[A]\nx=1\n");
    UniqueFd now;
    const auto set = [] { return uint32_t(Korx("ini set p.ini A x 2 --keep-comments").status); };
    BehindLock behind(
        "p.ini.lock", Lock::kRecord, set,
        [&](auto&) {
            unlink("p.ini.lock");
            now = HoldLock("p.ini.lock");
        },
        [&](auto& still_behind) {
            still_behind.await_waiter("p.ini.lock");
            WriteFile("p.ini", "[A]\nx=1\ny=3\n");
            now.reset();
        });
    EXPECT_EQ(behind.finish(), 0u);
    EXPECT_EQ(ReadFile("p.ini"), "[A]\nx=2\ny=3\n");
}

}  // namespace
}  // namespace korx::test
