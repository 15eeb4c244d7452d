// Records that are known again, and readers that go along with their log.
#include <stdlib.h>

#include <string>
#include <vector>

#include "reader/ring_file.h"

namespace {

using namespace korx::test;
using Texts = std::vector<std::string>;

std::string IdOf(const korx_reader* reader, const korx_record& record) {
    char id[KORX_RECORD_ID_SIZE];
    EXPECT_EQ(korx_reader_record_id(reader, &record, id, sizeof id), 1);
    return id;
}

Texts Ids(LogReader&& log) {
    Texts ids;
    while (log.next() == 1)
        ids.push_back(IdOf(log.it, log.record));
    return ids;
}

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

}  // namespace
