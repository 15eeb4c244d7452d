// What a reader makes of the bytes: records, laps, damage. The bytes come from the real writers, or
// are put together where no writer makes such a file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "korx/fs.h"
#include "korx/log.h"
#include "korx/plog.h"
#include "korx/reader.h"
#include "support/fixture.h"

namespace {

using korx::test::ReadFile;
using korx::test::WriteFile;
using Texts = std::vector<std::string>;

// A reader of bytes, with what it makes of them.
struct Opened {
    Opened(std::string_view bytes, korx_log_kind kind, const std::string* header = nullptr) {
        korx_reader_options options = {};
        options.name = "zelk";
        options.header = header == nullptr ? nullptr : header->data();
        options.header_length = header == nullptr ? 0 : header->size();
        korx_reader_error error = {};
        EXPECT_EQ(
            korx_reader_open_memory(bytes.data(), bytes.size(), kind, &options, &reader, &error),
            KORX_READER_OK)
            << error.text;
        korx_reader_get_info(reader, &info);
        korx_record record = {};
        while (korx_reader_next(reader, &record) == 1) {
            records.push_back(record);
            const std::string text(record.text, record.length);
            (record.flags & KORX_RECORD_DAMAGED ? damaged : texts).push_back(text);
            if (record.flags & KORX_RECORD_UNREAD)
                unread.push_back(text);
        }
        korx_damage found = {};
        for (size_t i = 0; korx_reader_get_damage(reader, i, &found) == 1; ++i)
            rules.push_back(korx_damage_rule_name(found.rule));
    }
    ~Opened() { korx_reader_close(reader); }
    Opened(const Opened&) = delete;

    korx_reader* reader = nullptr;
    korx_reader_info info = {};
    std::vector<korx_record> records;
    Texts texts, damaged, unread, rules;
};

std::string_view View(const char* text, size_t length) {
    return {text == nullptr ? "" : text, length};
}

std::string Bytes(const void* data, size_t size) {
    return {static_cast<const char*>(data), size};
}

std::string Head(uint32_t log, uint32_t dump, uint32_t total) {
    const LOG_HEAD_S head = {log, dump, total};
    return Bytes(&head, sizeof head);
}

std::string Stamp(unsigned serial) {
    char text[64];
    (void) snprintf(text, sizeof text, "[2026-11-24 %02u:%02u:%02u.%06u]", serial / 3600 % 24,
                    serial / 60 % 60, serial % 60, serial % 1000000);
    return text;
}

// 100 characters with the line end.
std::string Event(unsigned serial) {
    std::string text = Stamp(serial) + "[Index:0x2a][AppCid:7][ERROR][L:80100 M:3][120]";
    text += "event " + std::to_string(serial);
    return text + std::string(99 - text.size(), '.') + "\n";
}

std::string Events(unsigned first, unsigned count) {
    std::string all;
    for (unsigned i = 0; i < count; ++i)
        all += Event(first + i);
    return all;
}

Texts Lines(unsigned first, unsigned count) {
    Texts lines;
    for (unsigned i = 0; i < count; ++i)
        lines.push_back(Event(first + i).substr(0, 99));
    return lines;
}

Texts operator+(Texts a, const Texts& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct FieldsCase {
    korx_log_kind kind;
    std::string bytes;
    uint32_t level;
    const char* level_name;
    uint32_t index, app_cid, location, m_value, value;
    int pid;
    uint32_t module;
    const char* name;
    const char* message;
};

TEST(Records, HaveTheFieldsOfTheirKind) {
    setenv("TZ", "UTC-2", 1);
    const std::string stamp = "[2026-11-24 12:29:13.000042]";
    const std::string count = Bytes("\x46\0\0\0", 4);
    const FieldsCase cases[] = {
        {KORX_LOG_SECURITY, stamp + "[Index:0xffffffff][AppCid:4294967295][FATAL][L:1 M:2][3]a\n",
         4, "FATAL", 0xffffffff, 0xffffffff, 1, 2, 3, 0, 0, "", "a"},
        {KORX_LOG_DIAG, stamp + "[Index:0][AppCid:0][DEBUG][L:0 M:0][0]\n", 0, "DEBUG", 0, 0, 0, 0,
         0, 0, 0, "", ""},
        {KORX_LOG_PROCESS, stamp + "[INFO][L:5 M:6][7]two\nlines\n\n", 1, "INFO", 0, 0, 5, 6, 7, 0,
         0, "zelk", "two\nlines\n"},
        {KORX_LOG_PROCESS, stamp + "[L:5 M:6][WARNING][7]x\n[2026-11-24 12:29:13.000042] no head\n",
         2, "WARNING", 0, 0, 5, 6, 7, 0, 0, "zelk", "x\n[2026-11-24 12:29:13.000042] no head"},
        {KORX_LOG_TEXT, "[261124-12:29:13.000042] [ProcID:-1|80100|ERR] : text\n", 3, "ERR", 0, 0,
         0, 0, 0, -1, 80100, "", "text"},
        {KORX_LOG_SPACE,
         "[20261124-12:29:13.000042]" + std::string(91, ' ') + "/with cat        87\r\n", 0,
         nullptr, 0, 0, 0, 0, 87, 0, 0, "/with cat", ""},
    };
    for (const FieldsCase& row : cases) {
        SCOPED_TRACE(row.bytes);
        const auto length = static_cast<uint32_t>(row.bytes.size());
        const std::string prefix = row.kind == KORX_LOG_TEXT       ? Bytes(&length, 4)
                                   : row.kind == KORX_LOG_SECURITY ? Head(length, 0, 0)
                                   : row.kind == KORX_LOG_DIAG     ? Head(length, 0, 0)
                                                                   : "";
        const Opened log(prefix + row.bytes, row.kind);
        ASSERT_EQ(log.records.size(), 1u);
        EXPECT_EQ(log.rules, Texts{});
        const korx_record& record = log.records[0];
        EXPECT_EQ(record.offset, prefix.size());
        EXPECT_EQ(record.time.tv_sec, 1795516153);
        EXPECT_EQ(record.time.tv_nsec, 42000);
        EXPECT_EQ(record.utc_offset, 7200);
        EXPECT_EQ(record.level, row.level);
        EXPECT_STREQ(record.level_name, row.level_name);
        EXPECT_EQ(record.index, row.index);
        EXPECT_EQ(record.app_cid, row.app_cid);
        EXPECT_EQ(record.location, row.location);
        EXPECT_EQ(record.m_value, row.m_value);
        EXPECT_EQ(record.value, row.value);
        EXPECT_EQ(record.pid, row.pid);
        EXPECT_EQ(record.module, row.module);
        EXPECT_EQ(View(record.name, record.name_length), row.name);
        EXPECT_EQ(View(record.message, record.message_length), row.message);
    }
}

TEST(Records, AreNoneWhereAnythingOfTheHeadIsMissing) {
    const std::string good = Stamp(1) + "[Index:0x2a][AppCid:7][ERROR][L:80100 M:3][120]x\n";
    ASSERT_EQ(
        Opened(Head(static_cast<uint32_t>(good.size()), 0, 0) + good, KORX_LOG_LIFE).texts.size(),
        1u);
    for (const auto& [from, to] :
         std::vector<std::pair<std::string, std::string>>{{"2026-11-24", "2026-11-31"},
                                                          {"2026-11-24", "2026-02-29"},
                                                          {"00:00:01", "24:00:01"},
                                                          {"0x2a", "0x2A"},
                                                          {"0x2a", "2a"},
                                                          {"0x2a", "0x02a"},
                                                          {"AppCid:7", "AppCid:"},
                                                          {"AppCid:7", "AppCid:4294967296"},
                                                          {"[ERROR]", "[ERR]"},
                                                          {"M:3", "M:03"},
                                                          {"][120]", "] [120]"}}) {
        SCOPED_TRACE(to);
        std::string bad = good;
        bad.replace(bad.find(from), from.size(), to);
        const Opened log(Head(static_cast<uint32_t>(bad.size()), 0, 0) + bad, KORX_LOG_LIFE);
        EXPECT_EQ(log.texts, Texts{});
        EXPECT_EQ(log.damaged, Texts{bad.substr(0, bad.size() - 1)});
        EXPECT_EQ(log.rules.size(), 1u);
    }
}

TEST(Records, OfADoubledHourFollowEachOther) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    std::string text;
    for (const char* time : {"01:59", "02:10", "02:50", "02:20", "02:40", "03:00"})
        text += std::string("[2026-10-25 ") + time + ":00.000000][INFO][L:0 M:0][0]x\n";
    const Opened log(text, KORX_LOG_PROCESS);
    ASSERT_EQ(log.records.size(), 6u);
    EXPECT_EQ(log.rules, Texts{});
    EXPECT_EQ(log.records[3].time.tv_sec - log.records[2].time.tv_sec, 1800);
    EXPECT_EQ(log.records[5].utc_offset, 3600);
}

struct HeadCase {
    const char* what;
    LOG_HEAD_S head;
    korx_log_kind kind;
    Texts records, unread, rules;
};

// Ten records, the newest lap 11 to 14 in [0, 400), the old one up to 1000 partly overwritten.
TEST(Ring, HeadSaysWhichRecordsThereAreAndWhichAreUnread) {
    const std::string newest = Events(11, 4);
    const std::string old = Events(1, 10);
    const std::string partly = newest + old.substr(400);
    const std::string cut_into = newest.substr(0, 350) + newest.substr(300, 100) + old.substr(450);
    const Texts laps = Lines(5, 6) + Lines(11, 4);
    const HeadCase cases[] = {
        {"never wrapped", {400, 0, 0}, KORX_LOG_LIFE, Lines(11, 4), Lines(11, 4), {"uncommitted"}},
        {"partly taken", {400, 200, 1000}, KORX_LOG_LIFE, laps, Lines(13, 2), {}},
        {"all taken", {400, 400, 1000}, KORX_LOG_LIFE, laps, {}, {}},
        {"old lap taken", {400, 1000, 1000}, KORX_LOG_LIFE, laps, Lines(11, 4), {}},
        {"old lap partly taken",
         {400, 900, 1000},
         KORX_LOG_LIFE,
         laps,
         Lines(10, 1) + Lines(11, 4),
         {}},
        {"nobody ever read", {400, 0, 1000}, KORX_LOG_DIAG, laps, laps, {}},
        {"overtaken", {400, 1300, 1000}, KORX_LOG_DIAG, laps, laps, {}},
        {"reader behind the log", {400, 1300, 1000}, KORX_LOG_LIFE, laps, laps, {"dump-position"}},
        {"reader inside a record",
         {400, 950, 1000},
         KORX_LOG_LIFE,
         laps,
         Lines(10, 1) + Lines(11, 4),
         {"dump-position"}},
        {"lap just ended, taken",
         {0, 1000, 1000},
         KORX_LOG_LIFE,
         Lines(11, 4) + Lines(5, 6),
         {},
         {"time-order"}},
        {"whole lap unread",
         {0, 0, 1000},
         KORX_LOG_LIFE,
         Lines(11, 4) + Lines(5, 6),
         Lines(11, 4) + Lines(5, 6),
         {"time-order"}},
        {"length outside",
         {5000, 0, 0},
         KORX_LOG_LIFE,
         Lines(11, 4) + Lines(5, 6),
         Lines(11, 4) + Lines(5, 6),
         {"head-length", "time-order"}},
        {"length behind the total",
         {500, 0, 500},
         KORX_LOG_LIFE,
         Lines(11, 4) + Lines(5, 1),
         Lines(11, 4) + Lines(5, 1),
         {"head-order", "time-order", "uncommitted"}},
    };
    for (const HeadCase& row : cases) {
        SCOPED_TRACE(row.what);
        const Opened log(Bytes(&row.head, sizeof row.head) + partly, row.kind);
        EXPECT_EQ(log.texts, row.records);
        EXPECT_EQ(log.unread, row.unread);
        EXPECT_EQ(log.info.unread_records, row.unread.size());
        EXPECT_EQ(log.rules, row.rules);
        EXPECT_EQ(log.damaged, Texts{});
    }
    const Opened log(Head(450, 450, 1000) + cut_into, KORX_LOG_SECURITY);
    EXPECT_EQ(log.texts.front(), Event(6).substr(0, 99)) << "after a record without its beginning";
}

TEST(Ring, NamesDamageBetweenSoundRecords) {
    const std::string all = Events(1, 9);
    const auto damage = [&](const std::function<void(std::string*)>& change) {
        std::string text = all;
        change(&text);
        const Opened log(Head(static_cast<uint32_t>(text.size()), 0, 0) + text, KORX_LOG_DIAG);
        Texts found = log.rules;
        found.push_back(std::to_string(log.texts.size()));
        return found;
    };
    EXPECT_EQ(damage([](std::string* t) { (*t)[403] = 'X'; }), (Texts{"stamp", "8"}));
    EXPECT_EQ(damage([](std::string* t) { (*t)[430] = 'X'; }), (Texts{"fields", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->replace(400, 100, std::string(100, '\0')); }),
              (Texts{"zeros", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->replace(0, 100, std::string(99, '?') + '\n'); }),
              (Texts{"not-a-record", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->resize(850); }), (Texts{"fields", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->resize(890); }), (Texts{"unterminated", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->insert(499, std::string(600, 'x')); }),
              (Texts{"too-long", "not-a-record", "8"}));
    EXPECT_EQ(damage([](std::string* t) { t->insert(500, Event(9000)); }),
              (Texts{"time-order", "10"}));
}

TEST(Ring, RecordOfAWriterThatDiedIsNoRecord) {
    const std::string newest = Events(11, 4);
    const Opened wrapped(Head(400, 400, 1000) + newest + Event(15) + Events(6, 5), KORX_LOG_LIFE);
    EXPECT_EQ(wrapped.texts, Lines(6, 5) + Lines(11, 4));
    EXPECT_EQ(wrapped.rules, Texts{"uncommitted"});
    const Opened first_lap(Head(400, 400, 0) + newest + Event(15).substr(0, 50), KORX_LOG_LIFE);
    EXPECT_EQ(first_lap.texts, Lines(11, 4));
    EXPECT_EQ(first_lap.rules, Texts{"uncommitted"});
}

// Writes records of random lengths through the real writers and asks, again and again, that the
// reader shows the newest ones without a gap, and as many as the file can hold.
struct Laps : korx::test::RoomTest {
    void SetUp() override { setenv("TZ", "UTC", 1); }

    std::string line(const std::string& head, bool multiline) {
        std::string text = head + std::string(random() % 450, 'm');
        if (multiline && random() % 4 == 0)
            text[head.size() + (text.size() - head.size()) / 2] = '\n';
        return text + "!\n";
    }
    unsigned random() { return static_cast<unsigned>(random_()); }

    // The shown texts must be the last of those written.
    static void expect_suffix(const Texts& written, const Opened& log, size_t least_bytes,
                              size_t cut = 0) {
        EXPECT_EQ(log.rules, Texts{});
        EXPECT_EQ(log.damaged, Texts{});
        ASSERT_LE(log.texts.size(), written.size());
        // The text log cuts its file when a lap ends, and with it the lap's last records.
        auto shown = log.texts.rbegin();
        auto expected = written.rbegin();
        for (size_t skipped = 0; shown != log.texts.rend(); ++shown, ++expected) {
            for (; *shown != *expected && skipped < cut; ++skipped)
                ++expected;
            ASSERT_EQ(*shown, *expected);
        }
        size_t bytes = 0;
        for (const std::string& text : log.texts)
            bytes += text.size() + 1;
        if (log.texts.size() < written.size()) {
            EXPECT_GE(bytes, least_bytes);
        }
    }

    std::mt19937 random_{3};
};

TEST_F(Laps, OfTheTextLogAreToldApart) {
    const std::string path = "/dev/shm/orx_app.log";  // each line is synced, which a disk feels
    Texts written;
    for (unsigned i = 0; i < 600 && !HasFailure(); ++i) {
        char head[80];
        (void) snprintf(head, sizeof head, "[261124-10:%02u:%02u.000000] [ProcID:%u|1|INFO] : %u ",
                        i / 60, i % 60, i, i);
        written.push_back(line(head, true));
        ASSERT_EQ(ORX_WriteLogfile(path.c_str(), 5000, written.back().c_str()), 0u);
        written.back().pop_back();
        expect_suffix(written, Opened(ReadFile(path), KORX_LOG_TEXT), 5000 - 3 * 550, 2);
    }
}

TEST_F(Laps, OfTheProcessLogAreToldApartByTime) {
    const std::string path = tree.path("zelk.log");
    int fd = 0;
    ASSERT_EQ(LOG_CheckAndCreateFile(path.c_str(), &fd), 0u);
    Texts written;
    for (unsigned i = 0; i < 3000 && !HasFailure(); ++i) {
        written.push_back(line(Stamp(i) + "[INFO][L:1 M:2][3]", false));
        const auto length = static_cast<uint32_t>(written.back().size());
        ASSERT_EQ(PLOG_Buff2File(fd, written.back().data(), length, 262144), 0u);
        written.back().pop_back();
        if (i % 7 == 0)
            expect_suffix(written, Opened(ReadFile(path), KORX_LOG_PROCESS), 262144 - 3 * 600);
    }
    (void) close(fd);
}

TEST_F(Laps, OfTheStartLogsSectionsAreToldApart) {
    (void) snprintf(g_acSTLogFileName, 256, "%s", tree.path("KORX_START_LOG").c_str());
    (void) snprintf(g_acSTLogFileHeadName, 256, "%s", tree.path(".korxloghdr").c_str());
    ASSERT_EQ(STLOG_CheckFileHandle(), 0u);
    const char* const modules[] = {"FRAME", "PATCH", "CFL", "DBG"};
    Texts written[4];
    for (unsigned i = 0; i < 3000 && !HasFailure(); ++i) {
        const unsigned section = i % 7 == 0 ? random() % 4 : 0;
        const std::string text = line(Stamp(i) + "[INFO][L:1 " + modules[section] + "][3]", false);
        ASSERT_EQ(STLOG_LogBuff2File(section, text.data(), static_cast<uint32_t>(text.size())), 0u);
        written[section].push_back(text.substr(0, text.size() - 1));
        if (i % 5 != 0)
            continue;
        const std::string header = ReadFile(g_acSTLogFileHeadName);
        const Opened log(ReadFile(g_acSTLogFileName), KORX_LOG_START, &header);
        ASSERT_EQ(log.rules, Texts{});
        EXPECT_TRUE(std::is_sorted(log.texts.begin(), log.texts.end()));
        for (unsigned s = 0; s < 4; ++s) {
            Texts shown;
            for (const korx_record& record : log.records) {
                if (View(record.name, record.name_length) == modules[s])
                    shown.emplace_back(record.text, record.length);
            }
            ASSERT_LE(shown.size(), written[s].size());
            for (size_t k = 0; k < shown.size(); ++k)
                ASSERT_EQ(shown[shown.size() - 1 - k], written[s][written[s].size() - 1 - k])
                    << s << ' ' << k << ' ' << shown.size() << ' ' << i;
            if (s == 0 && written[s].size() > 60) {
                EXPECT_GE(shown.size(), 16u);
            }
        }
    }
}

TEST_F(Laps, SpaceLogShowsItsRecordsOnly) {
    korx::test::MakeDirs("/etc/base.d");
    WriteFile("/etc/base.d/base.conf", "[PATH]\nLOG_PATH=" + tree.root() + "\n");
    ORX_SpaceFullLogInit();
    const std::string path = tree.path("orx_spacefull.log");
    EXPECT_EQ(Opened(ReadFile(path), KORX_LOG_AUTO).records.size(), 0u);
    ORX_SpaceFull("/var", 87);
    ORX_SpaceFull(std::string(150, 'n').c_str(), 4294967295u);
    ORX_SpaceFull("/a\nb", 0);
    const Opened log(ReadFile(path), KORX_LOG_SPACE);
    ASSERT_EQ(log.records.size(), 2u) << "the first one was in the file that was started anew";
    EXPECT_EQ(log.rules, Texts{});
    EXPECT_EQ(log.records[0].name_length, 150u);
    EXPECT_EQ(log.records[0].value, 4294967295u);
    EXPECT_EQ(View(log.records[1].name, log.records[1].name_length), "/a\nb");
}

}  // namespace
