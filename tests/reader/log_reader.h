#pragma once

#include <stdlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "korx/reader.h"
#include "support/fixture.h"

namespace korx::test {

inline unsigned FromEnvironment(const char* name, unsigned usual) {
    const char* const text = getenv(name);
    return text == nullptr ? usual : static_cast<unsigned>(strtoul(text, nullptr, 0));
}

// The course of a test by chance, told when the test fails; KORX_TEST_SEED chooses another one.
class Chance {
  public:
    explicit Chance(unsigned usual) : seed_(FromEnvironment("KORX_TEST_SEED", usual)) {}
    unsigned operator()() { return static_cast<unsigned>(engine_()); }

  private:
    const unsigned seed_;
    std::mt19937 engine_{seed_};
    const ::testing::ScopedTrace trace_{__FILE__, __LINE__,
                                        "KORX_TEST_SEED=" + std::to_string(seed_)};
};

// A reader of a file or of bytes, and what it said last. For a short time, as readers are.
struct LogReader {
    LogReader(const std::string& path, korx_log_kind kind,
              const korx_reader_options* options = nullptr)
        : code(korx_reader_open(path.c_str(), kind, options, &it, &error)) {
        begin();
        if (code != KORX_READER_OK) {
            EXPECT_NE(std::string(error.text).find(path), std::string::npos) << error.text;
        }
    }
    LogReader(std::string_view bytes, korx_log_kind kind, const std::string& header) {
        korx_reader_options options = {};
        options.name = "zelk";
        options.header = header.data();
        options.header_length = header.size();
        code = korx_reader_open_memory(bytes.data(), bytes.size(), kind, &options, &it, &error);
        EXPECT_EQ(code, KORX_READER_OK) << error.text;
        begin();
    }
    ~LogReader() { korx_reader_close(it); }
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    int next() { return korx_reader_next(it, &record); }
    int next_unread() { return korx_reader_next_unread(it, &record); }
    korx_reader_code ack() { return korx_reader_ack(it, &error); }

    korx_reader* it = nullptr;
    korx_reader_error error = {};
    korx_reader_code code;
    korx_reader_info info = {};
    korx_record record = {};

  private:
    void begin() {
        EXPECT_EQ(it == nullptr, code != KORX_READER_OK);
        if (it != nullptr)
            korx_reader_get_info(it, &info);
    }
};

using Texts = std::vector<std::string>;

inline std::string IdOf(const korx_reader* reader, const korx_record& record) {
    char id[KORX_RECORD_ID_SIZE];
    EXPECT_EQ(korx_reader_record_id(reader, &record, id, sizeof id), 1);
    return id;
}

inline Texts Ids(LogReader&& log) {
    Texts ids;
    while (log.next() == 1)
        ids.push_back(IdOf(log.it, log.record));
    return ids;
}

// All that a reader tells; it then stands at its end.
inline Texts Told(korx_reader* reader) {
    korx_reader_info info = {};
    korx_reader_get_info(reader, &info);
    Texts told = {std::string(reinterpret_cast<const char*>(&info), sizeof info)};
    korx_damage damage = {};
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) == 1; ++i)
        told.push_back("damage " + std::to_string(damage.rule) + " at " +
                       std::to_string(damage.offset) + "+" + std::to_string(damage.length) + " " +
                       damage.text);
    std::sort(told.begin() + 1, told.end());
    korx_reader_rewind(reader);
    for (korx_record record = {}; korx_reader_next(reader, &record) == 1;)
        told.push_back(IdOf(reader, record) + " flags " + std::to_string(record.flags) + " at " +
                       std::to_string(record.time.tv_sec) + " " +
                       std::string(record.text, record.length));
    return told;
}

}  // namespace korx::test
