// Input that no writer makes, files that can't be had, and writers that stand in the way.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <utility>
#include <vector>

#include "base/unique.h"
#include "korx/log.h"
#include "korx/plog.h"
#include "reader/ring_file.h"
#include "support/processes.h"

namespace {

using namespace korx::test;
using namespace std::string_literals;

struct Sample {
    korx_log_kind kind;
    std::string bytes, header;
};

// Goes through everything a reader offers and checks what must hold of any input.
void Exercise(const Sample& sample) {
    // Exactly as long as the input, so that a sanitizer sees every byte read behind it.
    const std::vector<char> bytes(sample.bytes.begin(), sample.bytes.end());
    LogReader log({bytes.data(), bytes.size()}, sample.kind, sample.header);
    ASSERT_EQ(log.code, KORX_READER_OK);
    const korx_record& record = log.record;
    size_t seen = 0;
    size_t unread = 0;
    while (log.next() == 1) {
        ++seen;
        unread += record.flags & KORX_RECORD_UNREAD ? 1 : 0;
        ASSERT_LE(record.offset + record.length, bytes.size());
        ASSERT_EQ(memcmp(record.text, bytes.data() + record.offset, record.length), 0);
        ASSERT_LE(record.message_length, record.length);
        const bool sound = (record.flags & KORX_RECORD_DAMAGED) == 0;
        ASSERT_TRUE(!sound || (record.fields & KORX_FIELD_TIME) != 0);
        ASSERT_TRUE(!sound || memchr(record.text, 0, record.length) == nullptr);
    }
    ASSERT_EQ(seen, log.info.records);
    ASSERT_EQ(unread, log.info.unread_records);
    korx_mark mark = {};
    korx_reader_get_mark(log.it, &mark);
    ASSERT_EQ(korx_reader_seek_mark(log.it, &mark), 1);
    ASSERT_EQ(log.next(), 0);
    korx_damage damage = {};
    for (size_t i = 0; korx_reader_get_damage(log.it, i, &damage) == 1; ++i) {
        ASSERT_STRNE(damage.text, "");
        ASSERT_NE(korx_damage_rule_name(damage.rule), nullptr);
    }
}

// One small log of each kind, by its writer and wrapped where it can.
struct Hostile : RoomTest {
    void SetUp() override {
        int fd = 0;
        const std::string ring = "/dev/shm/ring";
        ASSERT_EQ(DLOG_CheckAndCreateFile(ring.c_str(), &fd), 0u);
        g_iDLogFileFd = fd;
        (void) snprintf(g_stDLogInfo.acFileName, 256, "%s", ring.c_str());
        g_stDLogInfo.uiMaxSize = 1500;
        for (unsigned i = 0; i < 40; ++i)
            ASSERT_EQ(KORX_DLog(1, 2, i % 5, 3, i, i % 3 ? "short" : "longer\nmessage %u", i), 0u);
        samples.push_back({KORX_LOG_DIAG, ReadFile(ring), ""});
        samples.push_back({KORX_LOG_SECURITY, ReadFile(ring), ""});
        std::string plain;
        for (unsigned i = 0; i < 20; ++i) {
            const char line[] = "[261124-12:00:00.000001] [ProcID:1|2|INFO] : hello\n";
            ASSERT_EQ(ORX_WriteLogfile("/dev/shm/text", 600, line), 0u);
            plain += "[2026-11-24 12:00:00.000001][INFO][L:1 M:2][3]hello\n";
        }
        samples.push_back({KORX_LOG_TEXT, ReadFile("/dev/shm/text"), ""});
        samples.push_back({KORX_LOG_PROCESS, plain, ""});
        (void) snprintf(g_acSTLogFileName, 256, "/dev/shm/start");
        (void) snprintf(g_acSTLogFileHeadName, 256, "/dev/shm/header");
        for (unsigned i = 0; i < 200; ++i)
            ASSERT_EQ(KORX_STLog(i % 20 == 0 ? i / 20 % 4 : 0, 1, i, "starting with %u", i), 0u);
        samples.push_back(
            {KORX_LOG_START, ReadFile("/dev/shm/start"), ReadFile("/dev/shm/header")});
        std::string space = "[orx_spacefull] start:\r\n]";
        for (unsigned i = 0; i < 8; ++i)
            space += "[20261124-12:00:00.000001]" + std::string(96, ' ') + "/var        87\r\n";
        samples.push_back({KORX_LOG_SPACE, space, ""});
        for (const Sample& sample : samples) {
            const LogReader log(sample.bytes, sample.kind, sample.header);
            ASSERT_GE(log.info.records, 6u) << korx_log_kind_name(sample.kind);
        }
    }

    std::vector<Sample> samples;
    Chance random{11};
};

TEST_F(Hostile, EveryBitOfEachHeadCanBeWrong) {
    for (Sample sample : samples) {
        std::string* const head = sample.kind == KORX_LOG_START ? &sample.header : &sample.bytes;
        const size_t bits = std::min<size_t>(head->size(), 76) * 8;
        for (size_t bit = 0; bit < bits && !HasFatalFailure(); ++bit) {
            char& byte = (*head)[bit / 8];
            const char sound = std::exchange(byte, static_cast<char>(byte ^ (1 << bit % 8)));
            SCOPED_TRACE(korx_log_kind_name(sample.kind) + (" bit " + std::to_string(bit)));
            Exercise(sample);
            byte = sound;
        }
    }
}

TEST_F(Hostile, AnythingElseCanBeWrongToo) {
    const std::function<void(std::string*)> mutations[] = {
        [&](auto* t) { (*t)[random() % t->size()] = static_cast<char>(random()); },
        [&](auto* t) { (*t)[random() % t->size()] ^= static_cast<char>(1 << random() % 8); },
        [&](auto* t) { t->resize(random() % t->size()); },
        [&](auto* t) { t->erase(random() % t->size(), random() % 200); },
        [&](auto* t) { t->insert(random() % t->size(), random() % 90, '\0'); },
        [&](auto* t) { t->insert(random() % t->size(), random() % 2000, "\n[x"[random() % 3]); },
        [&](auto* t) {
            t->insert(random() % t->size(), t->substr(random() % t->size(), random() % 900));
        },
        [&](auto* t) {
            for (size_t i = random() % t->size(); i < t->size(); i += 1 + random() % 300)
                (*t)[i] = static_cast<char>(random());
        },
    };
    for (const Sample& original : samples) {
        for (int round = 0; round < 4000 && !HasFatalFailure(); ++round) {
            Sample sample = original;
            for (unsigned i = random() % 4; i-- > 0 && !sample.bytes.empty();)
                mutations[random() % std::size(mutations)](&sample.bytes);
            if (random() % 2 == 0 && !sample.bytes.empty())
                sample.kind = static_cast<korx_log_kind>(1 + random() % 7);
            if (random() % 3 == 0 && !sample.header.empty())
                mutations[random() % 4](&sample.header);
            Exercise(sample);
        }
    }
}

TEST_F(Hostile, LargeRubbishStaysCheap) {
    struct rusage before = {};
    ASSERT_EQ(getrusage(RUSAGE_SELF, &before), 0);
    std::string rubbish(8 << 20, '\0');
    const std::string zeros(64, '\0'), stamp = "[2026-11-24 12:00:00.000001]\n";
    for (const std::string& pattern : {zeros.substr(63) + "x", zeros + "x", stamp, "\n["s}) {
        for (size_t i = 0; i < rubbish.size(); ++i)
            rubbish[i] = pattern[i % pattern.size()];
        for (int kind = KORX_LOG_TEXT; kind <= KORX_LOG_SPACE; ++kind)
            Exercise({static_cast<korx_log_kind>(kind), rubbish, ""});
    }
    struct rusage after = {};
    ASSERT_EQ(getrusage(RUSAGE_SELF, &after), 0);
#ifndef __SANITIZE_ADDRESS__  // it keeps what was freed
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 8 * 8 * 1024) << "KiB";
#endif
}

TEST_F(Files, ThatCannotBeReadAreRefusedWithAReason) {
    EXPECT_EQ(open("missing"), KORX_READER_OPEN);
    EXPECT_EQ(error.system_error, ENOENT);
    EXPECT_EQ(open("."), KORX_READER_NOT_REGULAR);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(open("pipe"), KORX_READER_NOT_REGULAR);
    WriteFile("huge", "");
    ASSERT_EQ(truncate("huge", off_t{1} << 40), 0);
    EXPECT_EQ(open("huge"), KORX_READER_OK) << "its head asks for nothing";
    EXPECT_EQ(open("huge", KORX_LOG_TEXT), KORX_READER_TOO_LARGE);
    WriteFile("odd", "odd");
    EXPECT_EQ(open("odd", KORX_LOG_AUTO), KORX_READER_UNKNOWN);
    options.max_bytes = 3;
    const Fault signal("pread", 1, EINTR, 2);
    EXPECT_EQ(open("odd", KORX_LOG_TEXT), KORX_READER_OK);
    options.max_bytes = 2;
    EXPECT_EQ(open("odd", KORX_LOG_TEXT), KORX_READER_TOO_LARGE);
}

TEST_F(Files, HeldByAWriterAreWaitedForAndThenGivenUp) {
    make_ring(3);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const korx::UniqueFd ends[] = {korx::UniqueFd(ready[0]), korx::UniqueFd(ready[1])};
    const pid_t child = fork();
    if (child == 0) {
        (void) DBG_LockReg(fd, DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, 0, 0);
        (void) !write(ready[1], "x", 1);
        (void) pause();
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    options.lock_timeout_ms = 50;
    const CallCount naps("nanosleep");
    EXPECT_EQ(open("ring"), KORX_READER_LOCKED);
    EXPECT_LT(naps.value(), 100u) << "one lasts up to two milliseconds";
    options.flags = KORX_READER_NO_LOCK;
    EXPECT_EQ(open("ring"), KORX_READER_OK);
    (void) kill(child, SIGKILL);
    (void) waitpid(child, nullptr, 0);
    options = {};
    EXPECT_EQ(open("ring"), KORX_READER_OK);
}

TEST_F(Files, LentByAWriterKeepItsLock) {
    make_ring(3);
    ASSERT_EQ(DBG_LockReg(fd, DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, 0, 0), 0u);
    options.lock_timeout_ms = 20;
    korx_reader* reader = nullptr;
    EXPECT_EQ(korx_reader_open_fd(fd, "ring", KORX_LOG_SECURITY, &options, &reader, &error),
              KORX_READER_LOCKED)
        << "another thread of this process is writing";
    ASSERT_EQ(DBG_LockReg(fd, DBG_LOCK_SET, DBG_LOCK_RELEASE, 0, 0, 0), 0u);
    const off_t position = lseek(fd, 0, SEEK_CUR);
    ASSERT_EQ(korx_reader_open_fd(fd, "ring", KORX_LOG_SECURITY, &options, &reader, &error),
              KORX_READER_OK);
    ASSERT_EQ(DBG_LockReg(fd, DBG_LOCK_SET_WAIT, DBG_LOCK_WRITE, 0, 0, 0), 0u);
    korx_reader_close(reader);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), position);
    EXPECT_EQ(RunChild([&] {
                  return DBG_LockReg(fd, DBG_LOCK_SET, DBG_LOCK_WRITE, 0, 0, 0) == ORX_PLOG_ERR_LOCK
                             ? 0
                             : 1;
              }),
              0);
}

TEST_F(Files, AcknowledgedAsFarAsHandedOutAndNotFurther) {
    make_ring(3);
    Ring log(2);
    korx_reader_rewind(log.it);
    EXPECT_EQ(log.next(), 1);
    add(1);
    ASSERT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
    EXPECT_EQ(head().uiDumpLen, 2 * kLength);
    EXPECT_EQ(head().uiLogLen, 4 * kLength);
    ASSERT_EQ(log.ack(), KORX_READER_OK) << "nothing new";
    // A record that was passed without being handed out stays unread, and all after it.
    korx_reader_rewind(log.it);
    while (log.next() == 1) {
    }
    EXPECT_EQ(log.next_unread(), 0);
    ASSERT_EQ(log.ack(), KORX_READER_OK);
    EXPECT_EQ(head().uiDumpLen, 2 * kLength);
}

TEST_F(Files, ThatChangedMeanwhileAreNotAcknowledged) {
    make_ring(3);
    Ring first(3), second(1);
    ASSERT_EQ(second.ack(), KORX_READER_OK);
    EXPECT_EQ(first.ack(), KORX_READER_CHANGED) << "another reader came first";

    Ring third(1);
    ASSERT_EQ(pwrite(fd, "?", 1, 12 + kLength + 40), 1);
    EXPECT_EQ(third.ack(), KORX_READER_CHANGED) << "other bytes stand there";
    EXPECT_EQ(third.error.offset, 12 + kLength);
    EXPECT_EQ(head().uiDumpLen, kLength);

    Ring fourth(1);
    ASSERT_EQ(rename("ring", "aside"), 0);
    WriteFile("ring", ReadFile("aside"));
    EXPECT_EQ(fourth.ack(), KORX_READER_CHANGED) << "it is another file";
    EXPECT_EQ(HeadOf<LOG_HEAD_S>("aside").uiDumpLen, kLength);
    EXPECT_EQ(head().uiDumpLen, kLength);
}

TEST_F(Files, CursorShowsAWholeLapThatTheHeadHides) {
    make_ring(0);
    options.cursor_path = "";
    // The reader stands behind the third record, or at the lap's end.
    for (const int taken : {3, 6}) {
        add(static_cast<unsigned>(taken), kLap);
        EXPECT_EQ(Ring(taken).ack(), KORX_READER_OK);
        add(9, kLap);
        EXPECT_EQ(Ring(0, &options).info.unread_records, 0u);
        Ring log(9);
        EXPECT_EQ(log.info.gap, 1u);
        EXPECT_EQ(log.info.gap_recovered, 9u);
        EXPECT_EQ(log.info.gap_lost, 0u);
        ASSERT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
    }
    const std::string sound = ReadFile("ring.cursor");
    for (const std::string& bad : {sound.substr(0, 40), sound + "\n", " " + sound}) {
        WriteFile("ring.cursor", bad);
        korx_damage damage = {};
        ASSERT_EQ(korx_reader_get_damage(Ring(0).it, 0, &damage), 1) << bad;
        EXPECT_EQ(damage.rule, KORX_DAMAGE_CURSOR);
    }
}

TEST_F(Files, WithoutAHeadAreTakenByTheirCursor) {
    const auto take = [&] {
        std::string taken;
        LogReader log("zelk.log", KORX_LOG_AUTO);
        while (log.next_unread() == 1)
            taken.append(log.record.message, log.record.message_length);
        EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
        return taken + (log.info.gap ? "!" : "");
    };
    const auto line = [](const std::string& digit, const char* message) {
        return "[2026-11-24 12:00:00.00000" + digit + "][INFO][L:1 M:1][1]" + message + "\n";
    };
    WriteFile("zelk.log", line("1", "a") + line("2", "b"));
    EXPECT_EQ(take(), "ab");
    EXPECT_EQ(take(), "");
    WriteFile("zelk.log", ReadFile("zelk.log") + line("3", "c"));
    EXPECT_EQ(take(), "c");
    WriteFile("zelk.log", line("5", "e"));
    EXPECT_EQ(take(), "e!") << "what was taken last is gone, and what followed it with it";

    WriteFile("zelk.log", ReadFile("zelk.log") + line("6", "f"));
    LogReader first("zelk.log", KORX_LOG_AUTO), second("zelk.log", KORX_LOG_AUTO);
    EXPECT_EQ(first.next_unread() + second.next_unread(), 2);
    EXPECT_EQ(first.ack(), KORX_READER_OK);
    EXPECT_EQ(second.ack(), KORX_READER_CHANGED) << "another reader came first";

    options.cursor_path = "missing/cursor";
    LogReader log("zelk.log", KORX_LOG_AUTO, &options);
    ASSERT_EQ(log.next_unread(), 1);
    EXPECT_EQ(log.ack(), KORX_READER_WRITE) << "there is nothing else to keep it in";
    ASSERT_EQ(mkdir("missing", 0700), 0);
    EXPECT_EQ(log.ack(), KORX_READER_OK) << log.error.text;
}

TEST_F(Files, FollowedByMarkShowWhatIsNew) {
    make_ring(3);
    korx_mark mark = {};
    Ring before(0);
    EXPECT_EQ(korx_reader_seek_mark(before.it, &mark), 1) << "the place before everything";
    korx_reader_seek_newest(before.it, 1);
    EXPECT_EQ(before.next(), 1);
    EXPECT_EQ(before.next(), 0);
    korx_reader_get_mark(before.it, &mark);
    add(1);
    Ring log(0);
    EXPECT_EQ(korx_reader_seek_mark(log.it, &mark), 1);
    EXPECT_EQ(log.next(), 1);
    EXPECT_EQ(std::string(log.record.message, log.record.message_length), "003");
    EXPECT_EQ(log.next(), 0);
    mark.last[0].hash ^= 1;
    mark.last[0].time_us = 0;
    EXPECT_EQ(korx_reader_seek_mark(log.it, &mark), 0);
    EXPECT_EQ(log.next(), 1);
    EXPECT_EQ(log.record.offset, 12u);
}

TEST_F(Files, TakenWhileAnotherProcessWritesLoseNothing) {
    const std::string path = "/dev/shm/ring";
    ASSERT_EQ(DLOG_CheckAndCreateFile(path.c_str(), &fd), 0u);
    constexpr unsigned kRecords = 2000;
    const pid_t writer = fork();
    if (writer == 0) {
        (void) prctl(PR_SET_PDEATHSIG, SIGKILL);  // without its reader it would try for ever
        (void) snprintf(g_stSLogInfo.acFileName, 256, "%s", path.c_str());
        g_stSLogInfo.uiMaxSize = 6000;
        for (unsigned i = 0; i < kRecords;) {
            const uint32_t result =
                KORX_SecurityEventLog(1, 2, 1, 3, i, "event %0*u", i % 60 + 1, i);
            if (result != 0 && result != 99)
                _exit(1);
            if (result == 99)
                (void) usleep(1000);  // a refused writer that spins keeps the lock from the reader
            i += result == 0;
        }
        _exit(0);
    }
    unsigned next = 0;
    bool is_refused = false;
    while (next < kRecords && !HasFailure()) {
        LogReader log(path, KORX_LOG_SECURITY);
        ASSERT_EQ(log.code, KORX_READER_OK) << log.error.text;
        ASSERT_EQ(log.info.damage, 0u);
        // A lap that ends just where the reader stands lets the writer pass it, also between the
        // copy and the acknowledgement. Then that is refused, and the next look tells.
        ASSERT_TRUE(!is_refused || log.info.gap != 0) << next;
        while (log.next_unread() == 1) {
            ASSERT_TRUE(log.record.value == next || log.info.gap != 0) << next;
            next = log.record.value + 1;
        }
        is_refused = log.ack() != KORX_READER_OK;
        ASSERT_TRUE(!is_refused || log.error.code == KORX_READER_CHANGED) << log.error.text;
    }
    int status = 1;
    (void) waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
