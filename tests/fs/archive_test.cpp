#include <stdlib.h>
#include <sys/stat.h>

#include "korx/fs.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalid = 0x71000002;
using Lines = std::vector<std::string>;

// zip and unzip stand-ins that write down their arguments and exit with the content of "status".
struct Archive : RoomTest {
    Archive() {
        MakeDirs("bin");
        for (const char* tool : {"bin/zip", "bin/unzip"}) {
            WriteFile(tool, "#!/bin/sh\necho \"$#: ${0##*/} $*\" >> ran\nexit $(cat status)\n");
            chmod(tool, 0755);
        }
        WriteFile("status", "0");
        setenv("PATH", (tree.path("bin") + ":" + getenv("PATH")).c_str(), 1);
    }
    Lines logged() {
        Lines lines;
        for (const SyslogLine& line : syslog.lines()) {
            if (line.priority == 3)
                lines.push_back(line.text.substr(4, line.text.size() - 5));
        }
        syslog.clear();
        return lines;
    }
    std::string ran() {
        const std::string text = ReadFile("ran");
        remove("ran");
        return text;
    }
};

TEST_F(Archive, Unpacks) {
    WriteFile("a.zip", "");
    EXPECT_EQ(ORX_UnZipFile("a.zip", tree.path("x/y").c_str()), 0u);
    EXPECT_EQ(ran(), "5: unzip -o -j -d " + tree.path("x/y") + " a.zip\n");
    EXPECT_EQ(Mode("x/y"), 0750u);
    EXPECT_EQ(logged(), Lines{});

    WriteFile("status", "9");
    EXPECT_EQ(ORX_UnZipFile("a.zip", "x"), kFailed);
    const std::string command = "unzip -o -j -d x a.zip";
    EXPECT_EQ(
        logged(),
        (Lines{"Command can't execvp, cmd=" + command + ", split=' ', uiRet=9.",
               "[unzip file] Execute the command unsuccessfully, commod:" + command + ", ret:9."}));
    ran();

    EXPECT_EQ(ORX_UnZipFile("none.zip", "x"), kFailed);
    EXPECT_EQ(ORX_UnZipFile(nullptr, "x"), kFailed);
    EXPECT_EQ(ORX_UnZipFile("a.zip", nullptr), kFailed);
    EXPECT_EQ(logged(), (Lines{"[unzip file] The File doesn't exist, path:none.zip.",
                               "[unzip file] check unzip file unsuccessfully, uiRet:1895825410.",
                               "[unzip file] Input para is invalid.",
                               "[unzip file] check unzip file unsuccessfully, uiRet:1895825410.",
                               "[unzip file] Input para is invalid.",
                               "[unzip file] check unzip file unsuccessfully, uiRet:1895825410."}));
    EXPECT_EQ(ORX_CheckUnZipFilePara("a.zip", "a.zip/x"), kFailed);
    EXPECT_EQ(logged().back(), "[unzip file] Create dir[a.zip/x] unsuccessfully.");
    EXPECT_EQ(ran(), "");
}

TEST_F(Archive, Packs) {
    MakeDirs("d");
    WriteFile("a.zip", "old");
    EXPECT_EQ(ORX_ZipFile("d", "a.zip", 0), 0u);
    EXPECT_EQ(ran(), "6: zip -q -o -j -r a.zip d\n");
    EXPECT_FALSE(Exists("a.zip")) << "an old archive goes first";
    EXPECT_EQ(logged(), Lines{});

    WriteFile("a.zip", "old");
    EXPECT_EQ(ORX_ZipFile("none", "a.zip", 0), kFailed);
    EXPECT_FALSE(Exists("a.zip"));
    EXPECT_EQ(ORX_PrepareZipFileAction(nullptr, nullptr, 0), kInvalid);
    EXPECT_EQ(ORX_ZipFile("d", nullptr, 0), kFailed);
    EXPECT_EQ(logged(), (Lines{"[zip file] The dir doesn't exist, dir:none.",
                               "[zip file] check zip file unsuccessfully, uiRet:1895825410.",
                               "[zip file] The dir doesn't exist, dir:.",
                               "Print pcDescZipFile = , pcSrcZipDir = d unsuccessfully."}));

    WriteFile("status", "12");
    EXPECT_EQ(ORX_ZipFile("d", "a.zip", 0), kFailed);
    EXPECT_EQ(
        logged().back(),
        "[zip file] Execute the command unsuccessfully, commod:zip -q -o -j -r a.zip d, ret:12.");
    ran();
}

TEST_F(Archive, LimitsItsCommandLine) {
    // "zip -q -o -j -r " and " d" take 18 of 399 characters.
    const std::string longest = "./" + std::string(379, '/').replace(370, 9, "/archive1");
    MakeDirs("d");
    EXPECT_EQ(ORX_ZipFile("d", longest.c_str(), 0), 0u);
    EXPECT_EQ(ran().size(), std::string("6: zip -q -o -j -r  d\n").size() + 381);
    EXPECT_EQ(ORX_ZipFile("d", (longest + "x").c_str(), 0), kFailed);
    EXPECT_EQ(logged(),
              Lines{"Print pcDescZipFile = " + longest + "x, pcSrcZipDir = d unsuccessfully."});

    MakeDirs("e f");
    EXPECT_EQ(ORX_ZipFile("e f", "a.zip", 0), 0u);
    EXPECT_EQ(ran(), "7: zip -q -o -j -r a.zip e f\n");
    MakeDirs("$(touch x)");
    EXPECT_EQ(ORX_ZipFile("$(touch x)", "a.zip", 0), kFailed);
    EXPECT_EQ(
        logged().back(),
        "[zip file] Execute the command unsuccessfully, commod:zip -q -o -j -r a.zip $(touch x), ret:4294967295.");
    EXPECT_EQ(ran(), "");
}

}  // namespace
}  // namespace korx::test
