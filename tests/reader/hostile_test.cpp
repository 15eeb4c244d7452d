// Input that no writer makes, files that can't be had, and writers that stand in the way.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "korx/log.h"
#include "korx/plog.h"
#include "korx/reader.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace {

using korx::test::ReadFile;
using korx::test::RunChild;
using korx::test::WriteFile;

struct Sample {
    korx_log_kind kind;
    std::string bytes, header;
};

// Goes through everything a reader offers and checks what must hold of any input.
void Exercise(const Sample& sample, size_t* records = nullptr) {
    // Exactly as long as the input, so that a sanitizer sees every byte read behind it.
    const std::vector<char> bytes(sample.bytes.begin(), sample.bytes.end());
    korx_reader_options options = {};
    options.header = sample.header.data();
    options.header_length = sample.header.size();
    korx_reader* reader = nullptr;
    ASSERT_EQ(korx_reader_open_memory(bytes.data(), bytes.size(), sample.kind, &options, &reader,
                                      nullptr),
              KORX_READER_OK);
    korx_reader_info info = {};
    korx_reader_get_info(reader, &info);
    korx_record record = {};
    size_t seen = 0;
    size_t unread = 0;
    while (korx_reader_next(reader, &record) == 1) {
        ++seen;
        unread += record.flags & KORX_RECORD_UNREAD ? 1 : 0;
        ASSERT_LE(record.offset + record.length, bytes.size());
        ASSERT_EQ(memcmp(record.text, bytes.data() + record.offset, record.length), 0);
        ASSERT_LE(record.message_length, record.length);
        const bool sound = (record.flags & KORX_RECORD_DAMAGED) == 0;
        ASSERT_TRUE(!sound || (record.fields & KORX_FIELD_TIME) != 0);
        ASSERT_TRUE(!sound || memchr(record.text, 0, record.length) == nullptr);
    }
    ASSERT_EQ(seen, info.records);
    ASSERT_EQ(unread, info.unread_records);
    korx_mark mark = {};
    korx_reader_get_mark(reader, &mark);
    (void) korx_reader_seek_mark(reader, &mark);
    ASSERT_TRUE(seen == 0 || korx_reader_next(reader, &record) == 0 || info.damage != 0 ||
                sample.kind == KORX_LOG_SPACE);
    korx_damage damage = {};
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) == 1; ++i) {
        ASSERT_STRNE(damage.text, "");
        ASSERT_NE(korx_damage_rule_name(damage.rule), nullptr);
    }
    korx_reader_close(reader);
    if (records != nullptr)
        *records = seen;
}

// One small log of each kind, by its writer and wrapped where it can.
struct Hostile : korx::test::RoomTest {
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
            ASSERT_EQ(ORX_WriteLogfile("/dev/shm/text", 600,
                                       "[261124-12:00:00.000001] [ProcID:1|2|INFO] : hello\n"),
                      0u);
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
            size_t records = 0;
            Exercise(sample, &records);
            ASSERT_GT(records, 5u) << korx_log_kind_name(sample.kind);
        }
    }

    std::vector<Sample> samples;
    std::mt19937 random{11};
};

TEST_F(Hostile, EveryBitOfEachHeadCanBeWrong) {
    for (Sample sample : samples) {
        std::string* const head = sample.kind == KORX_LOG_START ? &sample.header : &sample.bytes;
        const size_t bits = std::min<size_t>(head->size(), 76) * 8;
        for (size_t bit = 0; bit < bits && !HasFatalFailure(); ++bit) {
            (*head)[bit / 8] = static_cast<char>((*head)[bit / 8] ^ (1 << bit % 8));
            SCOPED_TRACE(std::string(korx_log_kind_name(sample.kind)) + " bit " +
                         std::to_string(bit));
            Exercise(sample);
            (*head)[bit / 8] = static_cast<char>((*head)[bit / 8] ^ (1 << bit % 8));
        }
    }
}

TEST_F(Hostile, AnythingElseCanBeWrongToo) {
    const char* const seed = getenv("KORX_TEST_SEED");
    random.seed(seed == nullptr ? 11 : static_cast<unsigned>(strtoul(seed, nullptr, 0)));
    const std::function<void(std::string*)> mutations[] = {
        [&](std::string* t) { (*t)[random() % t->size()] = static_cast<char>(random()); },
        [&](std::string* t) { (*t)[random() % t->size()] ^= static_cast<char>(1 << random() % 8); },
        [&](std::string* t) { t->resize(random() % t->size()); },
        [&](std::string* t) { t->erase(random() % t->size(), random() % 200); },
        [&](std::string* t) { t->insert(random() % t->size(), random() % 90, '\0'); },
        [&](std::string* t) {
            t->insert(random() % t->size(), random() % 2000, "\n[x"[random() % 3]);
        },
        [&](std::string* t) {
            t->insert(random() % t->size(), t->substr(random() % t->size(), random() % 900));
        },
        [&](std::string* t) {
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
    for (const std::string& pattern :
         {std::string("\0x", 2), std::string("\n["), std::string(64, '\0') + "x",
          std::string("[2026-11-24 12:00:00.000001]\n")}) {
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

struct Files : korx::test::RoomTest {
    korx_reader_code open(const char* path, const korx_reader_options& options = {},
                          korx_log_kind kind = KORX_LOG_SECURITY) {
        error = {};
        const korx_reader_code code = korx_reader_open(path, kind, &options, &reader, &error);
        EXPECT_EQ(reader == nullptr, code != KORX_READER_OK);
        if (code != KORX_READER_OK) {
            EXPECT_NE(std::string(error.text).find(path), std::string::npos) << error.text;
        }
        korx_reader_close(reader);
        return code;
    }
    // A ring with three records that is open for writing in fd.
    void make_ring() {
        ASSERT_EQ(DLOG_CheckAndCreateFile(tree.path("ring").c_str(), &fd), 0u);
        for (unsigned i = 0; i < 3; ++i)
            add();
    }
    void add() {
        const char record[] =
            "[2026-11-24 12:00:00.000001][Index:0x1][AppCid:1][INFO][L:1 M:1][1]x\n";
        ASSERT_EQ(SLOG_Buff2File(fd, record, sizeof record - 1, 4096), 0u);
    }
    LOG_HEAD_S head() {
        LOG_HEAD_S found = {};
        EXPECT_EQ(DLOG_ReadHead(fd, &found), 12);
        return found;
    }
    korx_reader* open_and_hand_out(size_t count, const korx_reader_options* options = nullptr) {
        EXPECT_EQ(korx_reader_open("ring", KORX_LOG_SECURITY, options, &reader, &error),
                  KORX_READER_OK);
        korx_record record = {};
        for (size_t i = 0; i < count; ++i)
            EXPECT_EQ(korx_reader_next_unread(reader, &record), 1);
        return reader;
    }

    int fd = 0;
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
};

TEST_F(Files, ThatCannotBeReadAreRefusedWithAReason) {
    EXPECT_EQ(open("missing"), KORX_READER_OPEN);
    EXPECT_EQ(error.system_error, ENOENT);
    EXPECT_EQ(open("."), KORX_READER_NOT_REGULAR);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(open("pipe"), KORX_READER_NOT_REGULAR);
    WriteFile("huge", "");
    ASSERT_EQ(truncate("huge", off_t{1} << 40), 0);
    EXPECT_EQ(open("huge"), KORX_READER_OK) << "its head asks for nothing";
    EXPECT_EQ(open("huge", {}, KORX_LOG_TEXT), KORX_READER_TOO_LARGE);
    WriteFile("odd", "odd");
    EXPECT_EQ(open("odd", {}, KORX_LOG_AUTO), KORX_READER_UNKNOWN);
    WriteFile("empty", "");
    EXPECT_EQ(open("empty"), KORX_READER_OK);
}

TEST_F(Files, HeldByAWriterAreWaitedForAndThenGivenUp) {
    make_ring();
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        (void) DBG_LockReg(fd, 7, 1, 0, 0, 0);
        (void) !write(ready[1], "x", 1);
        (void) pause();
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    korx_reader_options options = {};
    options.lock_timeout_ms = 50;
    EXPECT_EQ(open("ring", options), KORX_READER_LOCKED);
    options.flags = KORX_READER_NO_LOCK;
    EXPECT_EQ(open("ring", options), KORX_READER_OK);
    (void) kill(child, SIGKILL);
    (void) waitpid(child, nullptr, 0);
    EXPECT_EQ(open("ring"), KORX_READER_OK);
}

TEST_F(Files, LentByAWriterKeepItsLock) {
    make_ring();
    ASSERT_EQ(DBG_LockReg(fd, 7, 1, 0, 0, 0), 0u);
    korx_reader_options options = {};
    options.lock_timeout_ms = 20;
    EXPECT_EQ(korx_reader_open_fd(fd, "ring", KORX_LOG_SECURITY, &options, &reader, &error),
              KORX_READER_LOCKED)
        << "another thread of this process is writing";
    ASSERT_EQ(DBG_LockReg(fd, 6, 2, 0, 0, 0), 0u);
    const off_t position = lseek(fd, 0, SEEK_CUR);
    ASSERT_EQ(korx_reader_open_fd(fd, "ring", KORX_LOG_SECURITY, &options, &reader, &error),
              KORX_READER_OK);
    ASSERT_EQ(DBG_LockReg(fd, 7, 1, 0, 0, 0), 0u);
    korx_reader_close(reader);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), position);
    EXPECT_EQ(RunChild([&] { return DBG_LockReg(fd, 6, 1, 0, 0, 0) == 7 ? 0 : 1; }), 0);
}

TEST_F(Files, AcknowledgedAsFarAsHandedOutAndNotFurther) {
    make_ring();
    const uint32_t length = head().uiLogLen / 3;
    open_and_hand_out(2);
    korx_record record = {};
    korx_reader_rewind(reader);
    EXPECT_EQ(korx_reader_next(reader, &record), 1);
    add();
    ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << error.text;
    EXPECT_EQ(head().uiDumpLen, 2 * length);
    EXPECT_EQ(head().uiLogLen, 4 * length);
    ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << "nothing new";
    // A record that was passed without being handed out stays unread, and all after it.
    korx_reader_rewind(reader);
    for (int i = 0; i < 3; ++i)
        (void) korx_reader_next(reader, &record);
    EXPECT_EQ(korx_reader_next_unread(reader, &record), 0);
    ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK);
    EXPECT_EQ(head().uiDumpLen, 2 * length);
    korx_reader_close(reader);
}

TEST_F(Files, ThatChangedMeanwhileAreNotAcknowledged) {
    make_ring();
    open_and_hand_out(3);
    korx_reader* const first = reader;
    open_and_hand_out(1);
    ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK);
    korx_reader_close(reader);
    const uint32_t dump = head().uiDumpLen;
    EXPECT_EQ(korx_reader_ack(first, &error), KORX_READER_CHANGED) << "another reader came first";
    korx_reader_close(first);

    open_and_hand_out(1);
    ASSERT_EQ(pwrite(fd, "?", 1, 12 + dump + 40), 1);
    EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_CHANGED) << "other bytes stand there";
    korx_reader_close(reader);
    EXPECT_EQ(head().uiDumpLen, dump);

    open_and_hand_out(1);
    ASSERT_EQ(rename("ring", "aside"), 0);
    WriteFile("ring", ReadFile("aside"));
    EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_CHANGED) << "it is another file";
    korx_reader_close(reader);
    EXPECT_EQ(head().uiDumpLen, dump);
}

TEST_F(Files, CursorShowsAWholeLapThatTheHeadHides) {
    ASSERT_EQ(DLOG_CheckAndCreateFile(tree.path("ring").c_str(), &fd), 0u);
    const uint32_t limit = 12 + 10 * 70;
    unsigned serial = 0;
    const auto add_numbered = [&](unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            char record[80];
            const int length =
                snprintf(record, sizeof record,
                         "[2026-11-24 12:00:00.%06u][Index:0x1][AppCid:1][INFO][L:1 M:1][1]%03u\n",
                         serial, serial);
            ++serial;
            ASSERT_EQ(length, 71);
            ASSERT_EQ(SLOG_Buff2File(fd, record, 71, limit), 0u);
        }
    };
    // Nine records make a lap; the reader stands behind the third, or at the lap's end.
    for (const unsigned place : {3u, 9u}) {
        add_numbered(place == 3 ? 3 : 6);
        open_and_hand_out(place == 3 ? 3 : 6);
        ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << error.text;
        korx_reader_close(reader);
        add_numbered(9);
        korx_reader_options without = {};
        without.cursor_path = "";
        korx_reader_info info = {};
        open_and_hand_out(0, &without);
        korx_reader_get_info(reader, &info);
        EXPECT_EQ(info.unread_records, 0u);
        korx_reader_close(reader);
        open_and_hand_out(9);
        korx_reader_get_info(reader, &info);
        EXPECT_EQ(info.gap, 1u);
        EXPECT_EQ(info.gap_recovered, 9u);
        EXPECT_EQ(info.gap_lost, 0u);
        ASSERT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << error.text;
        korx_reader_close(reader);
    }
    WriteFile("ring.cursor", "korx-cursor 1\nkind 3\nhead 1 2 3\n");
    open_and_hand_out(0);
    korx_damage damage = {};
    ASSERT_EQ(korx_reader_get_damage(reader, 0, &damage), 1);
    EXPECT_EQ(damage.rule, KORX_DAMAGE_CURSOR);
    korx_reader_close(reader);
}

TEST_F(Files, WithoutAHeadAreTakenByTheirCursor) {
    const auto take = [&] {
        std::string taken;
        EXPECT_EQ(korx_reader_open("zelk.log", KORX_LOG_AUTO, nullptr, &reader, &error),
                  KORX_READER_OK);
        korx_record record = {};
        while (korx_reader_next_unread(reader, &record) == 1)
            taken.append(record.message, record.message_length);
        EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << error.text;
        korx_reader_info info = {};
        korx_reader_get_info(reader, &info);
        korx_reader_close(reader);
        return taken + (info.gap ? "!" : "");
    };
    const std::string head = "[2026-11-24 12:00:00.00000";
    const std::string tail = "][INFO][L:1 M:1][1]";
    std::string text = head + "1" + tail + "a\n" + head + "2" + tail + "b\n";
    WriteFile("zelk.log", text);
    EXPECT_EQ(take(), "ab");
    EXPECT_EQ(take(), "");
    WriteFile("zelk.log", text + head + "3" + tail + "c\n");
    EXPECT_EQ(take(), "c");
    WriteFile("zelk.log", head + "5" + tail + "e\n");
    EXPECT_EQ(take(), "e!") << "what was taken last is gone, and what followed it with it";
}

TEST_F(Files, FollowedByMarkShowWhatIsNew) {
    make_ring();
    korx_mark mark = {};
    korx_record record = {};
    open_and_hand_out(0);
    EXPECT_EQ(korx_reader_seek_mark(reader, &mark), 1) << "the place before everything";
    korx_reader_seek_newest(reader, 1);
    EXPECT_EQ(korx_reader_next(reader, &record), 1);
    EXPECT_EQ(korx_reader_next(reader, &record), 0);
    korx_reader_get_mark(reader, &mark);
    korx_reader_close(reader);
    const char fresh[] = "[2026-11-24 12:00:00.000009][Index:0x1][AppCid:1][INFO][L:1 M:1][1]new\n";
    ASSERT_EQ(SLOG_Buff2File(fd, fresh, sizeof fresh - 1, 4096), 0u);
    open_and_hand_out(0);
    EXPECT_EQ(korx_reader_seek_mark(reader, &mark), 1);
    EXPECT_EQ(korx_reader_next(reader, &record), 1);
    EXPECT_EQ(std::string(record.message, record.message_length), "new");
    EXPECT_EQ(korx_reader_next(reader, &record), 0);
    mark.last[0].hash ^= 1;
    EXPECT_EQ(korx_reader_seek_mark(reader, &mark), 0);
    EXPECT_EQ(korx_reader_next(reader, &record), 1);
    EXPECT_EQ(record.offset, 12u);
    korx_reader_close(reader);
}

TEST_F(Files, WhoseCursorCannotBeKeptSayWhatWasAcknowledged) {
    make_ring();
    korx_reader_options options = {};
    options.cursor_path = "missing/cursor";
    open_and_hand_out(1, &options);
    EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_CURSOR);
    EXPECT_EQ(error.system_error, ENOENT);
    EXPECT_EQ(head().uiDumpLen, head().uiLogLen / 3);
    korx_reader_close(reader);

    WriteFile("zelk.log", "[2026-11-24 12:00:00.000001][INFO][L:1 M:1][1]a\n");
    ASSERT_EQ(korx_reader_open("zelk.log", KORX_LOG_AUTO, &options, &reader, &error),
              KORX_READER_OK);
    korx_record record = {};
    ASSERT_EQ(korx_reader_next_unread(reader, &record), 1);
    EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_WRITE);
    ASSERT_EQ(mkdir("missing", 0700), 0);
    EXPECT_EQ(korx_reader_ack(reader, &error), KORX_READER_OK) << error.text;
    korx_reader_close(reader);
}

TEST_F(Files, TakenWhileAnotherProcessWritesLoseNothing) {
    const std::string path = "/dev/shm/ring";
    ASSERT_EQ(DLOG_CheckAndCreateFile(path.c_str(), &fd), 0u);
    constexpr unsigned kRecords = 4000;
    const pid_t writer = fork();
    if (writer == 0) {
        (void) snprintf(g_stSLogInfo.acFileName, 256, "%s", path.c_str());
        g_stSLogInfo.uiMaxSize = 6000;
        for (unsigned i = 0; i < kRecords;) {
            const uint32_t result =
                KORX_SecurityEventLog(1, 2, 1, 3, i, "event %0*u", i % 60 + 1, i);
            if (result == 0)
                ++i;
            else if (result != 99)
                _exit(1);
        }
        _exit(0);
    }
    unsigned next = 0;
    uint64_t gaps = 0;
    while (next < kRecords && !HasFailure()) {
        ASSERT_EQ(korx_reader_open(path.c_str(), KORX_LOG_SECURITY, nullptr, &reader, &error),
                  KORX_READER_OK)
            << error.text;
        korx_reader_info info = {};
        korx_reader_get_info(reader, &info);
        gaps += info.gap;
        ASSERT_EQ(info.damage, 0u);
        korx_record record = {};
        while (korx_reader_next_unread(reader, &record) == 1) {
            ASSERT_TRUE(record.value == next || info.gap != 0) << record.value << ' ' << next;
            next = record.value + 1;
        }
        const korx_reader_code code = korx_reader_ack(reader, &error);
        ASSERT_TRUE(code == KORX_READER_OK || info.gap != 0) << error.text;
        korx_reader_close(reader);
    }
    int status = 1;
    (void) waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
    RecordProperty("gaps", static_cast<int>(gaps));
}

}  // namespace
