// Records that are known again, and readers that go along with their log.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "korx/log.h"
#include "reader/ring_file.h"
#include "support/faults.h"

namespace {

using namespace korx::test;
TEST_F(Files, RecordsHaveTheSameIdWhereverTheyAreRead) {
    make_ring(0);
    add(9, kLap);
    const Texts live = Ids(Ring(0));
    EXPECT_EQ(Ids(LogReader(ReadFile("ring"), KORX_LOG_SECURITY, "")), live);
    Ring log(4);
    ASSERT_EQ(log.ack(), KORX_READER_OK);
    add(2, kLap);
    const Texts wrapped = Ids(Ring(0));
    ASSERT_EQ(wrapped.size(), 9u);
    EXPECT_EQ(Texts(wrapped.begin(), wrapped.end() - 2), Texts(live.begin() + 2, live.end()));

    const std::string same = "[2026-11-24 12:00:00.000001][INFO][L:1 M:2][3]same\n";
    const std::string text = same + same + "[x\n";
    WriteFile("zelk.log", text);
    setenv("TZ", "UTC-9", 1);
    const Texts there = Ids(LogReader("zelk.log", KORX_LOG_PROCESS));
    setenv("TZ", "UTC+9", 1);
    EXPECT_EQ(Ids(LogReader(text, KORX_LOG_PROCESS, "")), there);
    EXPECT_EQ(there, (Texts{"process/zelk:2026-11-24T12:00:00.000001:a702eeb1c44516c2:0",
                            "process/zelk:2026-11-24T12:00:00.000001:1c1c822d5443b553:51"}));
    char small[40] = "x";
    ASSERT_EQ(log.next(), 1);
    EXPECT_EQ(korx_reader_record_id(log.it, &log.record, small, sizeof small), 0);
    EXPECT_STREQ(small, "");
}

TEST_F(Files, RefreshedInVainLeaveTheReaderAsItWas) {
    make_ring(3);
    Ring log(2);
    korx_refreshed how;
    ASSERT_EQ(rename("ring", "away"), 0);
    EXPECT_EQ(korx_reader_refresh(log.it, &how, &log.error), KORX_READER_OPEN);
    EXPECT_EQ(log.error.system_error, ENOENT);
    ASSERT_EQ(rename("away", "ring"), 0);
    EXPECT_EQ(log.next(), 1);
    EXPECT_EQ(std::string(log.record.message, log.record.message_length), "002");
    add(1);
    WriteFile("copy", ReadFile("ring"));  // another file, which is read as a whole
    ASSERT_EQ(rename("copy", "ring"), 0);
    ASSERT_EQ(korx_reader_refresh(log.it, nullptr, &log.error), KORX_READER_OK);
    EXPECT_EQ(log.next_unread(), 1);
    EXPECT_EQ(std::string(log.record.message, log.record.message_length), "003");
    ASSERT_EQ(log.ack(), KORX_READER_OK) << "what was handed out before is acknowledged as well";
    EXPECT_EQ(head().uiDumpLen, 2 * kLength) << "the third was passed, but not handed out";
    const LogReader copy(ReadFile("ring"), KORX_LOG_SECURITY, "");
    EXPECT_EQ(korx_reader_refresh(copy.it, &how, nullptr), KORX_READER_ARGUMENT);
}

TEST_F(Files, RefreshedWithoutMemoryLeaveTheReaderAsItWas) {
    make_ring(30);
    const std::string before = ReadFile("ring");
    add(1);
    unsigned failures = 0;
    for (const char* const call : {"malloc", "realloc"}) {
        WriteFile("log", before);
        LogReader log("log", KORX_LOG_SECURITY);
        const Texts told = Told(log.it);
        WriteFile("new", ReadFile("ring"));  // another file, which is read as a whole
        ASSERT_EQ(rename("new", "log"), 0);
        for (unsigned nth = 1; nth <= 12; ++nth) {
            const Fault none(call, nth, ENOMEM);
            if (korx_reader_refresh(log.it, nullptr, nullptr) == KORX_READER_OK)
                break;
            EXPECT_EQ(Told(log.it), told) << call << nth;
            ++failures;
        }
    }
    EXPECT_GT(failures, 1u);
}

TEST_F(Files, AreReadInTheZoneOfTheMoment) {
    make_ring(1);
    time_t times[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(setenv("TZ", i == 0 ? "UTC0" : "WEST+5", 1), 0);
        LogReader log("ring", KORX_LOG_SECURITY);
        ASSERT_EQ(log.next(), 1);
        times[i] = log.record.time.tv_sec;
    }
    EXPECT_EQ(times[1] - times[0], 5 * 3600);
}

// The log cuts its newest record whenever a lap begins.
TEST_F(Files, TextIsTakenOnceAcrossItsLaps) {
    size_t taken = 0, damaged = 0;
    std::set<std::string> texts;
    const std::string path = "/dev/shm/orx_app.log";
    for (unsigned i = 0; i < 400 && !HasFailure(); ++i) {
        char line[120];
        (void) snprintf(line, sizeof line, "[261124-10:00:%02u.%06u] [ProcID:1|1|INFO] : %*u\n",
                        i / 10, i, 5 + static_cast<int>(i * 7 % 31), i);
        ASSERT_EQ(ORX_WriteLogfile(path.c_str(), 3000, line), 0u);
        if (i % 4 != 0)
            continue;
        LogReader log(path, KORX_LOG_TEXT);
        EXPECT_EQ(log.info.gap, 0u) << i;
        while (log.next_unread() == 1) {
            const bool sound = (log.record.flags & KORX_RECORD_DAMAGED) == 0;
            ++(sound ? taken : damaged);
            EXPECT_TRUE(texts.emplace(log.record.text, log.record.length).second) << i;
        }
        ASSERT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
    }
    EXPECT_GT(damaged, 0u) << "one that was cut before it was taken";
    EXPECT_GE(taken + damaged, 397u - 400 / 30);
}

// What is older than a mark by place and stamp is not new; by its stamp alone it may be.
TEST_F(Files, PlaceOfAMarkIsKnownWhereItsRecordIsGone) {
    const auto line = [](char second, const char* message) {
        return std::string("[2026-11-24 12:00:0") + second + ".000001][INFO][L:1 M:2][3]" +
               message + "\n";
    };
    const std::string first = line('3', "a"), last = line('6', "c");
    const LogReader before(first + line('5', "b") + last, KORX_LOG_PROCESS, "");
    korx_record record;
    korx_mark mark;
    ASSERT_EQ(korx_reader_next(before.it, &record) + korx_reader_next(before.it, &record), 2);
    korx_reader_get_mark(before.it, &mark);
    const struct {
        std::string bytes;
        int known;
        const char* next;
    } cases[] = {
        {first + line('5', "x") + last, 1, "c"},
        {first + "[20x6" + line('5', "b").substr(5) + last, 1, "c"},
        {first + line('5', "b\nmore") + last, 1, "b\nmore"},
        {line('0', "a") + line('1', "b") + line('2', "c"), 0, "a"},
        {first + line('5', "x") + line('4', "c"), 0, "a"},
        {line('7', "a") + line('8', "b") + line('9', "c"), 0, "a"},
    };
    for (const auto& c : cases) {
        LogReader log(c.bytes, KORX_LOG_PROCESS, "");
        EXPECT_EQ(korx_reader_seek_mark(log.it, &mark), c.known) << c.bytes;
        EXPECT_EQ(log.next(), 1);
        EXPECT_EQ(std::string(log.record.message, log.record.message_length), c.next) << c.bytes;
    }
}

// A log that is written, killed at, cut, replaced and acknowledged by chance.
struct Followed : ::testing::TestWithParam<std::tuple<korx_log_kind, unsigned>> {
    void SetUp() override {
        (void) snprintf(g_acSTLogFileName, 256, "%s", path.c_str());
        (void) snprintf(g_acSTLogFileHeadName, 256, "/dev/shm/.korxloghdr");
        reopen();
    }
    void TearDown() override { close_log(); }
    // The start log keeps its own.
    void close_log() {
        if (fd > 0)
            (void) close(fd);
    }
    void reopen() {
        const uint32_t made = kind == KORX_LOG_START ? STLOG_CheckFileHandle()
                              : is_ring()            ? DLOG_CheckAndCreateFile(path.c_str(), &fd)
                                                     : LOG_CheckAndCreateFile(path.c_str(), &fd);
        ASSERT_EQ(made, 0u);
    }
    bool is_ring() const { return kind >= KORX_LOG_DIAG && kind <= KORX_LOG_LIFE; }

    std::string record() {
        serial += random() % 40 == 0 ? -50u : random() % 2;  // clocks are set back, too
        ++written;
        const unsigned s = serial / 10, tenth = serial % 10;
        char text[200];
        const char* const format =
            kind == KORX_LOG_TEXT    ? "[261124-%02u:%02u:%02u.%u%05u] [ProcID:%u|1|INFO] : "
            : kind == KORX_LOG_SPACE ? "[20261124-%02u:%02u:%02u.%u%05u]%100u        87\r\n"
            : is_ring()
                ? "[2026-11-24 %02u:%02u:%02u.%u%05u][Index:0x%u][AppCid:1][INFO][L:2 M:3][4]"
            : kind == KORX_LOG_START ? "[2026-11-24 %02u:%02u:%02u.%u%05u][INFO][L:%u DBG][3]"
                                     : "[2026-11-24 %02u:%02u:%02u.%u%05u][INFO][L:%u M:2][3]";
        (void) snprintf(text, sizeof text, format, s / 3600 % 24, s / 60 % 60, s % 60, tenth,
                        written % 100000, 1 + written % 9);
        std::string all = text;
        if (kind == KORX_LOG_SPACE)
            return all;
        const size_t size = written / 64 % 2 ? 100 : all.size() + random() % 400;
        while (all.size() < size)
            all += random() % 50 == 0 ? '\n' : static_cast<char>('a' + random() % 26);
        return all + "\n";
    }
    void write() {
        const std::string text = record();
        const auto length = static_cast<uint32_t>(text.size());
        if (kind == KORX_LOG_TEXT)
            (void) ORX_WriteLogfile(path.c_str(), kLimit, text.c_str());
        else if (kind == KORX_LOG_START)
            (void) STLOG_LogBuff2File(random() % 4, text.c_str(), length);
        else if (kind == KORX_LOG_PROCESS)
            (void) PLOG_Buff2File(fd, text.c_str(), length, kLimit);
        else if (kind == KORX_LOG_SPACE)
            (void) !::write(fd, text.c_str(), length);
        else
            (void) (kind == KORX_LOG_DIAG ? DLOG_Buff2File : SLOG_Buff2File)(fd, text.c_str(),
                                                                             length, kLimit);
    }
    // Where a writer that is killed leaves a record that is not entered in the head.
    void scribble() {
        const auto at = HeadOf<uint32_t>(path) + (is_ring() ? 12u : 4u);
        const std::string text = record();
        const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(pwrite(file, text.data(), random() % text.size(), off_t{at}), 0);
        (void) close(file);
    }
    void replace() {
        const std::string all = ReadFile(path);
        WriteFile("/dev/shm/other", all.substr(0, random() % 2 ? all.size() : random() % 9000));
        ASSERT_EQ(rename("/dev/shm/other", path.c_str()), 0);
        close_log();
        reopen();
    }
    // Leaves the reader at its end.
    void take(korx_reader* reader, size_t most) {
        korx_record record = {};
        korx_reader_rewind(reader);
        while (most-- > 0 && korx_reader_next_unread(reader, &record) == 1) {
        }
        (void) korx_reader_ack(reader, nullptr);
        korx_reader_seek_newest(reader, 0);
    }
    // What comes next has not come before, unless the reader says so.
    void expect_new(LogReader* log, korx_refreshed how) {
        while (log->next() == 1 && !HasFailure()) {
            const std::string id = IdOf(log->it, log->record);
            // What is damaged may change and change back: cut shorter, or with zeros behind it.
            const bool may_come_again =
                how == KORX_REFRESHED_GAP || (log->record.flags & KORX_RECORD_DAMAGED) != 0;
            EXPECT_TRUE(passed.insert(id).second || may_come_again) << id;
            stamps.insert(log->record.time.tv_nsec);
            EXPECT_NE(how, KORX_REFRESHED_SAME);
        }
    }
    // No two records have the same fraction of a second.
    void expect_all_passed(LogReader&& log) {
        while (log.next() == 1 && !HasFailure()) {
            const bool is_sound = (log.record.flags & KORX_RECORD_DAMAGED) == 0;
            EXPECT_TRUE(!is_sound || stamps.contains(log.record.time.tv_nsec))
                << IdOf(log.it, log.record);
        }
    }

    static constexpr uint32_t kLimit = 6000;
    const korx_log_kind kind = std::get<0>(GetParam());
    const std::string path = kind == KORX_LOG_PROCESS ? "/dev/shm/zelk.log" : "/dev/shm/log";
    int fd = 0;
    unsigned serial = 100000, written = 0;
    std::set<std::string> passed;
    std::set<long> stamps;
    Chance random{std::get<1>(GetParam())};
};

TEST_P(Followed, TellsWhatAReaderOpenedNowTells) {
    LogReader log(path, kind);
    ASSERT_EQ(log.code, KORX_READER_OK) << log.error.text;
    const unsigned steps = FromEnvironment("KORX_TEST_STEPS", 1500);
    bool is_current = true;
    for (unsigned i = 0; i < steps && !HasFailure(); ++i) {
        SCOPED_TRACE(i);
        const unsigned chance = random() % 100;
        if (chance < 86)
            write();
        else if (chance < 89 && (is_ring() || kind == KORX_LOG_TEXT))
            scribble();
        else if (chance == 89)
            replace();
        else if (chance < 95)
            take(LogReader(path, kind).it, random() % 20);
        else
            take(log.it, random() % 20);
        if (chance >= 95 && is_current) {
            korx_reader_info info = {};
            korx_reader_get_info(log.it, &info);
            EXPECT_EQ(info.unread_records, LogReader(path, kind).info.unread_records);
        }
        is_current = random() % 3 != 0;
        if (!is_current)
            continue;
        korx_refreshed how;
        ASSERT_EQ(korx_reader_refresh(log.it, &how, &log.error), KORX_READER_OK) << log.error.text;
        expect_new(&log, how);
        LogReader fresh(path, kind);
        ASSERT_EQ(Told(log.it), Told(fresh.it));
        expect_all_passed(LogReader(path, kind));
    }
}

INSTANTIATE_TEST_SUITE_P(Logs, Followed,
                         ::testing::Combine(::testing::Values(KORX_LOG_TEXT, KORX_LOG_DIAG,
                                                              KORX_LOG_SECURITY, KORX_LOG_START,
                                                              KORX_LOG_PROCESS, KORX_LOG_SPACE),
                                            ::testing::Values(8, 17)),
                         [](const auto& course) {
                             return korx_log_kind_name(std::get<0>(course.param)) +
                                    std::to_string(std::get<1>(course.param));
                         });

}  // namespace
