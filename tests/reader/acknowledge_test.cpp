// What an acknowledgement leaves behind: always a log from which every record is delivered.
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <utility>

#include "base/unique.h"
#include "reader/ring_file.h"
#include "support/faults.h"
#include "support/processes.h"

namespace {

using namespace korx::test;
using korx::UniqueFd;

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
    for (const int code :
         {KORX_READER_READ, KORX_READER_WRITE, KORX_READER_CURSOR, KORX_READER_UNSURE})
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

TEST_F(Acknowledge, StopsAtWhatNobodyWasGiven) {
    make_ring(4);
    Ring log(0);
    EXPECT_EQ(log.next() + log.next_unread(), 2);
    ASSERT_EQ(log.ack(), KORX_READER_OK);
    EXPECT_EQ(head().uiDumpLen, 0u) << "the first record is still to be delivered";
    korx_reader_rewind(log.it);
    EXPECT_EQ(log.next_unread() + log.next_unread(), 2);
    ASSERT_EQ(log.ack(), KORX_READER_OK);
    EXPECT_EQ(head().uiDumpLen, 2 * kLength);
    korx_reader_get_info(log.it, &log.info);
    EXPECT_EQ(log.info.unread_records, 2u);
    EXPECT_EQ(log.info.unread_bytes, 2u * kLength);
}

// A lock that others may share keeps out who wants it alone.
TEST_F(Acknowledge, WaitsForTheLock) {
    options.lock_timeout_ms = 20;
    make_ring(1);
    path = "zelk.log";
    write_lines(1);
    const std::string line = "[261124-12:29:13.000042] [ProcID:-1|80100|ERR] : text\n";
    WriteFile("text", BytesOf(static_cast<uint32_t>(line.size())) + line);
    struct flock shared = {};
    shared.l_type = F_RDLCK;
    for (const auto& [name, what] : {std::pair{"ring", KORX_LOG_SECURITY},
                                     {"zelk.log", KORX_LOG_PROCESS},
                                     {"text", KORX_LOG_TEXT}}) {
        SCOPED_TRACE(name);
        LogReader log(name, what, &options);
        ASSERT_EQ(log.next_unread(), 1);
        {
            const UniqueFd other(::open(name, O_RDWR | O_CLOEXEC));
            ASSERT_EQ(what == KORX_LOG_TEXT ? flock(other.get(), LOCK_SH)
                                            : fcntl(other.get(), F_OFD_SETLK, &shared),
                      0);
            EXPECT_EQ(log.ack(), KORX_READER_LOCKED);
            EXPECT_FALSE(Exists(std::string(name) + ".cursor"));
        }
        EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
    }
    EXPECT_EQ(head().uiDumpLen, kLength);
}

TEST_F(Acknowledge, NeverTouchesADamagedHead) {
    make_ring(3);
    Ring log(2);
    const uint32_t outside = 5000;
    ASSERT_EQ(pwrite(fd, &outside, sizeof outside, 0), ssize_t{sizeof outside});
    const std::string before = ReadFile("ring");
    Ring later(2);
    EXPECT_EQ(log.ack(), KORX_READER_DAMAGED) << "it was sound when it was read";
    EXPECT_EQ(later.ack(), KORX_READER_DAMAGED);
    EXPECT_EQ(ReadFile("ring"), before);
    EXPECT_FALSE(Exists("ring.cursor"));
}

// A hidden lap is unread for a cursor that is followed, and for no other.
TEST_F(Acknowledge, FollowsOnlyACursorOfItsOwn) {
    make_ring(0);
    add(3, kLap);
    Ring first(3);
    ASSERT_EQ(first.ack(), KORX_READER_OK);
    add(9, kLap);
    const std::string own = ReadFile("ring.cursor");
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string text = own;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string first_form = changed("cursor 2", "cursor 1").substr(0, own.find("before"));
    const struct {
        const char* what;
        std::string text;
        uint64_t unread;
        uint32_t doubts;
    } cases[] = {
        {"own", own, 9, KORX_DOUBT_LOST},
        {"the form before", first_form, 9, KORX_DOUBT_LOST},
        {"other kind", changed("kind 3", "kind 4"), 0, KORX_DOUBT_LAP | KORX_DOUBT_CURSOR},
        {"other place", changed("213 213", "213 214"), 0, KORX_DOUBT_LAP | KORX_DOUBT_CURSOR},
        {"other form", changed("cursor 2", "cursor 3"), 0, KORX_DOUBT_LAP},
        {"cut", own.substr(0, own.size() - 1), 0, KORX_DOUBT_LAP},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        WriteFile("ring.cursor", row.text);
        const Ring log(0);
        EXPECT_EQ(log.info.unread_records, row.unread);
        EXPECT_EQ(korx_reader_doubts(log.it), row.doubts);
        EXPECT_EQ(log.info.has_cursor, row.unread != 0);
    }
    const Fault forbidden("open", 2, EACCES);
    const Ring log(0);
    EXPECT_EQ(korx_reader_doubts(log.it), KORX_DOUBT_LAP | KORX_DOUBT_CURSOR_FORBIDDEN);
    EXPECT_EQ(log.info.damage, 0u);

    path = "zelk.log";
    write_lines(1);
    WriteFile("zelk.log.cursor", changed("kind 3", "kind 1"));
    EXPECT_EQ(LogReader(path, KORX_LOG_PROCESS).info.has_cursor, 0u);
}

TEST_F(Acknowledge, MakesItsCursorItselfAndMakesItLast) {
    make_ring(0);
    WriteFile("victim", "untouched");
    ASSERT_EQ(chmod("ring", 0604), 0);
    (void) !chown("ring", 12, 34);
    const struct {
        const char* call;
        unsigned nth;
        korx_reader_code code;
    } cases[] = {
        {"fchown", 1, KORX_READER_OK},     {"unlink", 1, KORX_READER_CURSOR},
        {"rename", 1, KORX_READER_CURSOR}, {"fsync", 1, KORX_READER_CURSOR},
        {"fsync", 2, KORX_READER_CURSOR},  {"fdatasync", 1, KORX_READER_WRITE},
        {"fsync", 3, KORX_READER_OK},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.call + std::to_string(row.nth));
        add(1);
        ASSERT_EQ(symlink("victim", "ring.cursor.new"), 0);
        Ring log(1);
        const Fault fault(row.call, row.nth, EPERM);
        EXPECT_EQ(log.ack(), row.code) << log.error.text;
        EXPECT_EQ(fault.hits(), row.nth == 3 ? 0u : 1u) << "each sync is there, and no other";
        EXPECT_EQ(ReadFile("victim"), "untouched");
        struct stat victim;
        EXPECT_EQ(lstat("ring.cursor.new", &victim), -1);
    }
    struct stat log, cursor;
    ASSERT_EQ(stat("ring", &log) + stat("ring.cursor", &cursor), 0);
    EXPECT_EQ(cursor.st_mode, log.st_mode);
    EXPECT_EQ(cursor.st_uid, log.st_uid);
    EXPECT_EQ(cursor.st_gid, log.st_gid);
}

}  // namespace
