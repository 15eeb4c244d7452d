#include "base/bounded.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
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

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// By its own printing and by that of libc, with all limits up to the whole text.
template <typename... Args>
[[gnu::noipa]] void ExpectPrintsAsLibc(const char* format, Args... args) {
    char expected[200], printed[200];
    const int length = snprintf(expected, sizeof expected, format, args...);
    for (int limit = 0; limit <= length; ++limit) {
        memset(printed, '#', sizeof printed);
        const bool fits = limit == length;
        ASSERT_EQ(snprintf_s(printed, size_t(limit) + 1, 200, format, args...), fits ? length : -1);
        ASSERT_STREQ(printed, fits ? expected : "") << format;
        ASSERT_EQ(printed[limit + 1], '#') << format;
    }
}

TEST(Bounded, PrintsWhatLibcPrints) {
    const char* const null = nullptr;
    ExpectPrintsAsLibc("");
    ExpectPrintsAsLibc("%%%c%s|%s", 'c', "", "text");
    ExpectPrintsAsLibc("100%%|%s|%5s|%.2s|%-3d|%+d|% d", null, "a", "abc", 1, 2, 3);
    ExpectPrintsAsLibc("%s", null);
    for (const int value : {0, 1, -1, -12, 99, 100, 9999, 10000, INT_MAX, INT_MIN}) {
        const auto bits = unsigned(value);
        const long wide = long(value) * 1000003;
        const auto wide_bits = static_cast<unsigned long>(wide);
        ExpectPrintsAsLibc("[Index:%#x][L:%u]%x", bits, bits, bits);
        ExpectPrintsAsLibc("[%04d-%02d-%01d %02u%09u.%06lu]", value, value, value, bits, bits,
                           wide_bits);
        ExpectPrintsAsLibc("%d|%ld|%lx|%05ld", value, wide, wide_bits, wide);
        for (const char* other : {"%05x|%010d", "%#05x|%#d", "%hx|%hhd", "%X|%i", "%x|%+d"})
            ExpectPrintsAsLibc(other, bits, value);
    }
    ExpectPrintsAsLibc("%ld|%lu|%s", LONG_MIN, ULONG_MAX, "behind");
}

TEST(Bounded, MovesWholeBlocksOrNone) {
    Guarded out;
    EXPECT_EQ(memcpy_s(out.bytes, 4, "12345", 5), ERANGE);
    EXPECT_EQ(memcpy_s(out.bytes, 4, nullptr, 1), EINVAL);
    EXPECT_EQ(memset_s(out.bytes, 4, 'x', 5), ERANGE);
    EXPECT_STREQ(out.bytes, "old");
    EXPECT_EQ(memcpy_s(out.bytes, 4, "new", 4), 0);
    EXPECT_STREQ(out.bytes, "new");
}

}  // namespace
}  // namespace korx::test
