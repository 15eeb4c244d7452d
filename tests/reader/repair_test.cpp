// Rings whose head no writer can go on from.
#include <errno.h>
#include <unistd.h>

#include <vector>

#include "reader/ring_file.h"
#include "support/faults.h"
#include "support/processes.h"

namespace {

using namespace korx::test;

// A ring that has wrapped, or one in its first lap.
struct Repair : Files {
    void SetUp() override {
        make_ring(0);
        add(9, kLap);
        Ring log(9);
        ASSERT_EQ(log.ack(), KORX_READER_OK);
        add(4, kLap);  // 9 to 12, and of the old lap 4 to 8
    }
    void damage(const LOG_HEAD_S& head) {
        ASSERT_EQ(pwrite(fd, &head, sizeof head, 0), ssize_t{sizeof head});
        before = ReadFile("ring");
    }

    korx_reader_code repair(size_t refused = SIZE_MAX) {
        kept.clear();
        refuse_at = refused;
        const auto keep = [](void* context, const korx_reader*, const korx_record* record) {
            auto* const self = static_cast<Repair*>(context);
            self->kept.push_back(
                record == nullptr ? "end" : std::string(record->message, record->message_length));
            return self->kept.size() == self->refuse_at ? 1 : 0;
        };
        return korx_reader_repair("ring", KORX_LOG_SECURITY, &options, keep, this, &repaired,
                                  &error);
    }
    // As it was, without a copy; or emptied, and taken up by its writer and the next reader.
    void expect_untouched(const char* copy) {
        EXPECT_EQ(ReadFile("ring"), before);
        EXPECT_FALSE(Exists(copy));
        EXPECT_TRUE(Exists("ring.cursor"));
    }
    void expect_sound() {
        serial = 500;
        add(1, kLap);
        Ring log(1);
        EXPECT_EQ(log.info.damage, 0u);
        EXPECT_EQ(log.info.records, 1u);
        EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
    }

    std::string before;
    std::vector<std::string> kept;
    size_t refuse_at = 0;
    korx_reader_repaired repaired = {};
};

TEST_F(Repair, HandsOutWhatIsThereAndKeepsTheFile) {
    std::vector<std::string> all = {"004", "005", "006", "007", "008",
                                    "009", "010", "011", "012", "end"};
    const LOG_HEAD_S sound = head();
    const std::string bytes = ReadFile("ring");
    ASSERT_EQ(repair(), KORX_READER_SOUND);
    ASSERT_EQ(symlink("elsewhere", "ring.damaged.1"), 0);
    unsigned copies = 1;
    for (const LOG_HEAD_S& head : {LOG_HEAD_S{0, 5, 0},
                                   {1000, 1010, 2000},
                                   {10, 20, 0xFFFFFFFF},
                                   {0xFFFFFFF0, 0, 0},
                                   {sound.uiLogLen, sound.uiTotalLen + 1, sound.uiTotalLen}}) {
        SCOPED_TRACE(head.uiLogLen);
        WriteFile("ring", bytes);
        WriteFile("ring.cursor", "");
        damage(head);
        ASSERT_EQ(repair(), KORX_READER_OK) << error.text;
        EXPECT_EQ(kept, all);
        EXPECT_EQ(repaired.records + 1, kept.size());
        EXPECT_EQ(repaired.copy, "ring.damaged." + std::to_string(++copies));
        EXPECT_EQ(ReadFile(repaired.copy), before);
        EXPECT_EQ(Mode(repaired.copy), Mode("ring"));
        EXPECT_FALSE(Exists("ring.cursor"));
        expect_sound();
    }
    EXPECT_FALSE(Exists("elsewhere"));

    WriteFile("ring", bytes.substr(0, 12 + kLength) + "x" + bytes.substr(12 + kLength + 1));
    damage({sound.uiLogLen, sound.uiTotalLen + 1, sound.uiTotalLen});
    ASSERT_EQ(repair(), KORX_READER_OK) << "one record is damaged: it stays in the copy alone";
    std::erase(all, "010");
    EXPECT_EQ(kept, all);
}

TEST_F(Repair, ChangesNothingUnlessTheRecordsAreKept) {
    damage({10, 20, 0xFFFFFFFF});
    for (const size_t refused : {1, 5, 9}) {
        EXPECT_EQ(repair(refused), KORX_READER_REFUSED);
        EXPECT_EQ(kept.size(), refused);
        expect_untouched("ring.damaged.1");
    }
    for (const unsigned nth : {1u, 2u}) {
        const Fault unsynced("fsync", nth, EIO);
        EXPECT_EQ(repair(), KORX_READER_WRITE) << "the copy, and its name, would not last";
        expect_untouched("ring.damaged.1");
    }
    options.flags = KORX_READER_NO_LOCK;
    EXPECT_EQ(repair(), KORX_READER_ARGUMENT);
    options = {};
    options.lock_timeout_ms = 20;
    ASSERT_EQ(DBG_LockReg(fd, DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, 0, 0), 0u);
    EXPECT_EQ(RunChild([&] { return repair() == KORX_READER_LOCKED ? 0 : 1; }), 0);
}

// Each call of a repair fails in turn, and in another round it never happens.
TEST_F(Repair, LeavesTheRingAsItWasOrEmptyWhateverFails) {
    const LOG_HEAD_S sound = head();
    const std::string bytes = ReadFile("ring"), cursor = ReadFile("ring.cursor");
    unsigned calls = 0, unsure = 0;
    for (unsigned nth = 1; calls == 0 || nth <= calls; ++nth) {
        for (const bool killed : {false, true}) {
            SCOPED_TRACE("call " + std::to_string(nth) + (killed ? " killed" : " failed"));
            WriteFile("ring", bytes);
            WriteFile("ring.cursor", cursor);
            (void) unlink("ring.damaged.1");
            damage({10, 20, 0xFFFFFFFF});
            const int status = RunChild([&] {
                const auto fault = killed ? Fault::Kill("*", nth) : Fault("*", nth, EIO);
                return static_cast<int>(repair()) + (fault.hits() == 0 ? 50 : 0);
            });
            if (status == 50)
                calls = nth - 1;
            unsure += status == KORX_READER_UNSURE;
            const bool emptied = ReadFile("ring").size() < sizeof sound + 1;
            if (emptied) {
                EXPECT_TRUE(killed || status == KORX_READER_UNSURE || status == KORX_READER_OK ||
                            status == 50)
                    << status;
                EXPECT_EQ(ReadFile("ring.damaged.1"), before);
            } else if (!killed && status != KORX_READER_OK) {
                expect_untouched("ring.damaged.1");
            }
            if (!emptied) {
                (void) unlink("ring.damaged.1");
                ASSERT_EQ(repair(), KORX_READER_OK) << error.text;
                EXPECT_EQ(kept.size(), 10u);
            }
            expect_sound();
        }
    }
    EXPECT_EQ(unsure, 2u) << "writing and syncing the empty head";
    EXPECT_GT(calls, 15u);
}

}  // namespace
