#include <gtest/gtest.h>

#include <string.h>
#include <string>
#include <vector>

#include "korx/container.h"

namespace korx::test {
namespace {

using namespace std::literals;

TEST(Tlv, PacksRecordsOneAfterAnother) {
    char buffer[16] = {};
    int16_t left = 15;
    void* next = ORX_AppendTLV(buffer, &left, 7, 3, "abc");
    EXPECT_EQ(next, buffer + 7);
    next = ORX_AppendTLV(next, &left, 0x1FFFE, 0, nullptr);  // at an odd address, type 0xFFFE
    EXPECT_EQ(next, buffer + 11);
    EXPECT_EQ(left, 4);
    EXPECT_EQ(ORX_AppendTLV(next, &left, 9, 0, ""), buffer + 15);
    EXPECT_EQ(left, 0);
    EXPECT_EQ(std::string(buffer, 16), "\7\0\3\0abc\xFE\xFF\0\0\11\0\0\0\0"s);
}

// How a value is copied depends on its length.
TEST(Tlv, CopiesValuesOfAnyLength) {
    const std::string value = "0123456789abcdefghijklmnopqrstuvwxyzABCDE";
    for (size_t length = 0; length < value.size(); ++length) {
        std::string buffer(64, 'x');
        int16_t left = 64;
        ORX_AppendTLV(buffer.data(), &left, 7, static_cast<uint16_t>(length), value.data());
        EXPECT_EQ(buffer.substr(4), value.substr(0, length) + std::string(60 - length, 'x'));
    }
}

TEST(Tlv, WritesNothingThatDoesNotFit) {
    struct Row {
        int left, length;
        bool fits;
    };
    static char value[0xFFFF], buffer[0x8000];
    for (const Row& row :
         {Row{6, 3, false}, Row{7, 3, true}, Row{3, 0, false}, Row{32767, 32763, true},
          Row{32767, 32764, false}, Row{32767, 65535, false}, Row{-1, 0, false},
          Row{-32768, 32763, false}}) {
        for (bool with_type : {true, false}) {
            memset(buffer, 'x', sizeof buffer);
            auto left = int16_t(row.left);
            const auto length = uint16_t(row.length);
            const bool done = with_type ? ORX_AppendTLV(buffer, &left, 1, length, value) != nullptr
                                        : ORX_SetValue(buffer, &left, length, value) == 0;
            EXPECT_EQ(done, row.fits) << row.left << " " << row.length;
            EXPECT_EQ(left, row.fits ? row.left - row.length - 4 : row.left);
            EXPECT_EQ(buffer[0] == 'x', !(row.fits && with_type));
            EXPECT_EQ(buffer[2] == 'x', !row.fits);
            EXPECT_EQ(buffer[4 + (row.fits ? row.length : 0)], 'x');
        }
    }
    int16_t left = 10;
    memset(buffer, 'x', 8);  // a value that cannot be copied leaves only its length behind
    EXPECT_EQ(ORX_AppendTLV(buffer, &left, 1, 2, nullptr), nullptr);
    EXPECT_EQ(ORX_SetValue(buffer, &left, 2, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(std::string(buffer, 5), "xx\2\0x"s);
    EXPECT_EQ(left, 10);
}

TEST(Tlv, ReadsTheFirstRecordOfATypeAndNeverBeyondTheBuffer) {
    struct Row {
        const char* what;
        std::string bytes;
        int found;  // offset of the value, -1 for none
    };
    for (const Row& row :
         {Row{"two of the type", "\5\0\1\0a\5\0\1\0b"s, 4},
          Row{"the second, at an odd address", "\4\0\1\0a\5\0\1\0b"s, 9},
          Row{"an empty value at the end", "\4\0\0\0\5\0\0\0"s, 8},
          Row{"the type's high byte", "\5\1\1\0a"s, -1}, Row{"none", "\4\0\1\0a\6\0\1\0b"s, -1},
          Row{"less than a head behind it", "\4\0\1\0a\5\0\0"s, -1},
          Row{"less than a head at all", "\5\0\0"s, -1},
          Row{"a match that is cut short", "\5\0\2\0a"s, -1},
          Row{"a match that is far too long", "\5\0\xFF\xFF\1\5\0\0\0"s, -1},
          Row{"a step over the end", "\4\0\11\0\5\0\0\0"s, -1},
          Row{"a step of 65535", "\4\0\xFF\xFF\5\0\0\0"s, -1}}) {
        // Not a byte to spare, so that a read beyond it shows.
        const std::vector<char> buffer(row.bytes.begin(), row.bytes.end());
        const auto size = static_cast<int16_t>(row.bytes.size());
        uint16_t length = 0xAAAA;
        const void* value = &length;
        char text[8] = "old";
        const bool none = row.found < 0;
        EXPECT_EQ(ORX_GetVFromTLV(buffer.data(), size, 5, &length, &value), none ? 0xFFFFFFFF : 0);
        EXPECT_EQ(value, none ? static_cast<void*>(&length) : buffer.data() + row.found)
            << row.what;
        EXPECT_EQ(ORX_GetStrByTlvType(5, buffer.data(), size, text, sizeof text), none ? 1u : 0u);
        EXPECT_EQ(text, none ? "old" : std::string(static_cast<const char*>(value), length))
            << row.what;
    }
}

TEST(Tlv, RefusesATextWithoutRoomForItsEnd) {
    const char record[] = "\5\0\3\0abc";
    char text[5] = "xxxx";
    for (uint32_t size : {3, 0})
        EXPECT_EQ(ORX_GetStrByTlvType(5, record, 7, text, size), 1u);
    EXPECT_STREQ(text, "xxxx");
    EXPECT_EQ(ORX_GetStrByTlvType(5, record, 7, text, 4), 0u);
    EXPECT_STREQ(text, "abc");
}

}  // namespace
}  // namespace korx::test
