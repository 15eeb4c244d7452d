#include <errno.h>
#include <sys/stat.h>

#include "ini/ini_room.h"
#include "korx/ini.h"

namespace korx::test {
namespace {

std::string Repeat(char c, size_t count) {
    return std::string(count, c);
}

// The profile of a file in one line: "[A] key|value key|value [B] "; "null" when there is none.
std::string Load(const std::string& content) {
    WriteFile("p", content);
    FILE* const file = [] {
        const Untapped untapped;
        return fopen("p", "r");
    }();
    KORX_IniSection* const profile = KORX_IniLoadProfile(file);
    std::string text = profile == nullptr ? "null" : "";
    for (auto* section = profile; section != nullptr; section = section->pstNext) {
        text += std::string(section->acName) + " ";
        for (auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            text += std::string(key->acKey) + "|" + key->acValue + " ";
    }
    KORX_FreeProfile(profile);
    return text;
}

using Profile = RoomTest;

TEST_F(Profile, LoadsLines) {
    const std::string key64 = Repeat('k', 64);
    const std::string value256 = Repeat('v', 256);
    const struct {
        const char* name;
        std::string content;
        std::string loaded;
    } rows[] = {
        {"trims both sides", "[PATH]\nLOG_PATH = /var/log \n\tx\t=\t1 2\t",
         "[PATH] LOG_PATH|/var/log x|1 2 "},
        {"splits at the last =", "[S]\na=b=c\n=v\nn=\n", "[S] a=b|c |v n| "},
        {"keeps a line without = whole", "[S]\n \tbare \t\n", "[S] bare \t| "},
        {"skips what is not a key", "k=0\n[S]\n\n\r\n \t\n;a=1\n # b=2\n\ra=3\nk=1\n", "[S] k|1 "},
        {"takes every line end", "[S]\r\na=1\r\nb=2\r\nc=3\r", "[S] a|1 b|2 c|3 "},
        {"wants ] at the very end", "[S] \nk=1\n", "null"},
        {"indents sections", "\t [S]\nk=[1]\n[x]=2\n", "[S] k|[1] [x]|2 "},
        {"keeps duplicates", "[S]\nk=1\nk=2\n[S]\nk=3\n", "[S] k|1 k|2 [S] k|3 "},
        {"cuts a section's name", "[" + Repeat('s', 64) + "]\nk=1\n",
         "[" + Repeat('s', 63) + " k|1 "},
        {"reads 399 bytes at a time", "[S]\n;" + Repeat('x', 398) + "k=1\n", "[S] k|1 "},
        {"takes the longest", "[S]\n" + key64 + "=" + value256,
         "[S] " + key64 + "|" + value256 + " "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Load(row.content), row.loaded) << row.name;
    EXPECT_EQ(syslog.lines(), Lines{});
}

TEST_F(Profile, OneLineTooLongMakesTheFileUnreadable) {
    const std::string key = Repeat('k', 65) + " = 1";
    const std::string value = " = " + Repeat('v', 257);
    EXPECT_EQ(Load("[S]\na=1\n " + key + "\n"), "null");
    EXPECT_EQ(Load("[S]\na=1\n k" + value + " \n[T]\n"), "null");
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("Get key info unsuccessfully, KeyLen=65, Text=" + key),
                     Err("Get key info unsuccessfully, ValueLen=256, Text=" + value + " ")}));
}

TEST_F(Profile, FailedLoadLeavesNothingOpen) {
    const std::string content = "[S]\na=1\nb=2\n[T]\nc=3\n";
    const auto before = OpenFiles();
    for (unsigned nth = 1; nth <= 5; ++nth) {
        const Fault fault("malloc", nth, ENOMEM);
        EXPECT_EQ(Load(content), "null") << nth;
        EXPECT_EQ(fault.hits(), 1u);
    }
    EXPECT_EQ(syslog.lines(), Lines{});
    {
        const Fault fault("fgets", 3, EIO);
        EXPECT_EQ(Load(content), "null");
    }
    errno = ENOENT;
    EXPECT_EQ(KORX_IniLoadProfile(nullptr), nullptr);
    EXPECT_EQ(syslog.lines(),
              (Lines{Err("[ORX] Can't get line from file, errno=5"),
                     Err("[ORX]ORX_LoadProfile Open file unsuccessfully.errno=2!")}));
    EXPECT_EQ(before, OpenFiles());
}

TEST_F(Profile, SplitsIntoBuffersOfAnySize) {
    const struct {
        const char* line;
        uint32_t key_size, value_size, result;
        const char *key, *value;
    } rows[] = {
        {" ab = cd ", 3, 3, 0, "ab", "cd"},
        {"ab=cd", 2, 3, kFailed, "a", ""},
        {"ab=cd", 3, 2, kFailed, "ab", "c"},
        {"abc", 3, 1, 0, "ab", ""},
        {"=", 1, 1, 0, "", ""},
    };
    for (const auto& row : rows) {
        std::string key(row.key_size + 1, '?'), value(row.value_size + 1, '?');
        const uint32_t result =
            KORX_IniGetKeyInfo(row.line, key.data(), row.key_size, value.data(), row.value_size);
        EXPECT_EQ(result, row.result) << row.line;
        EXPECT_STREQ(key.c_str(), row.key) << row.line;
        EXPECT_STREQ(value.c_str(), row.value) << row.line;
        EXPECT_TRUE(key.back() == '?' && value.back() == '?') << row.line;
    }
    char text[4] = "???";
    EXPECT_EQ(KORX_IniGetKeyInfo("ab", text, 0, text, 0), kFailed);
    EXPECT_EQ(KORX_IniGetKeyInfo("ab", text, sizeof text, text, 0), kFailed);
    EXPECT_STREQ(text, "???");
}

TEST_F(Profile, ClassifiesAndNames) {
    const struct {
        const char* line;
        uint32_t result;
    } rows[] = {{"[]", 0}, {"[S]\n", 1}, {"[", 1}, {"", 2}, {" ;#", 2}, {"\t#;", 3}};
    for (const auto& row : rows)
        EXPECT_EQ(KORX_IniAnalysisTextLine(row.line), row.result) << row.line;

    char name[4] = "old";
    KORX_IniGetSectionName("[S]", name, 1);
    EXPECT_STREQ(name, "old");
    KORX_IniGetSectionName(" \t[Section]", name, sizeof name);
    EXPECT_STREQ(name, "[Se");
}

TEST_F(Profile, AnswersValues) {
    const std::string v256 = Repeat('v', 256);
    WriteFile("p", "[S]\nk=1\nk=2\nq=\"a b\" c\no=\"open\ne=\nlong=" + v256 +
                       "\n[S]\nlater=3\n[T]\nk=4\n");
    const struct {
        const char *section, *key;
        uint32_t size, result;
        std::string value;
    } rows[] = {
        {"[S]", "k", 2, 0, "1"},
        {"[S]", "k", 1, kFailed, ""},
        {"[S]", "later", 8, 0, ""},
        {"S", "k", 8, 0, ""},
        {"[T]", "k", 8, 0, "4"},
        {"[S]", "q", 4, 0, "a b"},
        {"[S]", "q", 3, 4, ""},
        {"[S]", "o", 3, 4, "\"o"},
        {"[S]", "long", 256, 0, Repeat('v', 255)},
        {"[S]", "long", 255, kFailed, ""},
    };
    for (const auto& row : rows) {
        std::string value(row.size + 1, '?');
        EXPECT_EQ(KORX_IniGetValue("./p", row.section, row.key, value.data(), row.size), row.result)
            << row.section << row.key;
        EXPECT_EQ(value.c_str(), row.value) << row.section << row.key;
        EXPECT_EQ(value.back(), '?');
    }
    char none = '?';
    EXPECT_EQ(KORX_IniGetValue("./p", "[S]", "k", &none, 0), kFailed);
    EXPECT_EQ(none, '?');
}

TEST_F(Profile, OnlyAFailedLoadIsAFailure) {
    const std::string name64 = Repeat('n', 64);
    const std::string none = tree.path("none/p");
    char value[8];
    const auto get = [&](const std::string& file, const std::string& section = "[S]") {
        strcpy(value, "stale");
        syslog.clear();
        const auto result =
            KORX_IniGetValue(file.c_str(), section.c_str(), "k", value, sizeof value);
        return std::to_string(result) + value;
    };
    WriteFile("empty", "k=1\n");
    EXPECT_EQ(get("./empty"), "3stale");
    EXPECT_EQ(get("./missing"), "0");
    EXPECT_EQ(syslog.lines(), (Lines{{6, "[0] File ./missing is not exist.\n"}}));
    EXPECT_EQ(get(none), "0");
    {
        const Fault fault("open", 1, EACCES);
        EXPECT_EQ(get("./empty"), "0");
    }
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    EXPECT_EQ(get("./fifo"), "3stale") << "and it returns at all";

    EXPECT_EQ(KORX_IniGetValue(nullptr, "", "", value, 1), 1u);
    EXPECT_EQ(get("./empty", name64), "2stale");
    EXPECT_EQ(KORX_IniGetValue("./empty", "[S]", name64.c_str(), value, sizeof value), 2u);
    EXPECT_EQ(get(Repeat('/', 256)), "2stale");
    EXPECT_EQ(get(Repeat('/', 255), name64.substr(1)), "0");
}

TEST_F(Profile, FindsTheMiddle) {
    const struct {
        const char *text, *head, *tail;
        uint32_t size, result;
        const char* out;
    } rows[] = {
        {"a<b>c", "<", ">", 2, 1, "b"},   {"a<<b>>", "<<", ">>", 4, 1, "b"},
        {"\"\"", "\"", "\"", 1, 1, ""},   {"a<bc>", "<", ">", 2, 0, ""},
        {"a>b<c", "<", ">", 4, 0, "a>b"}, {"\"a", "\"", "\"", 9, 0, "\"a"},
        {nullptr, "<", ">", 4, 0, ""},
    };
    for (const auto& row : rows) {
        std::string out(row.size + 1, '?');
        EXPECT_EQ(KORX_GetMidString(row.text, row.head, row.tail, out.data(), row.size), row.result)
            << row.out;
        EXPECT_STREQ(out.c_str(), row.out);
        EXPECT_EQ(out.back(), '?') << row.out;
    }
    EXPECT_EQ(syslog.lines(), Lines{Err("BufSize is not long enough.")});
}

}  // namespace
}  // namespace korx::test
