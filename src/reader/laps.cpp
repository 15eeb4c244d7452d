// Where the laps of each kind lie.
//
// A lap is read from its first byte to its last. The old lap comes first: what the newest lap has
// written over of its first record is skipped up to the first sound record. The rings, the text log
// and the start log say where the newest lap ends; in a process log only the time stamps do.
#include "reader/image.h"

#include <string.h>

#include <algorithm>

#include "base/bounded.h"

namespace korx {
namespace {

constexpr int64_t kOrderSlack = 2000000;  // processes stamp before they wait for the lock
constexpr size_t kZeroRun = 64;           // as many zeros in a row are no text's
constexpr size_t kTailLook = 1024;        // looked at behind the end of a ring's text

constexpr int64_t kLongestPause = int64_t{366} * 86400 * 1000000;

// How a stretch of text is read.
struct Stretch {
    size_t begin;
    size_t end;
    uint8_t flags = 0;  // of its entries
    uint8_t section = 0;
    bool resync = false;     // begins inside a record: skip to the first sound one
    bool cut_tail = false;   // may end inside a record, which then is none
    bool zero_fill = false;  // zeros at its end are room that was never written
    bool quiet = false;      // find records only
};

bool IsZero(char c) {
    return c == '\0';
}

size_t ZeroRunEnd(const char* bytes, size_t begin, size_t end) {
    uint64_t word = 0;
    while (end - begin >= sizeof word) {
        memcpy(&word, bytes + begin, sizeof word);
        if (word != 0)
            break;
        begin += sizeof word;
    }
    return static_cast<size_t>(std::find_if_not(bytes + begin, bytes + end, IsZero) - bytes);
}

bool AllZero(const char* bytes, size_t begin, size_t end) {
    return ZeroRunEnd(bytes, begin, end) == end;
}

// Finds the records of one stretch, and what lies between them.
class Reading {
  public:
    Reading(LogImage* image, Array<Entry>* entries, const Stretch& stretch)
        : image_(*image),
          entries_(*entries),
          stretch_(stretch),
          first_entry_(entries->size()),
          bytes_(image->bytes.get()) {}

    void run() {
        size_t at = stretch_.begin;
        find_zero(at);
        while (at < stretch_.end)
            at = begins_record(at) ? take_record(at) : take_other(at);
    }

  private:
    bool begins_record(size_t at) {
        return bytes_[at] == '[' && ParseHead(image_.kind, bytes_ + at, stretch_.end - at, &head_);
    }

    // Whether what begins at the start of this line can't belong to the record before it.
    bool begins_something(size_t at) {
        if (bytes_[at] == '\0')
            return true;
        RecordHead next = {};
        if (bytes_[at] == '[' && ParseHead(image_.kind, bytes_ + at, stretch_.end - at, &next))
            return true;
        return ResemblesHead(image_.kind, bytes_ + at, stretch_.end - at) !=
               KORX_DAMAGE_NOT_A_RECORD;
    }

    void find_zero(size_t from) {
        const void* const found = memchr(bytes_ + from, 0, stretch_.end - from);
        zero_ = found == nullptr ? stretch_.end
                                 : static_cast<size_t>(static_cast<const char*>(found) - bytes_);
    }

    // Just behind the next line end, or the end of the stretch.
    size_t line_end(size_t from, size_t limit) const {
        const void* const found = memchr(bytes_ + from, '\n', limit - from);
        return found == nullptr ? limit
                                : static_cast<size_t>(static_cast<const char*>(found) - bytes_) + 1;
    }

    size_t take_record(size_t at) {
        const LocalClock::Moment moment = image_.clock.resolve(head_.time, time_);
        if (zero_ < at)
            find_zero(at);
        const size_t limit = std::min(zero_, stretch_.end);
        const size_t first_line = line_end(at, limit);
        size_t end = head_.extent != 0 ? std::min(at + head_.extent, limit) : first_line;
        // No record is longer; looking on would only find what is damaged anyway.
        const size_t longest = at + KindOf(image_.kind).longest_record;
        while (head_.extent == 0 && end < limit && end <= longest && !begins_something(end))
            end = line_end(end, limit);

        bool damaged = false;
        const bool terminated =
            head_.extent != 0 ? end == at + head_.extent : bytes_[end - 1] == '\n';
        if (end > longest) {
            damaged = true;
            report(KORX_DAMAGE_TOO_LONG, at, end - at, "longer than any record can be");
            end = std::min(first_line, longest);
        } else if (!terminated) {
            if (stretch_.cut_tail && end == stretch_.end)
                return end;
            damaged = true;
            report(KORX_DAMAGE_UNTERMINATED, at, end - at, "a record without line end");
        }
        time_ = moment.micros;
        add(at, end, moment.utc_offset, kHasHead | (damaged ? KORX_RECORD_DAMAGED : 0));
        return end;
    }

    // Text or zeros up to the next place where a record begins.
    size_t take_other(size_t at) {
        if (bytes_[at] == '\0')
            return take_zeros(at, ZeroRunEnd(bytes_, at, stretch_.end));
        const korx_damage_rule rule = ResemblesHead(image_.kind, bytes_ + at, stretch_.end - at);
        size_t end = at + 1;
        while (end < stretch_.end && !ends_other(end))
            ++end;
        const bool cut = stretch_.cut_tail && end == stretch_.end && bytes_[end - 1] != '\n';
        if (!is_resyncing() && !cut)
            take_text(at, end, rule);
        return end;
    }

    // A few zeros belong to the text around them, so that entries stay in proportion to the file.
    bool ends_other(size_t at) {
        if (bytes_[at] == '[')
            return (bytes_[at - 1] == '\n' || bytes_[at - 1] == '\0') && begins_record(at);
        if (bytes_[at] != '\0' || bytes_[at - 1] == '\0')
            return false;
        const size_t run_end = ZeroRunEnd(bytes_, at, std::min(stretch_.end, at + kZeroRun));
        return run_end == stretch_.end || run_end == at + kZeroRun;
    }

    bool is_resyncing() const { return stretch_.resync && entries_.size() == first_entry_; }

    size_t take_zeros(size_t at, size_t end) {
        const bool is_fill = stretch_.zero_fill && end == stretch_.end;
        if (!is_fill && !is_resyncing())
            report(KORX_DAMAGE_ZEROS, at, end - at, "zero bytes inside the log");
        return end;
    }

    void take_text(size_t at, size_t end, korx_damage_rule rule) {
        if (stretch_.quiet)
            return;
        report(rule, at, end - at,
               rule == KORX_DAMAGE_STAMP    ? "a record with a damaged time stamp"
               : rule == KORX_DAMAGE_FIELDS ? "a record with damaged head fields"
                                            : "text that is not a record");
        add(at, end, 0, KORX_RECORD_DAMAGED);
    }

    void add(size_t at, size_t end, int32_t utc_offset, uint32_t flags) {
        entries_.push({.offset = at,
                       .time_us = time_,
                       .length = static_cast<uint32_t>(end - at),
                       .utc_offset = utc_offset,
                       .flags = static_cast<uint8_t>(flags | stretch_.flags),
                       .section = stretch_.section});
    }

    void report(korx_damage_rule rule, size_t offset, size_t length, const char* text) {
        if (!stretch_.quiet)
            image_.report(rule, offset, length, text);
    }

    LogImage& image_;
    Array<Entry>& entries_;
    const Stretch stretch_;
    const size_t first_entry_;
    const char* const bytes_;
    size_t zero_ = 0;  // the next zero byte at or behind the record looked at
    int64_t time_ = INT64_MIN;
    RecordHead head_ = {};
};

// Builds the entries of one log.
class Layout {
  public:
    explicit Layout(LogImage* image) : image_(*image), bytes_(image->bytes.get()) {}

    void run() {
        switch (image_.kind) {
            case KORX_LOG_TEXT:
                return text();
            case KORX_LOG_START:
                return start();
            case KORX_LOG_PROCESS:
                return process();
            case KORX_LOG_SPACE:
                return space();
            default:
                return ring();
        }
    }

  private:
    void read(const Stretch& stretch) { Reading(&image_, &image_.entries, stretch).run(); }

    enum class LapEnd { kKnown, kCut, kUnknown };

    // The two laps between begin and until. How the old one ends: at until; cut at until; or
    // somewhere within a record's length before it.
    void read_laps(size_t begin, size_t newest_end, size_t until, LapEnd old_end, uint8_t section,
                   bool zero_fill = false) {
        const size_t first = image_.entries.size();
        const size_t first_damage = image_.damage.size();
        if (newest_end < until)
            read({.begin = newest_end,
                  .end = until,
                  .flags = KORX_RECORD_OLD_LAP,
                  .section = section,
                  .resync = true,
                  .cut_tail = old_end != LapEnd::kKnown,
                  .zero_fill = old_end == LapEnd::kUnknown});
        if (old_end == LapEnd::kUnknown)
            drop_stale_tail(first, first_damage, until);
        const size_t old_entries_end = image_.entries.size();
        read({.begin = begin, .end = newest_end, .section = section, .zero_fill = zero_fill});
        drop_uncommitted(first, old_entries_end, newest_end, until);
        check_order(first);
    }

    // A writer that ended between its record and the head leaves a record in the old lap's place
    // that is newer than all others. It was never accepted.
    void drop_uncommitted(size_t first, size_t old_end, size_t newest_end, size_t until) {
        if (first == old_end)
            return;
        const Entry candidate = image_.entries[first];
        if (candidate.offset != newest_end || (candidate.flags & kHasHead) == 0)
            return;
        const bool alone = old_end == first + 1;
        if (alone && !AllZero(bytes_, candidate.end(), until))
            return;
        if (alone && candidate.end() == until)
            return;
        if (!alone && image_.entries[first + 1].time_us >= candidate.time_us)
            return;
        const bool has_newest = old_end < image_.entries.size();
        if (has_newest && image_.entries[image_.entries.size() - 1].time_us > candidate.time_us)
            return;
        image_.report(KORX_DAMAGE_UNCOMMITTED, candidate.offset, candidate.length,
                      "a record whose writer ended before it was entered in the head");
        remove(first, first + 1);
    }

    void remove(size_t from, size_t to) {
        Entry* const entries = image_.entries.begin();
        std::copy(entries + to, image_.entries.end(), entries + from);
        image_.entries.truncate(image_.entries.size() - (to - from));
    }

    void check_order(size_t first) {
        int64_t newest = INT64_MIN;
        for (size_t i = first; i < image_.entries.size(); ++i) {
            const Entry& entry = image_.entries[i];
            if ((entry.flags & kHasHead) == 0)
                continue;
            if (newest != INT64_MIN && entry.time_us < newest - kOrderSlack)
                image_.report(KORX_DAMAGE_TIME_ORDER, entry.offset, entry.length,
                              "older than the record before it");
            newest = entry.time_us;
        }
    }

    void ring() {
        if (image_.size < kRingHeadSize) {
            if (image_.size != 0)
                image_.report(KORX_DAMAGE_HEAD_SHORT, image_.size, 0, "the file ends in its head");
            image_.head_sound = image_.size == 0;
            image_.dump_sound = image_.head_sound;
            return;
        }
        memcpy(&image_.head, bytes_, kRingHeadSize);
        const LOG_HEAD_S& head = image_.head;
        const size_t room = image_.size - kRingHeadSize;
        const uint64_t file_room = image_.file_size - kRingHeadSize;
        image_.head_sound = check_head(head, file_room);

        const size_t newest = std::min<size_t>(head.uiLogLen, room);
        const bool wrapped = head.uiTotalLen != 0 && head.uiTotalLen > head.uiLogLen;
        const size_t oldest_end = wrapped ? std::min<size_t>(head.uiTotalLen, room) : newest;
        image_.laps = wrapped ? 1 : 0;
        image_.fill = std::max(newest, oldest_end);
        read_laps(kRingHeadSize, kRingHeadSize + newest, kRingHeadSize + oldest_end, LapEnd::kKnown,
                  0);
        if (!wrapped)
            check_behind(kRingHeadSize + newest);
        check_dump();
    }

    bool check_head(const LOG_HEAD_S& head, uint64_t file_room) {
        if (head.uiLogLen > file_room)
            image_.report_values(KORX_DAMAGE_HEAD_LENGTH, 0, 4,
                                 "uiLogLen %u leads outside the file", head.uiLogLen);
        if (head.uiTotalLen > file_room)
            image_.report_values(KORX_DAMAGE_HEAD_LENGTH, 8, 4,
                                 "uiTotalLen %u leads outside the file", head.uiTotalLen);
        const bool in_order = head.uiTotalLen == 0 || head.uiLogLen < head.uiTotalLen;
        if (!in_order)
            image_.report_values(KORX_DAMAGE_HEAD_ORDER, 0, 12,
                                 "uiLogLen %u is not below uiTotalLen %u", head.uiLogLen,
                                 head.uiTotalLen);
        return in_order && head.uiLogLen <= file_room && head.uiTotalLen <= file_room;
    }

    void check_behind(size_t end) {
        const size_t behind = std::min(image_.size - end, kTailLook);
        if (!AllZero(bytes_, end, end + behind))
            image_.report(KORX_DAMAGE_UNCOMMITTED, end, image_.file_size - end,
                          "bytes behind the newest record that the head does not count");
    }

    // The diagnostic record log may overtake its reader, so any position is possible there.
    void check_dump() {
        const LOG_HEAD_S& head = image_.head;
        image_.dump_sound = head.uiDumpLen <= std::max(head.uiLogLen, head.uiTotalLen);
        if (image_.kind == KORX_LOG_DIAG)
            return;
        const uint64_t position = uint64_t{kRingHeadSize} + head.uiDumpLen;
        if (!image_.dump_sound)
            image_.report_values(KORX_DAMAGE_DUMP_POSITION, 4, 4,
                                 "uiDumpLen %u lies behind the log", head.uiDumpLen);
        else if (std::any_of(image_.entries.begin(), image_.entries.end(), [=](const Entry& entry) {
                     return entry.offset < position && position < entry.end();
                 }))
            image_.report_values(KORX_DAMAGE_DUMP_POSITION, 4, 4,
                                 "uiDumpLen %u lies inside a record", head.uiDumpLen);
    }

    void text() {
        if (image_.size < kTextHeadSize) {
            if (image_.size != 0)
                image_.report(KORX_DAMAGE_HEAD_SHORT, image_.size, 0, "the file ends in its head");
            return;
        }
        uint32_t count = 0;
        memcpy(&count, bytes_, kTextHeadSize);
        const size_t room = image_.size - kTextHeadSize;
        if (count > room)
            image_.report_values(KORX_DAMAGE_HEAD_LENGTH, 0, 4, "the count %u exceeds the file",
                                 count);
        const size_t newest = kTextHeadSize + std::min<size_t>(count, room);
        read_laps(kTextHeadSize, newest, image_.size, LapEnd::kCut, 0);
        image_.laps = newest < image_.size ? 1 : 0;
        image_.fill = image_.size - kTextHeadSize;
    }

    void space() {
        size_t begin = 0;
        while (begin < image_.size && bytes_[begin] == ' ')
            ++begin;
        if (image_.size >= kSpaceHeaderLength && begin == 0 &&
            memcmp(bytes_, kSpaceHeader, kSpaceHeaderLength) == 0)
            begin = kSpaceHeaderLength;
        read({.begin = begin, .end = image_.size});
        check_order(0);
        image_.fill = image_.size - begin;
    }

    void process() {
        image_.laps = read_unmarked(0, image_.size, 0, KindOf(KORX_LOG_PROCESS).limit) ? 1 : 0;
        size_t used = image_.size;
        while (used > 0 && bytes_[used - 1] == '\0')
            --used;
        image_.fill = used;
    }

    // Where the newest lap of a log without a mark ends, or end when it has only one lap. The time
    // stamps rise through each lap, so they fall where the old one begins; a record of which only
    // the rest is left stands there as well, unless the two laps' records happen to end alike.
    size_t find_newest_end(size_t begin, size_t end, uint64_t usual_size) {
        Array<Entry> found;
        Reading(&image_, &found, {.begin = begin, .end = end, .quiet = true}).run();
        if (found.out_of_memory() || found.size() < 2)
            return end;
        const Entry& first = found[0];
        const Entry& last = found[found.size() - 1];
        const bool size_fits = image_.file_size == usual_size || bytes_[end - 1] == '\0';
        const bool closes =
            last.time_us <= first.time_us && first.time_us - last.time_us < kLongestPause;
        size_t newest = found.size();
        int64_t deepest = 0;
        bool deepest_has_rest = false;
        for (size_t i = 0; i + 1 < found.size(); ++i) {
            const int64_t fall = found[i].time_us - found[i + 1].time_us;
            const size_t line = end_of_first_line(found[i]);
            const bool has_rest = line != found[i + 1].offset;
            // So close to the end it is rather what is left of the lap before the last.
            const bool is_stale = newest < found.size() && found[i + 1].offset + kRecordRoom > end;
            const bool is_likely = has_rest || closes || size_fits;
            if (fall <= 0 || is_stale || !is_likely || (deepest_has_rest && !has_rest))
                continue;
            if (fall > deepest || (has_rest && !deepest_has_rest)) {
                newest = i;
                deepest = fall;
                deepest_has_rest = has_rest;
            }
        }
        if (newest < found.size())
            return end_of_first_line(found[newest]);
        // The newest lap has reached the end of the file, or what is left before it is no record.
        return size_fits ? end_of_first_line(last) : end;
    }

    size_t end_of_first_line(const Entry& entry) const {
        const void* const found = memchr(bytes_ + entry.offset, '\n', entry.length);
        return found == nullptr ? entry.end()
                                : static_cast<size_t>(static_cast<const char*>(found) - bytes_) + 1;
    }

    // A stretch whose newest lap ends nobody says where. True when it has wrapped.
    bool read_unmarked(size_t begin, size_t end, uint8_t section, uint64_t usual_size) {
        if (begin >= end)
            return false;
        const size_t newest = find_newest_end(begin, end, usual_size);
        read_laps(begin, newest, end, LapEnd::kUnknown, section, true);
        return newest < end;
    }

    // What stands behind the old lap's end is left of laps before it: records that are older, the
    // first of them without its beginning. That rest would pass for lines of the message before.
    void drop_stale_tail(size_t first, size_t first_damage, size_t until) {
        if (first == image_.entries.size())
            return;
        const size_t window = until - std::min<size_t>(until, kRecordRoom);
        size_t last = image_.entries.size();
        for (size_t i = first + 1; i < image_.entries.size(); ++i) {
            const Entry& entry = image_.entries[i];
            const bool older = entry.time_us < image_.entries[i - 1].time_us;
            if (entry.offset >= window && (entry.flags & kHasHead) != 0 && older) {
                last = i;
                break;
            }
        }
        image_.entries.truncate(last);
        while (image_.entries.size() > first + 1 &&
               (image_.entries[image_.entries.size() - 1].flags & kHasHead) == 0 &&
               image_.entries[image_.entries.size() - 1].offset >= window)
            image_.entries.truncate(image_.entries.size() - 1);
        Entry& kept = image_.entries[image_.entries.size() - 1];
        const bool had_rest = image_.withdraw(first_damage, window);
        if ((kept.flags & kHasHead) != 0 && (kept.end() > window || had_rest)) {
            kept.length = static_cast<uint32_t>(end_of_first_line(kept) - kept.offset);
            kept.flags = static_cast<uint8_t>(kept.flags & ~KORX_RECORD_DAMAGED);
        }
    }

    void start() {
        if (image_.size == 0 && image_.header_size == 0)
            return;
        STLOG_HDR_S header = kStartDefaults;
        const bool sound = load_header(&header);
        for (uint32_t s = 0; s < kSections; ++s)
            read_section(header.astSec[s], s, sound);
        merge_sections();
    }

    bool load_header(STLOG_HDR_S* header) {
        const auto unusable = [this](uint64_t offset, const char* why) {
            image_.report(KORX_DAMAGE_HEADER, offset, 0, why, true);
            return false;
        };
        if (image_.header == nullptr)
            return unusable(0, "there is no header file; the cursors are found by time");
        if (image_.header_size < sizeof *header)
            return unusable(image_.header_size, "the header file is too short");
        STLOG_HDR_S stored;
        memcpy(&stored, image_.header.get(), sizeof stored);
        if (stored.uiMagic != kStartDefaults.uiMagic)
            return unusable(offsetof(STLOG_HDR_S, uiMagic), "the header's magic is wrong");
        if (stored.uiVersion != kStartDefaults.uiVersion)
            return unusable(offsetof(STLOG_HDR_S, uiVersion), "the header's version is wrong");
        for (size_t s = 0; s < kSections; ++s) {
            if (!IsUsableSection(stored, s))
                return unusable(offsetof(STLOG_HDR_S, astSec) + s * sizeof(STLOG_SEC_S),
                                "a section's bounds or cursor are impossible");
        }
        check_marks(stored);
        *header = stored;
        return true;
    }

    // Nothing depends on these, but they never change either.
    void check_marks(const STLOG_HDR_S& stored) {
        if (stored.uiFlag != kStartDefaults.uiFlag)
            image_.report(KORX_DAMAGE_HEADER, 0, 4, "the header's flag is not 1", true);
        for (size_t s = 0; s < kSections; ++s) {
            if (stored.astSec[s].uiMarker != kStartDefaults.astSec[s].uiMarker)
                image_.report(KORX_DAMAGE_HEADER,
                              offsetof(STLOG_HDR_S, astSec) + s * sizeof(STLOG_SEC_S), 4,
                              "a section's marker is not its own", true);
        }
    }

    void read_section(const STLOG_SEC_S& section, uint32_t index, bool cursor_known) {
        const size_t end = std::min<size_t>(section.uiEnd, image_.size);
        const size_t begin = std::min<size_t>(section.uiStart, end);
        check_separator(section.uiStart);
        const size_t first = image_.entries.size();
        if (cursor_known) {
            if (section.uiCur > end)
                image_.report(KORX_DAMAGE_HEADER,
                              offsetof(STLOG_HDR_S, astSec) + index * sizeof(STLOG_SEC_S), 16,
                              "a section's cursor lies behind the end of the log", true);
            read_laps(begin, std::min<size_t>(section.uiCur, end), end, LapEnd::kUnknown,
                      static_cast<uint8_t>(index));
        } else {
            (void) read_unmarked(begin, end, static_cast<uint8_t>(index), 0);
        }
        const bool wrapped = first < image_.entries.size() &&
                             (image_.entries[first].flags & KORX_RECORD_OLD_LAP) != 0;
        auto& info = image_.info.sections[index];
        info.start = section.uiStart;
        info.end = section.uiEnd;
        info.cursor = section.uiCur;
        info.wrapped = wrapped ? 1 : 0;
        image_.laps |= info.wrapped;
        image_.fill += wrapped ? end - begin : std::min<size_t>(section.uiCur, end) - begin;
    }

    void check_separator(uint32_t section_start) {
        const uint32_t at = section_start - std::min(section_start, kSeparatorLength);
        const bool there = section_start <= image_.size && section_start >= kSeparatorLength &&
                           memcmp(bytes_ + at, kSeparator, kSeparatorLength) == 0;
        if (!there)
            image_.report(KORX_DAMAGE_SEPARATOR, at, kSeparatorLength,
                          "the separator before a section is not there");
    }

    // Each section is in order already; of the four foremost records the oldest comes next.
    void merge_sections() {
        size_t next[kSections] = {};
        size_t end[kSections] = {};
        const Array<Entry>& entries = image_.entries;
        size_t at = 0;
        for (size_t s = 0; s < kSections; ++s) {
            next[s] = at;
            while (at < entries.size() && entries[at].section == s)
                ++at;
            end[s] = at;
        }
        Array<Entry> merged;
        merged.reserve(entries.size());
        while (merged.size() < entries.size() && !merged.out_of_memory()) {
            size_t oldest = kSections;
            for (size_t s = 0; s < kSections; ++s) {
                if (next[s] < end[s] && (oldest == kSections ||
                                         entries[next[s]].time_us < entries[next[oldest]].time_us))
                    oldest = s;
            }
            merged.push(entries[next[oldest]++]);
        }
        if (merged.out_of_memory())
            return image_.entries.fail();
        std::copy(merged.begin(), merged.end(), image_.entries.begin());
    }

    LogImage& image_;
    const char* const bytes_;
};

uint32_t WordAt(const char* bytes) {
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return word;
}

}  // namespace

uint64_t LogImage::NeededOfRing(const LOG_HEAD_S& head, uint64_t file_size) {
    const uint64_t text = std::max(head.uiLogLen, head.uiTotalLen);
    return std::min(file_size, kRingHeadSize + text + kTailLook);
}

bool LogImage::analyse() {
    entries.reserve(size / 96 + 16);
    Layout(this).run();
    return !entries.out_of_memory() && !damage.out_of_memory();
}

void LogImage::report(korx_damage_rule rule, uint64_t offset, uint64_t length, const char* text,
                      bool in_header) {
    ++damage_count;
    if (damage.size() >= kMaxDamage)
        return;
    korx_damage entry = {};
    entry.rule = rule;
    entry.in_header = in_header ? 1 : 0;
    entry.offset = offset;
    entry.length = length;
    (void) strcpy_s(entry.text, sizeof entry.text, text);
    damage.push(entry);
}

bool LogImage::withdraw(size_t first, uint64_t offset) {
    korx_damage* const begin = damage.begin() + std::min(first, damage.size());
    korx_damage* const kept = std::remove_if(begin, damage.end(), [=](const korx_damage& entry) {
        return entry.in_header == 0 && entry.offset + entry.length > offset;
    });
    const auto count = static_cast<size_t>(damage.end() - kept);
    damage.truncate(damage.size() - count);
    damage_count -= count;
    return count != 0;
}

void LogImage::report_values(korx_damage_rule rule, uint64_t offset, uint64_t length,
                             const char* format, ...) {
    FixedText<sizeof(korx_damage::text)> text;
    va_list args;
    va_start(args, format);
    (void) text.vformat(format, args);
    va_end(args);
    report(rule, offset, length, text.c_str());
}

korx_log_kind GuessKind(const char* bytes, size_t size) {
    RecordHead head = {};
    const auto begins = [&](korx_log_kind kind, size_t at) {
        return size > at && ParseHead(kind, bytes + at, size - at, &head);
    };
    if (begins(KORX_LOG_PROCESS, 0))
        return KORX_LOG_PROCESS;
    const size_t separator = kStartDefaults.astSec[0].uiStart - kSeparatorLength;
    if (size >= separator + kSeparatorLength &&
        memcmp(bytes + separator, kSeparator, kSeparatorLength) == 0)
        return KORX_LOG_START;
    if (begins(KORX_LOG_SPACE, 0) ||
        (size >= kSpaceHeaderLength && memcmp(bytes, kSpaceHeader, kSpaceHeaderLength) == 0) ||
        (size > 0 && std::all_of(bytes, bytes + std::min<size_t>(size, kSpaceReserve),
                                 [](char c) { return c == ' '; })))
        return KORX_LOG_SPACE;
    if (begins(KORX_LOG_DIAG, kRingHeadSize))
        return KORX_LOG_DIAG;
    if (begins(KORX_LOG_TEXT, kTextHeadSize))
        return KORX_LOG_TEXT;
    const bool empty_ring = size == kRingHeadSize && AllZero(bytes, 0, size);
    if (empty_ring)
        return KORX_LOG_DIAG;
    return size == kTextHeadSize && WordAt(bytes) == 0 ? KORX_LOG_TEXT : KORX_LOG_AUTO;
}

}  // namespace korx
