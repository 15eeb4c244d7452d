// How korx ini reads and edits texts, against the library's own loader and setters.
#include <algorithm>
#include <optional>
#include <random>
#include <set>

#include "ini_edit.h"
#include "ini_lines.h"
#include "run.h"

namespace korx::test {
namespace {

using tool::CheckProfile;
using tool::EditProfileText;
using tool::IniLine;
using tool::NewSection;
using tool::PlainProfileText;
using tool::SplitLines;

struct IniCheck : RoomTest {};

// Sections, as pairs without a key, and keys with their sections; nothing of a refused text.
struct Pair {
    std::string section, key, value;
    bool operator==(const Pair&) const = default;
};
using Pairs = std::optional<std::vector<Pair>>;

// What the library's loader makes of a text.
Pairs Loaded(const std::string& text) {
    WriteFile("loaded.ini", text);
    KORX_IniSection* const profile = KORX_IniLoadProfile(fopen("loaded.ini", "r"));
    std::vector<Pair> pairs;
    for (auto* section = profile; section != nullptr; section = section->pstNext) {
        pairs.push_back({section->acName, "", ""});
        for (auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            pairs.push_back({section->acName, key->acKey, key->acValue});
    }
    KORX_FreeProfile(profile);
    return profile == nullptr ? std::nullopt : Pairs(pairs);
}

// The same from the tool's own reading.
Pairs Split(const std::string& text) {
    std::vector<Pair> pairs;
    for (const IniLine& line : SplitLines(text)) {
        if (line.is_refused)
            return std::nullopt;
        if (line.kind == IniLine::kSection)
            pairs.push_back({line.name, "", ""});
        else if (line.kind == IniLine::kKey)
            pairs.push_back({pairs.empty() ? "" : pairs.back().section, line.name, line.value});
    }
    return pairs.empty() ? std::nullopt : Pairs(pairs);
}

std::string RandomProfile(std::mt19937& random) {
    static constexpr const char* kPieces[] = {
        "[A]",    "[B]", "[A] ", "key", "=",    " = ",     "value",
        ";",      "#",   "\"",   " ",   "\t",   "\r",      "[",
        "]",      "\n",  "\n",   "\n",  "\r\n", "\n[A]\n", "\n[B]\nkey=1\n",
        "\nk=v\n"};
    static constexpr size_t kLong[] = {64, 65, 130, 256};
    std::string text = random() % 4 == 0 ? "" : "[A]\n";
    for (unsigned n = random() % 30; n > 0; --n) {
        const size_t piece = random() % (std::size(kPieces) + 5);
        if (piece < std::size(kPieces))
            text += kPieces[piece];
        else if (piece == std::size(kPieces))
            text += '\0';
        else
            text.append(kLong[piece - std::size(kPieces) - 1], 'k');
    }
    return text;
}

TEST_F(IniCheck, NamesLineAndRule) {
    const std::string k64(64, 'k'), k65(65, 'k'), v256(256, 'v'), v257(257, 'v');
    const struct {
        std::string text;
        std::string finding;  // line, rule and effect; "": nothing to say
    } kCases[] = {{"; comment\n[A]\n\nkey = \"a value\"\nother=\n[B]\nkey=1", ""},
                  {"", "0 no-section refused"},
                  {"\nkey=1\n[A]\n", "2 key-before-section ignored"},
                  {"[A]\na=b=c\n", "2 equals-in-value reinterpreted"},
                  {"[A]\nx=1\nx=2\n", "3 duplicate-key ignored"},
                  {"[A]\n[B]\n[A]\n", "3 duplicate-section ignored"},
                  {"[A]\n[B] \n", "2 header-with-tail reinterpreted"},
                  {"[A]\n=1\n", "2 empty-key reinterpreted"},
                  {"[A]\nalone\n", "2 no-equals reinterpreted"},
                  {"[A]\n" + k65 + "=1\n", "2 key-too-long refused"},
                  {"[A]\n" + k65 + "\n", "2 key-too-long cut"},
                  {"[A]\n" + k64 + "=1\n", "2 key-too-long ignored"},
                  {"[A]\nx=" + v257 + "\n", "2 value-too-long refused"},
                  {"[A]\nx=" + v256 + "\n", "2 value-too-long cut"},
                  {"[A]\nx=" + v256.substr(1) + "\n", ""},
                  {"[A]\n[" + k64 + "]\n", "2 section-too-long cut"},
                  {"[A]\n;" + std::string(398, 'c') + "\n[B]\n", "2 line-too-long reinterpreted"},
                  {"[A]\n;" + std::string(397, 'c') + "\n[B]\n", ""},
                  {"[A]\nx=\"open\n", "2 unclosed-quote refused"},
                  {"[A]\nx=\"a\" b\n", "2 text-behind-quote cut"},
                  {"\xef\xbb\xbf[A]\n[B]\n", "1 byte-order-mark reinterpreted"},
                  {"[A]\nx=1\ry=2\n", "2 carriage-return reinterpreted"},
                  {std::string("[A]\nx=1\0y\n", 10), "2 nul-byte cut"},
                  {"[A]\r\nx=1\r\n", ""}};
    for (const auto& row : kCases) {
        std::set<std::string> findings;
        for (const auto& finding : CheckProfile(row.text))
            findings.insert(std::to_string(finding.line) + " " + finding.rule + " " +
                            finding.effect);
        EXPECT_TRUE(row.finding.empty() ? findings.empty() : findings.contains(row.finding))
            << testing::PrintToString(row.text);
    }
    WriteFile("p.ini", "[A]\nx=1\nx=2\n");
    Expect("ini check p.ini", 1, "p.ini:3:");
}

TEST_F(IniCheck, ReadsEveryTextAsTheLoaderDoesAndEditsOneValueOfIt) {
    std::mt19937 random(5);
    for (int i = 0; i < 1500; ++i) {
        const std::string text = RandomProfile(random);
        const Pairs loaded = Loaded(text);
        ASSERT_TRUE(Split(text) == loaded) << testing::PrintToString(text);
        const auto lines = SplitLines(text);
        const auto is_lossy = [](const IniLine& line) { return line.is_refused || line.is_cut; };
        if (text.find_first_of(std::string("\0\r", 2)) != std::string::npos ||
            std::any_of(lines.begin(), lines.end(), is_lossy))
            continue;  // what is cut does not come back
        const auto before = loaded.value_or(std::vector<Pair>());
        const std::string edited = EditProfileText(text, {"[B]", "key", "new"}).value_or("");
        auto after = Loaded(edited).value_or(std::vector<Pair>());
        const auto changed = std::find(after.begin(), after.end(), Pair{"[B]", "key", "new"});
        ASSERT_TRUE(changed != after.end()) << text << "\n---\n" << edited;
        // Apart from the one pair, and a section made for it, all is as before.
        if (after.size() == before.size())
            changed->value = before[static_cast<size_t>(changed - after.begin())].value;
        else
            after.erase(after.size() == before.size() + 2 ? changed - 1 : changed, changed + 1);
        ASSERT_TRUE(after == before) << text << "\n---\n" << edited;
    }
}

TEST_F(IniCheck, WritesWithoutCommentsWhatTheLibraryWrites) {
    std::mt19937 random(6);
    int refused = 0;
    for (int i = 0; i < 250; ++i) {
        const std::string text = RandomProfile(random);
        WriteFile("set.ini", text);
        const bool is_set = KORX_IniSetOrAddValue("./set.ini", "[B]", "key", "new") == 0;
        const auto lines = SplitLines(text);
        const bool loads = std::none_of(lines.begin(), lines.end(),
                                        [](const IniLine& line) { return line.is_refused; });
        std::optional<std::string> edited = loads ? PlainProfileText(text) : std::nullopt;
        if (edited)
            edited = EditProfileText(*edited, {"[B]", "key", "new"}, NewSection::kAtTop);
        ASSERT_TRUE(!edited || (is_set && ReadFile("set.ini") == *edited))
            << testing::PrintToString(text);
        refused += is_set && !edited;
    }
    EXPECT_LT(refused, 10);
}

TEST_F(IniCheck, EditsOddTextsWithoutTouchingTheirOtherLines) {
    const std::string pieces = "[A]\nx=1" + std::string(396, ' ') + "y=2\n";
    const struct {
        std::string text;
        tool::IniChange change;
        std::optional<std::string> edited;
    } kCases[] = {
        {"; head\n[S]\r\n key\t=  old ; no comment\r\nz=1",
         {"[S]", "key", "n"},
         "; head\n[S]\r\n key\t=  n\r\nz=1"},
        {"[S]", {"[S]", "a", "1"}, "[S]\na=1\n"},
        {"", {"[S]", "a", "1"}, "[S]\na=1\n"},
        {"[A]\r\nx=1\r\n", {"[A]", "y", "2"}, "[A]\r\ny=2\r\nx=1\r\n"},
        {";c\r\n[A]", {"[A]", "y", "2"}, ";c\r\n[A]\r\ny=2\r\n"},
        {"[A]\r\nx=1", {"[B]", "y", ""}, "[A]\r\nx=1\r\n\r\n[B]\r\ny=\r\n"},
        {"[A]\nx=1\nx=2\n[A]\nx=3\n", {"[A]", "x", "4"}, "[A]\nx=4\nx=2\n[A]\nx=3\n"},
        {"[A]\nx=1\n;\nx=2\n[A]\nx=3", {"[A]", "x", {}}, "[A]\n;\n[A]\nx=3"},
        {"[A]\nalone\nx=1", {"[A]", "x", {}}, "[A]\nalone\n"},
        {"x=1\n", {"[A]", "x", "2"}, "x=1\n\n[A]\nx=2\n"},
        {"\xef\xbb\xbf[A]\nx=1\n", {"[A]", "x", "2"}, "\xef\xbb\xbf[A]\nx=1\n\n[A]\nx=2\n"},
        {pieces, {"[A]", "y", "3"}, pieces.substr(0, pieces.size() - 2) + "3\n"},
        {pieces, {"[A]", "x", ""}, std::nullopt},  // y would be read with it
    };
    for (const auto& row : kCases)
        EXPECT_EQ(EditProfileText(row.text, row.change), row.edited)
            << testing::PrintToString(row.text);
}

}  // namespace
}  // namespace korx::test
