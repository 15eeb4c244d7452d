#include "korx/str.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

// What the call leaves of a text; the bytes around it must stay.
template <typename Call>
std::string After(const std::string& text, Call call) {
    char buffer[64] = {};
    buffer[0] = buffer[text.size() + 2] = '#';
    text.copy(buffer + 1, text.size());
    call(buffer + 1);
    EXPECT_TRUE(buffer[0] == '#' && buffer[text.size() + 2] == '#') << text;
    return buffer + 1;
}

TEST(Trim, TakesQuotesBeforeBlanksAtTheEndAndBlanksBeforeQuotesAtTheStart) {
    struct Row {
        const char *text, *start, *end, *both;
    };
    for (const Row& row :
         {Row{"", "", "", ""}, Row{"  \"abc\"", "abc\"", "  \"abc", "abc"},
          Row{"\"abc\"  ", "abc\"  ", "\"abc\"", "abc\""}, Row{"\" a \"", " a \"", "\" a", " a"},
          Row{"a \" \"\"", "a \" \"\"", "a \"", "a \""}, Row{"    ", "", "", ""},
          Row{"\"\"\"", "", "", ""}, Row{"  \"\"", "", "", ""}, Row{"\"\"  ", "  ", "\"\"", ""},
          Row{"\ta\t", "\ta\t", "\ta\t", "\ta\t"}}) {
        const auto run = [&](auto trim) {
            return After(row.text, [&](char* text) {
                EXPECT_EQ(trim(text), 0u);
                const std::string all(text, strlen(row.text));
                EXPECT_EQ(all.find_last_not_of('\0') + 1, strlen(text)) << "the rest is zero";
            });
        };
        EXPECT_EQ(run(ORX_Strtrimr), row.start) << row.text;
        EXPECT_EQ(run(ORX_Strtriml), row.end) << row.text;
        EXPECT_EQ(run([](char* text) { return ORX_Trim(text, 0); }), row.both) << row.text;
    }
}

TEST(Trim, RemovesOneLineEnd) {
    using Row = std::pair<const char*, const char*>;
    for (const auto& [text, left] :
         {Row{"", ""}, Row{"\n", "\n"}, Row{"\r\n", "\r"}, Row{"a\r\n", "a"}, Row{"abc\r", "abc"},
          Row{"ab\n\r", "ab\n"}, Row{"ab\r\n\r\n", "ab\r\n"}})
        EXPECT_EQ(After(text, [](char* t) { ORX_RemoveLastRn(t, 0); }), left) << text;
}

TEST(Trim, KnowsAllSpace) {
    const std::pair<const char*, const char*> rows[] = {
        {" \t\n\v\f\r", ""}, {"\va b\t", "a b"}, {" \xE9 ", "\xE9"}};
    for (const auto& [text, left] : rows) {
        EXPECT_EQ(After(text, [](char* t) { EXPECT_EQ(ORX_StringTrim(t), 0u); }), left);
        EXPECT_EQ(ORX_IsSpaceString(text), *left == '\0' ? 1u : 0u);
    }
}

}  // namespace
}  // namespace korx::test
