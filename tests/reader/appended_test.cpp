// Readers that go along with their log by what is new in it.
#include <stdio.h>

#include <fstream>
#include <string>

#include "korx/log.h"
#include "reader/ring_file.h"
#include "support/faults.h"

namespace {

using namespace korx::test;

// Ten places for records of one length; the newest lap has come to the fifth.
struct Places {
    Places() {
        for (unsigned i = 0; i < 10; ++i)
            put(i, i < 4 ? 10 + i : i);
    }
    // The stamp says the number as well, unless another one is given.
    void put(unsigned place, unsigned number, unsigned stamp = 0) {
        char record[96];
        (void) snprintf(
            record, sizeof record,
            "[2026-11-24 12:%02u:00.000000][Index:0x1][AppCid:1][INFO][L:1 M:1][1]%03u\n",
            stamp == 0 ? number : stamp, number);
        records.replace(kLength * place, kLength, record);
    }
    void append() {
        put(head.uiLogLen / kLength, 10 + head.uiLogLen / kLength);
        head.uiLogLen += kLength;
    }
    void store() const { WriteFile("/dev/shm/ring", BytesOf(head) + records); }

    static constexpr uint32_t kLength = 71;
    LOG_HEAD_S head = {4 * kLength, 0, 10 * kLength};
    std::string records = std::string(10 * kLength, 'x');
};

// What a look at the new bytes alone would not tell.
TEST_F(Files, FollowersSeeWhatElseHasHappened) {
    const struct {
        const char* what;
        void (*before)(Places*);
        size_t passed;
        void (*then)(Places*);
        korx_refreshed how;
        const char* next;
    } cases[] = {
        {"two more", [](Places*) {}, 10, [](Places* at) { at->append(), at->append(); },
         KORX_REFRESHED_MORE, "014 015 "},
        {"an acknowledgement", [](Places*) {}, 10,
         [](Places* at) { at->head.uiDumpLen = 2 * Places::kLength; }, KORX_REFRESHED_MORE, ""},
        {"a whole lap and one more", [](Places*) {}, 10,
         [](Places* at) {
             for (unsigned i = 0; i < 11; ++i)
                 at->put((4 + i) % 10, 14 + i);
             at->head.uiLogLen += Places::kLength;
         },
         KORX_REFRESHED_GAP, "015 016 017 018 019 020 021 022 023 024 "},
        {"the last one changed", [](Places*) {}, 10,
         [](Places* at) { at->append(), at->put(3, 99, 13); }, KORX_REFRESHED_MORE, "099 014 "},
        {"the next old one changed", [](Places*) {}, 10,
         [](Places* at) { at->append(), at->put(5, 99, 5); }, KORX_REFRESHED_MORE, "014 "},
        {"the last one got longer", [](Places*) {}, 10,
         [](Places* at) {
             at->records.replace(4 * Places::kLength, 5, "more\n");
             at->head.uiLogLen += 5;
         },
         KORX_REFRESHED_MORE, "013\nmore "},
        {"one without its end", [](Places*) {}, 10,
         [](Places* at) { at->append(), at->records[5 * Places::kLength - 1] = 'x'; },
         KORX_REFRESHED_MORE, "014x "},
        {"an old one that is newer than the one behind it", [](Places* at) { at->put(5, 5, 59); },
         10, [](Places* at) { at->append(); }, KORX_REFRESHED_MORE, "014 "},
        {"another file with the same head and newest records", [](Places*) {}, 10,
         [](Places* at) {
             at->append(), at->put(8, 99, 8);
             (void) rename("/dev/shm/ring", "/dev/shm/t");  // its number is not used again
             at->store();
         },
         KORX_REFRESHED_MORE, "099 014 "},
        {"the old lap is gone", [](Places*) {}, 10,
         [](Places* at) { at->append(), at->head.uiTotalLen = 0; }, KORX_REFRESHED_MORE, "014 "},
        {"what had been passed is gone", [](Places*) {}, 1, [](Places* at) { at->append(); },
         KORX_REFRESHED_GAP, "005 006 007 008 009 010 011 012 013 014 "},
        {"something behind the newest",
         [](Places* at) {
             at->head.uiTotalLen = 0;
             at->records.resize(4 * Places::kLength);
         },
         4,
         [](Places* at) {
             at->records.resize(6 * Places::kLength, 'x');
             at->append();
         },
         KORX_REFRESHED_MORE, "014 "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Places places;
        c.before(&places);
        places.store();
        LogReader log("/dev/shm/ring", KORX_LOG_DIAG);
        for (size_t i = 0; i < c.passed; ++i)
            EXPECT_EQ(log.next(), 1);
        c.then(&places);
        // Otherwise the file stays the same one.
        std::ofstream("/dev/shm/ring", std::ios::in | std::ios::binary)
            << BytesOf(places.head) << places.records;
        korx_refreshed how;
        EXPECT_EQ(korx_reader_refresh(log.it, &how, nullptr), KORX_READER_OK);
        EXPECT_EQ(how, c.how);
        std::string next;
        while (log.next() == 1)
            next += std::string(log.record.message, log.record.message_length) + " ";
        EXPECT_EQ(next, c.next);
        EXPECT_EQ(Told(log.it), Told(LogReader("/dev/shm/ring", KORX_LOG_DIAG).it));
    }
}

TEST_F(Files, FollowersReadWhatIsNew) {
    ASSERT_EQ(DLOG_CheckAndCreateFile("/dev/shm/ring", &fd), 0u);
    const std::string line(100, 'x');
    const auto write = [&](korx_log_kind kind, unsigned i) {
        const std::string stamp = "00." + std::to_string(100000 + i) + "]";
        const std::string record =
            "[2026-11-24 12:00:" + stamp + "[Index:0x1][AppCid:1][INFO][L:1 M:1][1]" + line + "\n";
        const std::string text = "[261124-12:00:" + stamp + " [ProcID:1|1|INFO] : " + line + "\n";
        if (kind == KORX_LOG_TEXT)
            ASSERT_EQ(ORX_WriteLogfile("/dev/shm/text", 0x40000, text.c_str()), 0u);
        else
            ASSERT_EQ(DLOG_Buff2File(fd, record.c_str(), uint32_t(record.size()), 0x40000), 0u);
    };
    for (const auto& [kind, path] :
         {std::pair(KORX_LOG_TEXT, "/dev/shm/text"), {KORX_LOG_DIAG, "/dev/shm/ring"}}) {
        for (unsigned i = 0; i < 2500; ++i)
            write(kind, i);
        LogReader log(path, kind);
        ASSERT_GT(log.info.size, 0x3F000u);
        ASSERT_EQ(log.info.laps, 1u);
        korx_reader_seek_newest(log.it, 0);
        write(kind, 2500);
        const CallCount reads("pread");
        EXPECT_EQ(korx_reader_refresh(log.it, nullptr, nullptr), KORX_READER_OK);
        EXPECT_LT(reads.asked(), 2048u);
        EXPECT_EQ(log.next(), 1);
        EXPECT_EQ(log.next(), 0);
    }
}

}  // namespace
