// korx ini, against the library's own loader and setters.
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <random>

#include "ini_edit.h"
#include "ini_lines.h"
#include "run.h"
#include "support/processes.h"

namespace korx::test {
namespace {

using tool::CheckProfile;
using tool::EditProfileText;
using tool::IniLine;
using tool::SplitLines;

struct IniCheck : RoomTest {};
struct IniCommand : RoomTest {};

struct Pair {
    std::string section, key, value;
    bool operator==(const Pair&) const = default;
};

// What the library's loader makes of a text; nothing for null.
std::vector<Pair> Loaded(const std::string& text, bool* is_null) {
    WriteFile("loaded.ini", text);
    KORX_IniSection* const profile = KORX_IniLoadProfile(fopen("loaded.ini", "r"));
    std::vector<Pair> pairs;
    for (auto* section = profile; section != nullptr; section = section->pstNext) {
        pairs.push_back({section->acName, "", ""});
        for (auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            pairs.push_back({section->acName, key->acKey, key->acValue});
    }
    *is_null = profile == nullptr;
    KORX_FreeProfile(profile);
    return pairs;
}

// The same from the tool's own reading.
std::vector<Pair> Split(const std::string& text, bool* is_null) {
    std::vector<Pair> pairs;
    std::string section;
    bool is_refused = false;
    for (const IniLine& line : SplitLines(text)) {
        is_refused |= line.is_refused;
        if (line.kind == IniLine::kSection)
            pairs.push_back({section = line.name, "", ""});
        else if (line.kind == IniLine::kKey)
            pairs.push_back({section, line.name, line.value});
    }
    *is_null = is_refused || pairs.empty();
    return *is_null ? std::vector<Pair>() : pairs;
}

std::string RandomProfile(std::mt19937& random) {
    static const std::vector<std::string> kPieces = {"[A]",
                                                     "[B]",
                                                     "[A] ",
                                                     "key",
                                                     "=",
                                                     " = ",
                                                     "value",
                                                     ";",
                                                     "#",
                                                     "\"",
                                                     " ",
                                                     "\t",
                                                     "\r",
                                                     "[",
                                                     "]",
                                                     "\n",
                                                     "\n",
                                                     "\n",
                                                     "\r\n",
                                                     "\n[A]\n",
                                                     "\n[B]\nkey=1\n",
                                                     "\nk=v\n",
                                                     std::string(1, '\0'),
                                                     std::string(64, 'k'),
                                                     std::string(65, 'n'),
                                                     std::string(256, 'v'),
                                                     std::string(130, 'x')};
    std::string text = random() % 4 == 0 ? "" : "[A]\n";
    for (unsigned n = random() % 30; n > 0; --n)
        text += kPieces[random() % kPieces.size()];
    return text;
}

TEST_F(IniCheck, ReadsEveryTextAsTheLoaderDoes) {
    std::mt19937 random(3);
    for (int i = 0; i < 1500; ++i) {
        const std::string text = RandomProfile(random);
        bool loader_null = false, split_null = false;
        const auto loaded = Loaded(text, &loader_null);
        const auto split = Split(text, &split_null);
        ASSERT_EQ(split_null, loader_null) << testing::PrintToString(text);
        ASSERT_TRUE(split == loaded) << testing::PrintToString(text);
    }
}

TEST_F(IniCheck, NamesLineAndRule) {
    const std::string k64(64, 'k'), k65(65, 'k'), v256(256, 'v'), v257(257, 'v');
    const struct {
        std::string text;
        size_t line;
        std::string rule;  // "": nothing to say
        std::string effect;
    } kCases[] = {
        {"; comment\n[A]\n\nkey = \"a value\"\nother=\n[B]\nkey=1", 0, "", ""},
        {"", 0, "no-section", "refused"},
        {"key=1\n", 0, "no-section", "refused"},
        {"\nkey=1\n[A]\n", 2, "key-before-section", "ignored"},
        {"[A]\na=b=c\n", 2, "equals-in-value", "reinterpreted"},
        {"[A]\nx=1\nx=2\n", 3, "duplicate-key", "ignored"},
        {"[A]\nx=1\n[B]\nx=2\n", 0, "", ""},
        {"[A]\n[B]\n[A]\n", 3, "duplicate-section", "ignored"},
        {"[A]\n[B] \n", 2, "header-with-tail", "reinterpreted"},
        {"[A]\n=1\n", 2, "empty-key", "reinterpreted"},
        {"[A]\nalone\n", 2, "no-equals", "reinterpreted"},
        {"[A]\n" + k65 + "=1\n", 2, "key-too-long", "refused"},
        {"[A]\n" + k65 + "\n", 2, "key-too-long", "cut"},
        {"[A]\n" + k64 + "=1\n", 2, "key-too-long", "ignored"},
        {"[A]\nx=" + v257 + "\n", 2, "value-too-long", "refused"},
        {"[A]\nx=" + v256 + "\n", 2, "value-too-long", "cut"},
        {"[A]\nx=" + v256.substr(1) + "\n", 0, "", ""},
        {"[A]\n[" + k64 + "]\n", 2, "section-too-long", "cut"},
        {"[A]\n;" + std::string(398, 'c') + "\n[B]\n", 2, "line-too-long", "reinterpreted"},
        {"[A]\n;" + std::string(397, 'c') + "\n[B]\n", 0, "", ""},
        {"[A]\nx=\"open\n", 2, "unclosed-quote", "refused"},
        {"[A]\nx=\"a\" b\n", 2, "text-behind-quote", "cut"},
        {"\xef\xbb\xbf[A]\n[B]\n", 1, "byte-order-mark", "reinterpreted"},
        {"[A]\nx=1\ry=2\n", 2, "carriage-return", "reinterpreted"},
        {std::string("[A]\nx=1\0y\n", 10), 2, "nul-byte", "cut"},
        {"[A]\r\nx=1\r\n", 0, "", ""},
    };
    for (const auto& row : kCases) {
        const auto findings = CheckProfile(row.text);
        const bool found = std::any_of(findings.begin(), findings.end(), [&](const auto& finding) {
            return finding.rule == row.rule && finding.line == row.line &&
                   finding.effect == row.effect;
        });
        EXPECT_EQ(row.rule.empty() ? findings.empty() : found, true)
            << testing::PrintToString(row.text);
    }
    WriteFile("p.ini", "[A]\nx=1\nx=2\n");
    const Result result = Korx({"ini", "check", "p.ini"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out.substr(0, 8), "p.ini:3:");
}

TEST_F(IniCheck, EditsOneValueAndKeepsEveryOtherByte) {
    std::mt19937 random(5);
    for (int i = 0; i < 1000; ++i) {
        const std::string text = RandomProfile(random);
        bool is_null = false;
        const auto before = Loaded(text, &is_null);
        const bool is_cut = text.find('\0') != std::string::npos ||
                            std::any_of(text.begin(), text.end(), [](char c) { return c == '\r'; });
        const auto lines = SplitLines(text);
        if (is_cut || std::any_of(lines.begin(), lines.end(), [](const IniLine& line) {
                return line.is_refused || line.is_cut;
            }))
            continue;
        const std::string edited = EditProfileText(text, "[B]", "key", "new");
        auto after = Loaded(edited, &is_null);
        const auto changed = std::find_if(after.begin(), after.end(), [](const Pair& pair) {
            return pair.section == "[B]" && pair.key == "key";
        });
        ASSERT_TRUE(changed != after.end()) << text;
        ASSERT_EQ(changed->value, "new") << text << "\n---\n" << edited;
        // Apart from the one pair, and a section made for it, all is as before.
        if (after.size() == before.size())
            changed->value = before[static_cast<size_t>(changed - after.begin())].value;
        else
            after.erase(after.size() == before.size() + 2 ? changed - 1 : changed, changed + 1);
        ASSERT_TRUE(after == before) << text << "\n---\n" << edited;
    }
    EXPECT_EQ(EditProfileText("; head\n[S]\r\n key\t=  old ; no comment\r\nz=1", "[S]", "key", "n"),
              "; head\n[S]\r\n key\t=  n\r\nz=1");
    EXPECT_EQ(EditProfileText("[S]", "[S]", "a", "1"), "[S]\na=1\n");
    EXPECT_EQ(EditProfileText("", "[S]", "a", "1"), "[S]\na=1\n");
}

TEST_F(IniCommand, GetsAndListsWhatTheLoaderSees) {
    WriteFile("p.ini", "[A]\nx = \"a b\" \ny=\nq=\"open\n[A]\nx=2\n[B]\n");
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "A", "x"}).out, "a b\n");
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "[A]", "x", "--raw"}).out, "\"a b\"\n");
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "A", "y"}).out, "\n");
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "A", "none"}).status, 1);
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "A", "q"}).status, 1);
    EXPECT_EQ(Korx({"ini", "get", "p.ini", "a", "x"}).status, 1);
    EXPECT_EQ(Korx({"ini", "list", "p.ini"}).out, "[A]\nx=\"a b\"\ny=\nq=\"open\n[A]\nx=2\n[B]\n");
    EXPECT_EQ(Korx({"ini", "list", "p.ini", "B"}).out, "[B]\n");
    EXPECT_EQ(Korx({"ini", "list", "p.ini", "C"}).status, 1);
    EXPECT_EQ(Korx({"ini", "get", "none.ini", "A", "x"}).status, 3);
    WriteFile("long.ini", "[A]\nx=" + std::string(257, 'v') + "\n");
    const Result refused = Korx({"ini", "get", "long.ini", "A", "x"});
    EXPECT_EQ(refused.status, 3);
    EXPECT_NE(refused.err.find("long.ini:2"), std::string::npos);
}

TEST_F(IniCommand, SetsDurablyAndSaysWhatIsLost) {
    const std::string text = "; why\n[A]\nx=1 \n";
    WriteFile("p.ini", text);
    chmod("p.ini", 0664);
    WriteFile("p.ini+", "left over");
    const Result kept = Korx({"ini", "set", "p.ini", "A", "x", "2", "--keep-comments"});
    EXPECT_EQ(kept.status, 0) << kept.err;
    EXPECT_EQ(ReadFile("p.ini"), "; why\n[A]\nx=2 \n");
    EXPECT_EQ(ReadFile("p.ini-"), text);
    EXPECT_EQ(Mode("p.ini"), 0640u);
    EXPECT_FALSE(Exists("p.ini+"));
    EXPECT_EQ(kept.err, "");

    const Result lost = Korx({"ini", "set", "p.ini", "A", "y", "3"});
    EXPECT_EQ(lost.status, 0);
    EXPECT_NE(lost.err.find("1 comments"), std::string::npos) << lost.err;
    EXPECT_EQ(ReadFile("p.ini"), "[A]\ny=3\nx=2\n");
    EXPECT_EQ(Korx({"ini", "set", "p.ini", "A", "z", "1", "--existing"}).status, 1);
    EXPECT_EQ(Korx({"ini", "set", "none.ini", "A", "z", "1"}).status, 3);
    for (const char* value : {"a=b", " a", "a\nb", "\"a", "\"a\" b"})
        for (const char* how : {"--json", "--keep-comments"})
            EXPECT_EQ(Korx({"ini", "set", "p.ini", "A", "x", value, how}).status, 2) << value;
    EXPECT_EQ(Korx({"ini", "set", "p.ini", "A", "#x", "1"}).status, 2);
    EXPECT_EQ(Korx({"ini", "set", "p.ini", "A", "x", std::string(256, 'v')}).status, 2);
    EXPECT_EQ(ReadFile("p.ini"), "[A]\ny=3\nx=2\n");
    WriteFile("long.ini", "[A]\nx=" + std::string(257, 'v') + "\n");
    EXPECT_NE(Korx({"ini", "set", "long.ini", "A", "y", "1", "--keep-comments"}).status, 0);
}

TEST_F(IniCommand, LosesNoChangeBesideTheComponentsProcesses) {
    constexpr int kChanges = 40;
    WriteFile("p.ini", "; kept\n[A]\n");
    const int status = RunChildren(3, [&](int child) {
        for (int i = 0; i < kChanges; ++i) {
            const std::string key = "k" + std::to_string(child) + "_" + std::to_string(i);
            if (child == 0 && KORX_IniSetOrAddValue("./p.ini", "[A]", key.c_str(), "1") != 0)
                return 1;
            // Each child has output files of its own.
            if (child != 0 &&
                system((std::string(KORX_TOOL) + " ini set p.ini A " + key + " 1 --keep-comments")
                           .c_str()) != 0)
                return 2;
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
    const std::string text = ReadFile("p.ini");
    EXPECT_EQ(std::count(text.begin(), text.end(), '='), 3 * kChanges);
}

}  // namespace
}  // namespace korx::test
