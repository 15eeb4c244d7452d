#include "base/bounded.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include "base/text.h"

namespace korx::test {
namespace {

// A destination with a guard behind it: nothing may be written past its size.
struct Guarded {
    explicit Guarded(const char* text = "old") { strcpy(bytes, text); }
    ~Guarded() { EXPECT_EQ(strcmp(bytes + 8, "guard"), 0); }
    char bytes[14] = {0, 0, 0, 0, 0, 0, 0, 0, 'g', 'u', 'a', 'r', 'd', 0};
};

TEST(Bounded, CopiesWholeTextsOrNone) {
    const struct {
        size_t size;
        const char* source;
        size_t count;
        int code;
        const char* text;
    } rows[] = {{8, "1234567", 100, 0, "1234567"}, {8, "12345678", 7, 0, "1234567"},
                {8, "12345678", 8, ERANGE, ""},    {1, "", 5, 0, ""},
                {1, "1", 1, ERANGE, ""},           {8, nullptr, 1, EINVAL, ""},
                {0, "1", 1, EINVAL, "old"}};
    for (const auto& row : rows) {
        Guarded out;
        EXPECT_EQ(strncpy_s(out.bytes, row.size, row.source, row.count), row.code);
        EXPECT_STREQ(out.bytes, row.text);
    }
    EXPECT_EQ(strncpy_s(nullptr, 8, "1", 1), EINVAL);
}

TEST(Bounded, AppendsWholeTextsOrNone) {
    Guarded out;
    EXPECT_EQ(strncat_s(out.bytes, 8, "4567x", 4), 0);
    EXPECT_STREQ(out.bytes, "old4567");
    EXPECT_EQ(strncat_s(out.bytes, 8, "8", 1), ERANGE);
    EXPECT_STREQ(out.bytes, "");
    memset(out.bytes, 'u', 8);  // not terminated within its size
    EXPECT_EQ(strncat_s(out.bytes, 8, "1", 1), ERANGE);
    EXPECT_STREQ(out.bytes, "");
}

TEST(Bounded, FormatsWholeTextsOrNone) {
    Guarded out;
    EXPECT_EQ(snprintf_s(out.bytes, 8, 3, "%d", 1234), -1);
    EXPECT_STREQ(out.bytes, "");
    EXPECT_EQ(snprintf_s(out.bytes, 8, 100, "%d", 12345678), -1);
    EXPECT_STREQ(out.bytes, "");
    EXPECT_EQ(snprintf_s(out.bytes, 8, 7, "%d", 1234567), 7);
    EXPECT_EQ(snprintf_s(out.bytes, 0, 7, "x"), -1);
    EXPECT_EQ(snprintf_s(nullptr, 8, 7, "x"), -1);
    EXPECT_STREQ(out.bytes, "1234567");

    FixedText<8> text;
    EXPECT_FALSE(text.format("%s", "12345678"));
    EXPECT_TRUE(text.empty());
}

TEST(Bounded, MovesWholeBlocksOrNone) {
    Guarded out;
    EXPECT_EQ(memcpy_s(out.bytes, 4, "12345", 5), ERANGE);
    EXPECT_EQ(memcpy_s(out.bytes, 4, nullptr, 1), EINVAL);
    EXPECT_EQ(memset_s(out.bytes, 4, 'x', 5), ERANGE);
    EXPECT_STREQ(out.bytes, "old");
}

}  // namespace
}  // namespace korx::test
