// What an acknowledgement leaves behind: always a log from which every record is delivered.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "reader/ring_file.h"
#include "support/faults.h"
#include "support/processes.h"

namespace {

using namespace korx::test;

constexpr char kProcessLine[] = "[2026-11-24 12:00:00.%06u][INFO][L:1 M:1][1]%03u\n";

enum class Blow { kFail, kFailOnwards, kKill };

// A log with some records that were taken and some that were not; some of those are delivered and
// acknowledged, and something happens on the way.
struct Acknowledge : Files {
    void write_lines(unsigned count) {
        std::string text = ReadFile(path);
        for (; count > 0; --count, ++serial) {
            char line[80];
            (void) snprintf(line, sizeof line, kProcessLine, serial, serial);
            text += line;
        }
        WriteFile(path, text);
    }
    void keep_state() {
        log_bytes = ReadFile(path);
        cursor_bytes = ReadFile(path + ".cursor");
    }
    void restore() {
        WriteFile(path, log_bytes);
        WriteFile(path + ".cursor", cursor_bytes);
        (void) unlink((path + ".cursor.new").c_str());
        WriteFile("out", "");
    }

    static std::string deliver(LogReader* log, int most) {
        std::string out;
        for (; most > 0 && log->next_unread() == 1; --most)
            out.append(log->record.message, log->record.message_length) += ' ';
        return out;
    }
    // Takes the delivery back if it may, as the code says.
    int take(Blow blow, unsigned nth) {
        LogReader log(path, kind);
        WriteFile("out", deliver(&log, batch));
        korx_reader_code code = KORX_READER_OK;
        bool was_hit = false;
        {
            const auto fault = blow == Blow::kKill
                                   ? Fault::Kill("*", nth)
                                   : Fault("*", nth, EIO, blow == Blow::kFail ? 1 : Fault::kAll);
            code = log.ack();
            was_hit = fault.hits() != 0;
        }
        if (code != KORX_READER_OK && code != KORX_READER_CURSOR && code != KORX_READER_UNSURE)
            WriteFile("out", "");
        return was_hit ? code : 50 + code;
    }

    // Every call of it fails, fails with all behind it, or never happens. meanwhile: what the
    // writers do before the next take. Then all there ever was has been delivered, in its order.
    void try_all(const std::function<void()>& meanwhile) {
        const unsigned untaken = serial;
        for (const Blow blow : {Blow::kFail, Blow::kFailOnwards, Blow::kKill}) {
            int status = 0;
            for (unsigned nth = 1; status < 50 || status == Fault::kKilled; ++nth) {
                SCOPED_TRACE("blow " + std::to_string(static_cast<int>(blow)) + " call " +
                             std::to_string(nth));
                restore();
                status = RunChild([&] { return take(blow, nth); });
                ASSERT_NE(status, kExpectationFailed);
                seen[status < 50 ? status : 0] = true;
                const bool killed = status == Fault::kKilled;
                EXPECT_TRUE(killed || !Exists(path + ".cursor.new") || blow != Blow::kFail);
                serial = untaken;
                meanwhile();
                std::string expected;
                for (unsigned i = 1000 + oldest; i < 1000 + serial; ++i)
                    expected += std::to_string(i).substr(1) + ' ';
                LogReader log(path, kind);
                EXPECT_EQ(log.info.damage, 0u);
                // Nothing but the cursor tells a full lap from none.
                if (status == KORX_READER_CURSOR && log.info.unread_records == 0) {
                    EXPECT_NE(korx_reader_doubts(log.it) & KORX_DOUBT_LAP, 0u);
                    continue;
                }
                const std::string once = ReadFile("out"), more = deliver(&log, 99);
                EXPECT_TRUE(once + more == expected || (status != 50 && more == expected))
                    << once << "| " << more << "status " << status;
                EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
                EXPECT_EQ(LogReader(path, kind).info.unread_records, 0u);
            }
        }
    }

    std::string path = "ring", log_bytes, cursor_bytes;
    korx_log_kind kind = KORX_LOG_SECURITY;
    unsigned oldest = 1;  // that was not taken
    int batch = 3;
    bool seen[50] = {};
};

TEST_F(Acknowledge, OfARingNeverLosesARecordWhateverFails) {
    make_ring(0);
    add(5, kLap);
    Ring first(1);
    ASSERT_EQ(first.ack(), KORX_READER_OK);
    keep_state();
    try_all([] {});
    // The writers come round to the reader's position, wherever that is by now.
    try_all([&] { add(4 + head().uiDumpLen / kLength, kLap); });
    for (const int code : {KORX_READER_READ, KORX_READER_WRITE, KORX_READER_CURSOR,
                           KORX_READER_UNSURE})
        EXPECT_TRUE(seen[code]) << code;
}

// The head is the same before and after, so the cursor alone says what was taken.
TEST_F(Acknowledge, OfAHiddenLapNeverLosesARecordWhateverFails) {
    make_ring(0);
    add(4, kLap);
    Ring first(4);
    ASSERT_EQ(first.ack(), KORX_READER_OK);
    add(9, kLap);
    keep_state();
    oldest = 4;
    batch = 9;
    try_all([] {});
    EXPECT_FALSE(seen[KORX_READER_CURSOR]);
    EXPECT_TRUE(seen[KORX_READER_UNSURE]);
}

TEST_F(Acknowledge, ByCursorNeverLosesARecordWhateverFails) {
    path = "zelk.log";
    kind = KORX_LOG_PROCESS;
    write_lines(1);
    LogReader first(path, kind);
    ASSERT_EQ(first.next_unread(), 1);
    ASSERT_EQ(first.ack(), KORX_READER_OK);
    write_lines(4);
    keep_state();
    try_all([&] { write_lines(1); });
    for (const int code : {KORX_READER_WRITE, KORX_READER_UNSURE, KORX_READER_CHANGED})
        EXPECT_TRUE(seen[code]) << code;
}

}  // namespace
