#include <stdlib.h>

#include "fs/fs_test.h"

namespace korx::test {
namespace {

// zip and unzip stand-ins that write down their arguments and exit with the content of "status".
struct Archive : FsTest {
    Archive() {
        MakeDirs("bin");
        MakeDirs("d");
        for (const char* tool : {"bin/zip", "bin/unzip"}) {
            WriteFile(tool, "#!/bin/sh\necho \"$#: ${0##*/} $*\" >> ran\nexit $(cat status)\n");
            chmod(tool, 0755);
        }
        WriteFile("status", "0");
        WriteFile("a.zip", "old");
        setenv("PATH", (tree.path("bin") + ":" + getenv("PATH")).c_str(), 1);
    }
    std::string ran() {
        const std::string text = ReadFile("ran");
        remove("ran");
        return text;
    }
};

TEST_F(Archive, Unpacks) {
    EXPECT_EQ(ORX_UnZipFile("a.zip", tree.path("x/y").c_str()), 0u);
    EXPECT_EQ(ran(), "5: unzip -o -j -d " + tree.path("x/y") + " a.zip\n");
    EXPECT_EQ(Mode("x/y"), 0750u);
    EXPECT_EQ(logged(), "");

    WriteFile("status", "9");
    EXPECT_EQ(ORX_UnZipFile("a.zip", "x"), kFailed);
    EXPECT_TRUE(logged().ends_with("commod:unzip -o -j -d x a.zip, ret:9.\n"));
    ran();

    EXPECT_EQ(ORX_UnZipFile("none.zip", "x"), kFailed);
    EXPECT_EQ(ORX_UnZipFile("a.zip", "a.zip/x"), kFailed);
    EXPECT_EQ(ran(), "");
}

TEST_F(Archive, Packs) {
    EXPECT_EQ(ORX_ZipFile("d", "a.zip", 0), 0u);
    EXPECT_EQ(ran(), "6: zip -q -o -j -r a.zip d\n");
    EXPECT_FALSE(Exists("a.zip")) << "an old archive goes first";

    WriteFile("a.zip", "old");
    EXPECT_EQ(ORX_ZipFile("none", "a.zip", 0), kFailed);
    EXPECT_FALSE(Exists("a.zip"));
    WriteFile("status", "12");
    EXPECT_EQ(ORX_ZipFile("d", "a.zip", 0), kFailed);
    EXPECT_TRUE(logged().ends_with("commod:zip -q -o -j -r a.zip d, ret:12.\n"));
}

TEST_F(Archive, LimitsItsCommandLine) {
    // "zip -q -o -j -r " and " d" take 18 of 399 characters.
    const std::string longest = "./" + std::string(379, '/').replace(370, 9, "/archive1");
    EXPECT_EQ(ORX_ZipFile("d", longest.c_str(), 0), 0u);
    EXPECT_EQ(ran().size(), std::string("6: zip -q -o -j -r  d\n").size() + 381);
    EXPECT_EQ(ORX_ZipFile("d", (longest + "x").c_str(), 0), kFailed);
    EXPECT_EQ(logged(),
              "E Print pcDescZipFile = " + longest + "x, pcSrcZipDir = d unsuccessfully.\n");

    for (const char* directory : {"e f", "$(touch x)"})
        MakeDirs(directory);
    EXPECT_EQ(ORX_ZipFile("e f", "a.zip", 0), 0u);
    EXPECT_EQ(ran(), "7: zip -q -o -j -r a.zip e f\n");
    EXPECT_EQ(ORX_ZipFile("$(touch x)", "a.zip", 0), kFailed);
    EXPECT_EQ(ran(), "");
}

}  // namespace
}  // namespace korx::test
