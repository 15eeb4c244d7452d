#include <errno.h>
#include <unistd.h>

#include "korx/plog.h"
#include "support/faults.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr uint32_t kAll = 0xFFFFFFFF;
const std::string kSeparator = "\n" + std::string(30, '=') + "\n";

struct StartLog : RoomTest {
    StartLog() {
        strcpy(g_acLogPath, tree.root().c_str());
        STLOG_LogFileInit();
    }
    static STLOG_HDR_S header() {
        EXPECT_EQ(ReadFile(".korxloghdr").size(), sizeof(STLOG_HDR_S));
        return HeadOf<STLOG_HDR_S>(".korxloghdr");
    }
    static void store(const STLOG_HDR_S& header) { WriteFile(".korxloghdr", BytesOf(header)); }
    std::string at(size_t offset, size_t length) const {
        return ReadFile("KORX_START_LOG").substr(offset, length);
    }
    static STLOG_HDR_S defaults() {
        STLOG_HDR_S header;
        STLOG_LoghdrInit(&header);
        return header;
    }
};

TEST_F(StartLog, LaysOutItsSectionsWithTheFirstLine) {
    ORX_LOG_SetLocId(80100);
    EXPECT_EQ(KORX_STLog(1, 1, 2, "patch area mounted"), 0u);
    const uint32_t end = header().astSec[1].uiCur;
    EXPECT_TRUE(std::regex_match(
        at(8334, end - 8334),
        std::regex(R"(\[[\d :.-]{26}\]\[INFO\]\[L:80100 PATCH\]\[2\]patch area mounted\n)")));
    for (const size_t offset : {77, 8302, 41103, 106672})
        EXPECT_EQ(at(offset, 32), kSeparator) << offset;
    STLOG_HDR_S expected = defaults();
    expected.astSec[1].uiCur = end;
    EXPECT_EQ(BytesOf(header()), BytesOf(expected));
    EXPECT_EQ(expected.uiMagic, 0xDEADBEAFu);
    EXPECT_EQ(expected.astSec[3].uiEnd, 258048u);
}

TEST_F(StartLog, GoesBackToASectionsStartWhenARecordMightNotFit) {
    for (const uint32_t room : {600, 599, 0}) {
        unlink("KORX_START_LOG");
        STLOG_HDR_S seeded = defaults();
        seeded.astSec[0].uiCur = seeded.astSec[0].uiEnd - room;
        store(seeded);
        EXPECT_EQ(STLOG_LogFile(0, "x"), 0u);
        const uint32_t start = room < 600 ? 109 : seeded.astSec[0].uiCur;
        EXPECT_EQ(header().astSec[0].uiCur, start + 29) << room;
        EXPECT_EQ(at(start + 28, 1), "x") << room;
    }
}

TEST_F(StartLog, StartsAnewFromAHeaderItCannotTrust) {
    const auto damaged = [](auto change) {
        STLOG_HDR_S header = defaults();
        change(header);
        return header;
    };
    const STLOG_HDR_S kHeaders[] = {
        damaged([](STLOG_HDR_S& h) { h.uiVersion = 1; }),
        damaged([](STLOG_HDR_S& h) { h.uiMagic = 0; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[0].uiStart = h.astSec[0].uiCur = 0; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[1].uiCur = h.astSec[1].uiEnd + 1; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[1].uiCur = h.astSec[1].uiStart - 1; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[3].uiEnd = 258049; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[3].uiEnd = 0xFFFFFFFF; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[0].uiEnd = h.astSec[0].uiStart + 599; }),
        damaged([](STLOG_HDR_S& h) { h.astSec[0].uiEnd = h.astSec[1].uiStart + 1; }),
    };
    for (const STLOG_HDR_S& bad : kHeaders) {
        WriteFile("KORX_START_LOG", std::string(200000, 'o'));
        store(bad);
        EXPECT_EQ(STLOG_LogFile(0, "x"), 0u);
        STLOG_HDR_S expected = defaults();
        expected.astSec[0].uiCur = 109 + 29;
        EXPECT_EQ(BytesOf(header()), BytesOf(expected)) << &bad - kHeaders;
        EXPECT_EQ(ReadFile("KORX_START_LOG").find('o'), std::string::npos) << &bad - kHeaders;
    }
    WriteFile(".korxloghdr", ReadFile(".korxloghdr").substr(0, 75));
    EXPECT_EQ(STLOG_LogFile(0, "y"), 0u);
    EXPECT_EQ(header().astSec[0].uiCur, 109u + 29u);
}

TEST_F(StartLog, TouchesNothingWithoutOpenFilesOrSection) {
    STLOG_HDR_S read;
    EXPECT_EQ(STLOG_LogHdrGet(0, &read), 8u);
    EXPECT_EQ(STLOG_LogBuff2File(0, "x", 1), kAll);
    EXPECT_EQ(KORX_STLog(7, 0, 0, "x"), kAll);
    EXPECT_FALSE(Exists("KORX_START_LOG"));
    ASSERT_EQ(STLOG_CheckFileHandle(), 0u);
    EXPECT_EQ(STLOG_LogHdrGet(4, &read), 8u);
    const Fault full = Fault::Short("pwrite", 1, 10);
    EXPECT_NE(STLOG_LogHdrPut(&read), 0u) << "a part is not enough";
    EXPECT_EQ(STLOG_LogBuff2File(4, "x", 1), kAll);
    EXPECT_EQ(STLOG_LogCleanupEnding(601), 600);
}

TEST_F(StartLog, KeepsItsCursorWhenALineCannotBeWritten) {
    ASSERT_EQ(STLOG_LogFile(2, "one"), 0u);
    const uint32_t cursor = header().astSec[2].uiCur;
    {
        const Fault full("write", 1, ENOSPC);
        EXPECT_EQ(STLOG_LogFile(2, "two"), 0u);
    }
    EXPECT_EQ(header().astSec[2].uiCur, cursor);
    store({});
    const Fault cut("ftruncate", 1, EIO);
    EXPECT_EQ(STLOG_LogFile(2, "three"), kAll);
}

}  // namespace
}  // namespace korx::test
