// The copy of a log, and what is made of it: which of its bytes are records, of which lap, and what
// is wrong.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "format/ring.h"
#include "format/start.h"
#include "korx/reader.h"
#include "reader/array.h"
#include "reader/bytes.h"
#include "reader/damage.h"
#include "reader/shape.h"
#include "reader/stamp.h"

namespace korx {

static_assert(sizeof(korx_mark::last) == kSectionCount * sizeof(korx_mark::last[0]));

// Marks of an entry beside KORX_RECORD_...
constexpr uint8_t kHasHead = 1 << 4;    // stamp and fields are sound
constexpr uint8_t kHandedOut = 1 << 5;  // by next_unread, and not acknowledged yet
constexpr uint8_t kSeen = 1 << 6;       // lies before the mark that was sought
constexpr uint8_t kStands = 1 << 7;     // in a later copy, too, with which this one is compared

// Where a record is. There may be one for every few bytes of the log, so what its head says is read
// again when it is handed out.
struct Entry {
    uint64_t offset;
    int64_t time_us;  // damaged text: that of the record before it
    uint32_t length;  // with the line end
    int32_t utc_offset;
    uint8_t flags;
    uint8_t section;

    uint64_t end() const { return offset + length; }
    bool is(uint32_t flag) const { return (flags & flag) != 0; }
    void set(uint32_t flag) { flags = static_cast<uint8_t>(flags | flag); }
    void clear(uint32_t flag) { flags = static_cast<uint8_t>(flags & ~flag); }
};
static_assert(sizeof(Entry) == 32);

using Sections = decltype(korx_reader_info::sections);

// Offsets into the bytes are offsets in the file.
struct LogImage {
    LogFormat format;
    Bytes bytes;
    uint64_t file_size = 0;  // bytes the file had; a ring's are not copied beyond its text
    Bytes header;            // of the start log

    LOG_HEAD_S head = {};     // rings: as it stands in the file
    bool head_sound = false;  // its lengths describe this file
    bool dump_sound = false;  // and so does the position of the reader

    LocalClock clock;
    Array<Entry> entries;  // oldest first
    Array<Entry> passed;   // what a follower has passed, still stands and is no entry at present
    DamageList damage;
    uint32_t laps = 0;
    uint64_t fill = 0;
    Sections sections = {};

    // Finds the entries and the damage. False when memory ran out.
    [[nodiscard]] bool analyse();

    bool is_ring() const { return IsRing(format.kind->kind); }
    std::string_view text(uint64_t begin, uint64_t end) const {
        return Slice(bytes.view(), begin, end);
    }
    std::string_view text(const Entry& entry) const { return text(entry.offset, entry.end()); }
};

}  // namespace korx
