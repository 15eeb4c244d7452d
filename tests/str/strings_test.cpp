#include "korx/str.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

using Strings = RoomTest;
using Lines = std::vector<SyslogLine>;

TEST_F(Strings, CompareUpToALimit) {
    const std::string p127(127, 'p'), p128(128, 'p');
    struct Row {
        const char *text, *other;
        uint32_t starts, equal;
    };
    for (const Row& row : {Row{"abc", "", 1, 0}, Row{"ab", "ab", 1, 1}, Row{"ab", "aB", 0, 0},
                           Row{"a", nullptr, 0, 0}, Row{nullptr, nullptr, 0, 0},
                           Row{&p128[0], &p127[0], 1, 0}, Row{&p127[0], &p128[0], 0, 0}}) {
        EXPECT_EQ(ORX_StrIsStartWith(row.text, row.other), row.starts);
        EXPECT_EQ(ORX_IsStringEqual(row.text, row.other), row.equal);
    }
    EXPECT_EQ(syslog.lines(), Lines{});
    EXPECT_EQ(ORX_StrIsStartWith(p128.c_str(), p128.c_str()), 0u);
    EXPECT_EQ(syslog.lines(), (Lines{{LOG_ERR, "[0] nRet=34.Copy pcStr unsuccessfully, pcStr=" +
                                                   p128 + ", pcStrLen=128.\n"}}));
}

TEST_F(Strings, CopyWhatFits) {
    char text[5] = "####";
    EXPECT_EQ(ORX_StringLoop("abcd", text, 4), 0u);
    EXPECT_EQ(ORX_StringLoop("", text, 0), 0u);
    EXPECT_STREQ(text, "####");
    EXPECT_EQ(ORX_StringLoop("a", text, 4), 0u);
    EXPECT_EQ(std::string(text, 5), std::string("a\0#\0\0", 5));
    EXPECT_EQ(syslog.lines(), Lines{});

    for (const auto& [count, copied] :
         {std::pair{0u, "abc"}, {2u, "ab"}, {3u, "abc"}, {100u, "abc"}}) {
        char* const copy = ORX_StrNdup("abc", count);
        EXPECT_STREQ(copy, copied);
        EXPECT_EQ(copy[count == 0 ? 3 : count], '\0');
        free(copy);
    }
    Fault fault{"malloc", 1, ENOMEM};
    EXPECT_EQ(ORX_StrNdup("abc", 0), nullptr);
}

TEST_F(Strings, SplitAtRunsOfSeparators) {
    struct Row {
        const char* text;
        char separator;
        uint32_t max_count;
        const char* tokens;  // joined by |
    };
    for (const Row& row : {Row{",,,", ',', 0, ""}, Row{",,a,,b,,", ',', 0, "a|b|"},
                           Row{"a,b,,c,", ',', 1, "a|b,,c,|"}, Row{"a,,b,,", ',', 2, "a|b|"},
                           Row{"abc", '\0', 0, "abc|"}}) {
        ORX_VEC_Vector* const tokens = ORX_VEC_VectorInit(nullptr, 0);
        EXPECT_EQ(ORX_SplitString2Vector(row.text, row.separator, row.max_count, tokens), 0u);
        std::string joined;
        for (uint32_t i = 0; i < tokens->uiUsedSlots; ++i)
            joined += static_cast<char*>(tokens->ppSlots[i]) + std::string("|");
        EXPECT_EQ(joined, row.tokens) << row.text;
        ORX_VEC_VectorClearAll(tokens);
        ORX_VEC_VectorFree(tokens);
    }
}

// As ORX_VEC_VectorSet would, token by token.
TEST_F(Strings, SplitFillsTheLowestEmptySlots) {
    for (unsigned holes = 0; holes < 32; ++holes) {
        ORX_VEC_Vector* const vectors[] = {ORX_VEC_VectorInit(nullptr, 1),
                                           ORX_VEC_VectorInit(nullptr, 1)};
        for (auto* const vector : vectors) {
            for (unsigned slot = 0; slot < 5; ++slot) {
                char* const old = (holes >> slot & 1) != 0 ? nullptr : ORX_StrNdup("old", 0);
                ORX_VEC_VectorSetIndex(vector, slot, old);
            }
        }
        EXPECT_EQ(ORX_SplitString2Vector("a,b,c", ',', 0, vectors[0]), 0u);
        for (const char* const token : {"a", "b", "c"})
            ORX_VEC_VectorSet(vectors[1], ORX_StrNdup(token, 0));
        ASSERT_EQ(vectors[0]->uiUsedSlots, vectors[1]->uiUsedSlots) << holes;
        for (unsigned slot = 0; slot < vectors[0]->uiUsedSlots; ++slot)
            EXPECT_STREQ(static_cast<char*>(vectors[0]->ppSlots[slot]),
                         static_cast<char*>(vectors[1]->ppSlots[slot]))
                << holes;
        for (auto* const vector : vectors) {
            ORX_VEC_VectorClearAll(vector);
            ORX_VEC_VectorFree(vector);
        }
    }
}

// Allocations of the call: token a, token b, the vector's growth for it.
TEST_F(Strings, FreeEveryElementWhenASplitFails) {
    for (const auto& [call, nth] : {std::pair("malloc", 1u), {"malloc", 2u}, {"realloc", 1u}}) {
        ORX_VEC_Vector* const tokens = ORX_VEC_VectorInit(nullptr, 2);
        ORX_VEC_VectorSet(tokens, ORX_StrNdup("before", 0));
        Fault fault{call, nth, ENOMEM};
        EXPECT_EQ(ORX_SplitString2Vector("a,b,c", ',', 0, tokens), 0x0FFFFFFFu);
        EXPECT_EQ(fault.hits(), 1u);
        EXPECT_EQ(ORX_VEC_VectorCount(tokens), 0u);
        ORX_VEC_VectorFree(tokens);
    }
}

TEST_F(Strings, ConvertAddresses) {
    char text[16] = "old";
    EXPECT_EQ(ORX_GetStrIpAddrByDig(0xFFFFFFFF, text, sizeof text), 15);
    EXPECT_STREQ(text, "255.255.255.255");
    for (const auto& [size, length] : {std::pair(8u, 7), {7u, -1}, {0u, -1}})
        EXPECT_EQ(ORX_GetStrIpAddrByDig(0x01020304, text, size), length);

    struct Row {
        const char* text;
        int fields;
        uint32_t address;
    };
    for (const Row& row : {Row{"1.2.3.4", 4, 0x01020304}, Row{"255.0.255.0x", 4, 0xFF00FF00},
                           Row{"0.0.1.256", 4, 0x200}, Row{"256.0.0.1", 4, 1}, Row{"10.0.0", 3, 7},
                           Row{"", -1, 7}}) {
        uint32_t address = 7;
        EXPECT_EQ(ORX_GetDigIpAddrByStr(row.text, &address), row.fields) << row.text;
        EXPECT_EQ(address, row.address) << row.text;
        EXPECT_EQ(ORX_GetDigIpAddrByStr(row.text, nullptr), row.fields == 4 ? -1 : row.fields);
    }
}

}  // namespace
}  // namespace korx::test
