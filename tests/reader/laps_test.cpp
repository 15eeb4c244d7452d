// What a reader makes of the bytes: records, laps, damage. The bytes come from the real writers, or
// are put together where no writer makes such a file.
#include <stdio.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique.h"
#include "korx/fs.h"
#include "korx/log.h"
#include "korx/plog.h"
#include "reader/log_reader.h"
#include "support/records.h"

namespace {

using namespace korx::test;
using Texts = std::vector<std::string>;

// A reader of bytes, with what it makes of them.
struct Opened : LogReader {
    Opened(std::string_view bytes, korx_log_kind kind, const std::string& header = "")
        : LogReader(bytes, kind, header) {
        while (next() == 1) {
            records.push_back(record);
            const std::string text(record.text, record.length);
            (record.flags & KORX_RECORD_DAMAGED ? damaged : texts).push_back(text);
            if (record.flags & KORX_RECORD_UNREAD)
                unread.push_back(text);
        }
        korx_damage found = {};
        for (size_t i = 0; korx_reader_get_damage(it, i, &found) == 1; ++i)
            rules.push_back(korx_damage_rule_name(found.rule));
        EXPECT_EQ(info.damage, rules.size());
        for (const korx_record& r : records)
            rules.insert(rules.end(), r.flags & KORX_RECORD_CLOCK_BACK ? 1 : 0, "clock-back");
        EXPECT_EQ(info.damage + info.clock_set_back, rules.size());
    }

    std::vector<korx_record> records;
    Texts texts, damaged, unread, rules;
};

std::string_view View(const char* text, size_t length) {
    return {text == nullptr ? "" : text, length};
}

std::string Ring(const std::string& records) {
    return BytesOf(LOG_HEAD_S{static_cast<uint32_t>(records.size()), 0, 0}) + records;
}

std::string Stamp(unsigned serial) {
    char text[64];
    (void) snprintf(text, sizeof text, "[2026-11-24 %02u:%02u:%02u.%06u]", serial / 3600 % 24,
                    serial / 60 % 60, serial % 60, serial % 1000000);
    return text;
}

// 100 characters with the line end.
std::string Event(unsigned serial, const char* head = "[Index:0x2a][AppCid:7][ERROR][L:8 M:3][1]") {
    std::string text = Stamp(serial) + head;
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

// A record's fields in one line.
std::string Fields(const korx_record& r) {
    const auto name = View(r.name, r.name_length), message = View(r.message, r.message_length);
    char text[400];
    (void) snprintf(text, sizeof text, "%u%s %#x %u L%u M%u %u p%d m%u <%.*s> %.*s", r.level,
                    r.level_name == nullptr ? "" : r.level_name, r.index, r.app_cid, r.location,
                    r.m_value, r.value, r.pid, r.module, static_cast<int>(name.size()), name.data(),
                    static_cast<int>(message.size()), message.data());
    return text;
}

TEST(Records, HaveTheFieldsOfTheirKind) {
    setenv("TZ", "UTC-2", 1);
    const std::string stamp = "[2026-11-24 12:29:13.000042]";
    const std::string text = "[261124-12:29:13.000042] [ProcID:-1|80100|ERR] : text\n";
    const std::string space = "[20261124-12:29:13.000042]" + std::string(91, ' ');
    const struct {
        korx_log_kind kind;
        std::string bytes, fields;
    } cases[] = {
        {KORX_LOG_SECURITY,
         Ring(stamp + "[Index:0xffffffff][AppCid:4294967295][FATAL][L:1 M:2][3]a\n"),
         "4FATAL 0xffffffff 4294967295 L1 M2 3 p0 m0 <> a"},
        {KORX_LOG_PROCESS, stamp + "[INFO][L:5 M:6][7]two\nlines\n\n",
         "1INFO 0 0 L5 M6 7 p0 m0 <zelk> two\nlines\n"},
        {KORX_LOG_PROCESS, stamp + "[L:5 M:6][WARNING][7]x\n" + stamp + " no head\n",
         "2WARNING 0 0 L5 M6 7 p0 m0 <zelk> x\n" + stamp + " no head"},
        {KORX_LOG_TEXT, BytesOf(static_cast<uint32_t>(text.size())) + text,
         "3ERR 0 0 L0 M0 0 p-1 m80100 <> text"},
        {KORX_LOG_SPACE, space + "/with cat        87\r\n", "0 0 0 L0 M0 87 p0 m0 </with cat> "},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.bytes);
        const Opened log(row.bytes, row.kind);
        ASSERT_EQ(log.records.size(), 1u);
        EXPECT_EQ(log.rules, Texts{});
        const korx_record& record = log.records[0];
        EXPECT_EQ(record.offset, row.bytes.find('['));
        EXPECT_EQ(record.time.tv_sec, 1795516153);
        EXPECT_EQ(record.time.tv_nsec, 42000);
        EXPECT_EQ(record.utc_offset, 7200);
        EXPECT_EQ(Fields(record), row.fields);
    }
}

TEST(Records, BeforeTheEpochHaveAFractionAboveZero) {
    setenv("TZ", "UTC-2", 1);
    const Opened log("[1970-01-01 00:00:00.000042][INFO][L:5 M:6][7]x\n", KORX_LOG_PROCESS);
    ASSERT_EQ(log.records.size(), 1u);
    EXPECT_EQ(log.records[0].time.tv_sec, -7200);
    EXPECT_EQ(log.records[0].time.tv_nsec, 42000);
}

TEST(Records, AreNoneWhereAnythingOfTheHeadIsMissing) {
    const std::string good = Stamp(1) + "[Index:0x2a][AppCid:7][ERROR][L:80100 M:3][120]x\n";
    ASSERT_EQ(Opened(Ring(good), KORX_LOG_LIFE).texts.size(), 1u);
    for (const std::string change :
         {"2026-11-24>2026-11-31", "2026-11-24>2026-02-29", "00:00:01>24:00:01", "0x2a>0x2A",
          "0x2a>2a", "0x2a>0x02a", "AppCid:7>AppCid:", "AppCid:7>AppCid:4294967296",
          "[ERROR]>[ERR]", "M:3>M:03", "][120]>] [120]"}) {
        const std::string from = change.substr(0, change.find('>'));
        const std::string to = change.substr(from.size() + 1);
        SCOPED_TRACE(to);
        std::string bad = good;
        bad.replace(bad.find(from), from.size(), to);
        const Opened log(Ring(bad), KORX_LOG_LIFE);
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

// Ten records, the newest lap 11 to 14 in [0, 400), the old one up to 1000 partly overwritten.
TEST(Ring, HeadSaysWhichRecordsThereAreAndWhichAreUnread) {
    const std::string newest = Events(11, 4);
    const std::string old = Events(1, 10);
    const std::string partly = newest + old.substr(400);
    const std::string cut_into = newest.substr(0, 350) + newest.substr(300, 100) + old.substr(450);
    const Texts fresh = Lines(11, 4), stale = Lines(5, 6);
    const Texts laps = stale + fresh, turned = fresh + stale, one_and_fresh = Lines(10, 1) + fresh;
    constexpr auto kDiag = KORX_LOG_DIAG, kLife = KORX_LOG_LIFE;
    const struct {
        const char* what;
        LOG_HEAD_S head;
        korx_log_kind kind;
        Texts records, unread, rules;
    } cases[] = {
        {"never wrapped", {1000, 0, 0}, kLife, turned, turned, {"clock-back"}},
        {"file goes on", {400, 0, 0}, kLife, fresh, fresh, {"head-length", "uncommitted"}},
        {"partly taken", {400, 200, 1000}, kLife, laps, Lines(13, 2), {}},
        {"all taken", {400, 400, 1000}, kLife, laps, {}, {}},
        {"old lap taken", {400, 1000, 1000}, kLife, laps, fresh, {}},
        {"old lap partly taken", {400, 900, 1000}, kLife, laps, one_and_fresh, {}},
        {"nobody ever read", {400, 0, 1000}, kDiag, laps, laps, {}},
        {"overtaken", {400, 1300, 1000}, kDiag, laps, laps, {}},
        {"behind any lap", {400, 1301, 1000}, kDiag, laps, laps, {"dump-position"}},
        {"reader behind the log", {400, 1300, 1000}, kLife, laps, laps, {"dump-position"}},
        {"inside a record", {400, 950, 1000}, kLife, laps, one_and_fresh, {"dump-position"}},
        {"inside one before the first lap's end",
         {1000, 950, 0},
         kDiag,
         turned,
         Lines(10, 1),
         {"dump-position", "clock-back"}},
        {"lap just ended, taken", {0, 1000, 1000}, kLife, turned, {}, {"clock-back"}},
        {"whole lap unread", {0, 0, 1000}, kLife, turned, turned, {"clock-back"}},
        {"length outside", {5000, 0, 0}, kLife, turned, turned, {"head-length", "clock-back"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const size_t longer_lap = row.kind == kDiag ? 300 : 0;  // once, and so the file's size
        const Opened log(BytesOf(row.head) + partly + std::string(longer_lap, '\0'), row.kind);
        EXPECT_EQ(log.texts, row.records);
        EXPECT_EQ(log.unread, row.unread);
        EXPECT_EQ(log.info.unread_records, row.unread.size());
        EXPECT_EQ(log.rules, row.rules);
        EXPECT_EQ(log.damaged, Texts{});
    }
    const Opened log(BytesOf(LOG_HEAD_S{450, 450, 1000}) + cut_into, KORX_LOG_SECURITY);
    EXPECT_EQ(log.texts.front(), Event(6).substr(0, 99)) << "after a record without its beginning";
    const Opened in_rest(BytesOf(LOG_HEAD_S{450, 470, 1000}) + cut_into, KORX_LOG_SECURITY);
    EXPECT_EQ(in_rest.rules, log.rules + Texts{"dump-position"});
}

TEST(Ring, NamesDamageBetweenSoundRecords) {
    const struct {
        size_t at, erased;
        std::string inserted;
        Texts rules;
        size_t left;
    } changes[] = {
        {403, 1, "X", {"stamp"}, 8},
        {430, 1, "X", {"fields"}, 8},
        {400, 100, std::string(100, '\0'), {"zeros"}, 8},
        {0, 100, std::string(99, '?') + '\n', {"not-a-record"}, 8},
        {890, 10, "", {"unterminated"}, 8},
        {499, 0, std::string(499, 'x'), {}, 9},
        {499, 0, std::string(500, 'x'), {"too-long", "not-a-record"}, 8},
        {499, 0, std::string(600, 'x'), {"too-long", "not-a-record"}, 8},
        {500, 0, Event(9000), {"clock-back"}, 10},
    };
    for (const auto& change : changes) {
        const std::string text = Events(1, 9).replace(change.at, change.erased, change.inserted);
        const Opened log(Ring(text), KORX_LOG_DIAG);
        EXPECT_EQ(log.rules, change.rules);
        EXPECT_EQ(log.texts.size(), change.left) << change.at;
    }
}

TEST(Ring, RecordOfAWriterThatDiedIsNoRecord) {
    const std::string newest = Events(11, 4);
    const Opened wrapped(BytesOf(LOG_HEAD_S{400, 400, 1000}) + newest + Event(15) + Events(6, 5),
                         KORX_LOG_LIFE);
    EXPECT_EQ(wrapped.texts, Lines(6, 5) + Lines(11, 4));
    EXPECT_EQ(wrapped.rules, Texts{"uncommitted"});
}

TEST(Process, LapsAreToldApartByTheStampsAndOneMoreSign) {
    constexpr unsigned kRest = 1000, kZeros = 2000;  // beside the records' serials
    using Serials = std::vector<unsigned>;
    const struct {
        const char* what;
        Serials file, shown;
        Texts rules;
    } cases[] = {
        {"only one", {1, 2, 3}, {1, 2, 3}, {}},
        {"the last record precedes the first", {5, 6, 7, 2, 3, 4}, {2, 3, 4, 5, 6, 7}, {}},
        {"a rest between them", {5, 6, 7, kRest, 3, 6}, {3, 6, 5, 6, 7}, {}},
        {"zeros at the end", {5, 6, 7, 3, 6, kZeros}, {3, 6, 5, 6, 7}, {}},
        {"no sign: a clock set back", {5, 6, 7, 3, 6}, {5, 6, 7, 3, 6}, {"clock-back"}},
        {"the deeper fall",
         {50, 60, 59, 70, 10, 11, 12, 13, 14, 15, 20},
         {10, 11, 12, 13, 14, 15, 20, 50, 60, 59, 70},
         {}},
        {"a rest before a deeper fall",
         {50, 60, kRest, 30, 45, 8, 9, 10, 11, 12, 13, 49},
         {30, 45, 8, 9, 10, 11, 12, 13, 49, 50, 60},
         {"clock-back"}},
        {"older ones behind",
         {21, 22, 23, 24, 15, 16, 17, 18, 19, 20, 1, 2},
         {15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
         {}},
        {"a rest and older ones behind",
         {21, 22, 23, 24, 15, 16, 17, 18, 19, 20, kRest, 2},
         {15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
         {}},
        {"nothing but a rest left", {1, 2, 3, kRest, kZeros}, {1, 2, 3}, {}},
    };
    const auto record = [](unsigned serial) { return Event(serial, "[INFO][L:1 M:2][3]"); };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        std::string bytes;
        for (const unsigned piece : row.file)
            bytes += piece == kRest    ? record(1).substr(60)
                     : piece == kZeros ? std::string(40, '\0')
                                       : record(piece);
        Texts shown;
        for (const unsigned serial : row.shown)
            shown.push_back(record(serial).substr(0, 99));
        const Opened log(bytes, KORX_LOG_PROCESS);
        EXPECT_EQ(log.texts, shown);
        EXPECT_EQ(log.rules, row.rules);
    }
}

// Writes records of random lengths through the real writers and asks, again and again, that the
// reader shows the newest ones without a gap, and as many as the file can hold.
struct Laps : RoomTest {
    void SetUp() override { setenv("TZ", "UTC", 1); }

    // Adds a line to those written and returns it.
    std::string line(const std::string& head, Texts* written, bool multiline = false) {
        std::string text = head + std::string(random() % 450, 'm');
        if (multiline && random() % 4 == 0)
            text[head.size() + (text.size() - head.size()) / 2] = '\n';
        written->push_back(text + "!");
        return text + "!\n";
    }

    // The shown texts must be the last of those written.
    static void expect_suffix(const Texts& written, const Opened& log, size_t least_bytes,
                              size_t cut = 0) {
        // The text log cuts its file when a lap ends, and with it the lap's last records.
        EXPECT_EQ(log.rules, Texts(log.damaged.size(), "cut"));
        EXPECT_LE(log.damaged.size(), cut / 2);
        for (const std::string& text : log.damaged)
            EXPECT_TRUE(std::any_of(written.begin(), written.end(), [&](const auto& whole) {
                return whole.starts_with(text);
            })) << text;
        ASSERT_LE(log.texts.size(), written.size());
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

    // Not to be chosen: a few courses in a hundred leave a lap's end that nobody can tell, because
    // a message is cut just behind a line end, or nothing but two old laps' last records is left.
    std::mt19937 random{3};
};

TEST_F(Laps, OfTheTextLogAreToldApart) {
    const std::string path = "/dev/shm/orx_app.log";  // each line is synced, which a disk feels
    Texts written;
    for (unsigned i = 0; i < 600 && !HasFailure(); ++i) {
        char head[80];
        (void) snprintf(head, sizeof head, "[261124-10:%02u:%02u.000000] [ProcID:%u|1|INFO] : %u ",
                        i / 60, i % 60, i, i);
        ASSERT_EQ(ORX_WriteLogfile(path.c_str(), 5000, line(head, &written, true).c_str()), 0u);
        expect_suffix(written, Opened(ReadFile(path), KORX_LOG_TEXT), 5000 - 3 * 550, 2);
    }
}

TEST_F(Laps, OfTheProcessLogAreToldApartByTime) {
    const std::string path = tree.path("zelk.log");
    int fd = 0;
    ASSERT_EQ(LOG_CheckAndCreateFile(path.c_str(), &fd), 0u);
    const korx::UniqueFd file(fd);
    Texts written;
    for (unsigned i = 0; i < 3000 && !HasFailure(); ++i) {
        const std::string text = line(Stamp(i) + "[INFO][L:1 M:2][3]", &written);
        const auto length = static_cast<uint32_t>(text.size());
        ASSERT_EQ(PLOG_Buff2File(fd, text.data(), length, 262144), 0u);
        if (i % 7 == 0)
            expect_suffix(written, Opened(ReadFile(path), KORX_LOG_PROCESS), 262144 - 3 * 600);
    }
}

TEST_F(Laps, OfTheStartLogsSectionsAreToldApart) {
    (void) snprintf(g_acSTLogFileName, 256, "%s", tree.path("KORX_START_LOG").c_str());
    (void) snprintf(g_acSTLogFileHeadName, 256, "%s", tree.path(".korxloghdr").c_str());
    ASSERT_EQ(STLOG_CheckFileHandle(), 0u);
    const char* const modules[] = {"FRAME", "PATCH", "CFL", "DBG"};
    Texts written[4];
    for (unsigned i = 0; i < 3000 && !HasFailure(); ++i) {
        const unsigned section = i % 7 == 0 ? random() % 4 : 0;
        const std::string text =
            line(Stamp(i) + "[INFO][L:1 " + modules[section] + "][3]", &written[section]);
        ASSERT_EQ(STLOG_LogBuff2File(section, text.data(), static_cast<uint32_t>(text.size())), 0u);
        if (i % 5 != 0)
            continue;
        const std::string header = ReadFile(g_acSTLogFileHeadName);
        const Opened log(ReadFile(g_acSTLogFileName), KORX_LOG_START, header);
        ASSERT_EQ(log.rules, Texts{});
        EXPECT_TRUE(std::is_sorted(log.texts.begin(), log.texts.end()));
        for (unsigned s = 0; s < 4; ++s) {
            Texts shown;
            for (const korx_record& record : log.records) {
                if (View(record.name, record.name_length) == modules[s])
                    shown.emplace_back(record.text, record.length);
            }
            ASSERT_LE(shown.size(), written[s].size());
            const auto newest = written[s].end() - static_cast<ptrdiff_t>(shown.size());
            ASSERT_EQ(shown, Texts(newest, written[s].end())) << s << ' ' << i;
            if (s == 0 && written[s].size() > 60) {
                EXPECT_GE(shown.size(), 16u);
            }
        }
    }
}

// No lap begins there, whatever the stamps say: the heads tell.
TEST_F(Laps, StayOneWhereTheClockIsSetBack) {
    const std::string path = "/dev/shm/orx_app.log", start = "/dev/shm/start";
    (void) snprintf(g_acSTLogFileName, 256, "%s", start.c_str());
    (void) snprintf(g_acSTLogFileHeadName, 256, "/dev/shm/header");
    ASSERT_EQ(STLOG_CheckFileHandle(), 0u);
    Texts text, records;
    for (const char* const minute : {"10", "11", "04", "05", "12"}) {
        const std::string time = std::string(minute) + ":00.000000]";
        const std::string first = line("[261124-10:" + time + " [ProcID:1|1|INFO] : ", &text);
        const std::string second = line("[2026-11-24 10:" + time + "[INFO][L:1 DBG][3]", &records);
        ASSERT_EQ(ORX_WriteLogfile(path.c_str(), 5000, first.c_str()), 0u);
        ASSERT_EQ(STLOG_LogBuff2File(3, second.data(), uint32_t(second.size())), 0u);
    }
    const Opened log(ReadFile(path), KORX_LOG_TEXT);
    const Opened sections(ReadFile(start), KORX_LOG_START, ReadFile("/dev/shm/header"));
    EXPECT_EQ(log.texts, text);
    EXPECT_EQ(sections.texts, records);
    EXPECT_EQ(log.rules, Texts{"clock-back"});
    EXPECT_EQ(sections.rules, Texts{"clock-back"});
}

TEST_F(Laps, ALeapSecondIsATime) {
    const Opened log("[2026-12-31 23:59:60.000001][L:1 M:1][INFO][1]x\n", KORX_LOG_PROCESS);
    EXPECT_TRUE(log.texts.size() == 1 && log.damaged.empty() && log.rules.empty());
}

TEST_F(Laps, SpaceLogShowsItsRecordsOnly) {
    SetLogPath(tree.root());
    ORX_SpaceFullLogInit();
    const std::string path = tree.path("orx_spacefull.log");
    ORX_SpaceFull("/var", 87);
    ORX_SpaceFull(std::string(150, 'n').c_str(), 4294967295u);
    const Opened log(ReadFile(path), KORX_LOG_SPACE);
    ASSERT_EQ(log.records.size(), 1u) << "the first one was in the file that was started anew";
    EXPECT_EQ(log.rules, Texts{});
    EXPECT_EQ(log.records[0].name_length, 150u);
    EXPECT_EQ(log.records[0].value, 4294967295u);
}

}  // namespace
