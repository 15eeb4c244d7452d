// What the bytes of a log are: which of them are records, of which lap, and what is wrong.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/text.h"
#include "format/kinds.h"
#include "korx/reader.h"
#include "reader/array.h"
#include "reader/record.h"
#include "reader/stamp.h"

namespace korx {

constexpr size_t kSections = kSectionCount;
constexpr size_t kMaxDamage = 4096;

// Marks of an entry beside KORX_RECORD_...
constexpr uint8_t kHasHead = 1 << 4;    // stamp and fields are sound
constexpr uint8_t kHandedOut = 1 << 5;  // by next_unread, and not acknowledged yet
constexpr uint8_t kSeen = 1 << 6;       // lies before the mark that was sought

struct Entry {
    uint64_t offset;
    int64_t time_us;  // damaged text: that of the record before it
    uint32_t length;  // with the line end
    int32_t utc_offset;
    uint8_t flags;
    uint8_t section;

    uint64_t end() const { return offset + length; }
};

// The bytes of a log and what is made of them. Offsets into bytes are offsets in the file.
struct LogImage {
    korx_log_kind kind = KORX_LOG_AUTO;
    MallocPtr<char> bytes;
    size_t size = 0;         // bytes there are
    uint64_t file_size = 0;  // bytes the file had
    MallocPtr<char> header;  // start log; null: there is none
    size_t header_size = 0;

    LOG_HEAD_S head = {};     // rings: as it stands in the file
    bool head_sound = false;  // its lengths describe this file
    bool dump_sound = false;  // and so does the position of the reader

    LocalClock clock;
    Array<Entry> entries;  // oldest first
    Array<korx_damage> damage;
    uint64_t damage_count = 0;
    uint32_t laps = 0;
    uint64_t fill = 0;
    korx_reader_info info = {};  // only its sections are filled here

    // How much of a ring's file has to be read, by its head.
    static uint64_t NeededOfRing(const LOG_HEAD_S& head, uint64_t file_size);

    // Finds the entries and the damage. False when memory ran out.
    [[nodiscard]] bool analyse();

    void report(korx_damage_rule rule, uint64_t offset, uint64_t length, const char* text,
                bool in_header = false);
    // Takes back what was reported since there were first entries and reaches beyond offset.
    bool withdraw(size_t first, uint64_t offset);
    [[gnu::format(printf, 5, 6)]] void report_values(korx_damage_rule rule, uint64_t offset,
                                                     uint64_t length, const char* format, ...);
};

// What the content of a file looks like; KORX_LOG_AUTO: nothing known.
korx_log_kind GuessKind(const char* bytes, size_t size);

}  // namespace korx
