// Records begin at the start of a line and are told by their heads alone: a message may hold lines,
// and lines that nearly are heads. So a record goes on until something else begins, and what begins
// nowhere is text up to the next record. Whatever the bytes are, each is looked at a bounded number
// of times, and runs of zeros or of text make one entry, not many.
#include "reader/stretch.h"

#include <string.h>

#include <algorithm>

#include "reader/record.h"

namespace korx {
namespace {

constexpr size_t kZeroRun = 64;  // as many zeros in a row are no text's

bool IsZero(char c) {
    return c == '\0';
}

class StretchReader {
  public:
    StretchReader(const Stretch& stretch, LogImage* image, Array<Entry>* entries)
        : stretch_(stretch),
          image_(*image),
          entries_(*entries),
          first_entry_(entries->size()),
          bytes_(image->bytes.data.get()),
          time_(stretch.after) {}

    void run() {
        size_t at = stretch_.begin;
        find_zero(at);
        while (at < stretch_.end)
            at = begins_record(at) ? take_record(at) : take_other(at);
    }

  private:
    std::string_view rest(size_t at) const { return {bytes_ + at, stretch_.end - at}; }

    // Looks at a place once: the line behind a record is looked at to find that record's end, and
    // is then most often the next record.
    bool begins_record(size_t at) {
        if (at != looked_at_) {
            looked_at_ = at;
            is_record_ = ParseHead(image_.format, rest(at), &head_, &fields_);
        }
        return is_record_;
    }

    // Whether what begins at the start of this line can't belong to the record before it.
    bool begins_something(size_t at) {
        return bytes_[at] == '\0' || begins_record(at) || begins_cut_record(at) ||
               ResemblesHead(image_.format, rest(at)) != KORX_DAMAGE_NOT_A_RECORD;
    }

    // The cut may leave no more of a record than the beginning of its stamp.
    bool begins_cut_record(size_t at) const {
        return stretch_.last == Edge::kCut && BeginsStamp(image_.format.kind->stamp, rest(at));
    }

    void find_zero(size_t from) {
        const void* const found = memchr(bytes_ + from, 0, stretch_.end - from);
        zero_ = found == nullptr ? stretch_.end
                                 : static_cast<size_t>(static_cast<const char*>(found) - bytes_);
    }

    size_t line_end(size_t from, size_t limit) const {
        return from + LineEndIn({bytes_ + from, limit - from});
    }

    size_t take_record(size_t at) {
        const LocalClock::Moment moment = image_.clock.resolve(head_.time, time_);
        const size_t extent = head_.extent;  // the looks at the lines behind write over the head
        if (zero_ < at)
            find_zero(at);
        const size_t limit = std::min(zero_, stretch_.end);
        const size_t first_line = line_end(at, limit);
        size_t end = extent != 0 ? std::min(at + extent, limit) : first_line;
        // No record is longer; looking on would only find what is damaged anyway.
        const size_t longest = at + image_.format.kind->longest_record;
        while (extent == 0 && end < limit && end <= longest && !begins_something(end))
            end = line_end(end, limit);

        const bool terminated = extent != 0 ? end == at + extent : bytes_[end - 1] == '\n';
        const bool too_long = end > longest;
        if (too_long) {
            if (reports())
                image_.damage.report(KORX_DAMAGE_TOO_LONG, at, end - at,
                                     "longer than any record can be");
            end = std::min(first_line, longest);
        } else if (!terminated) {
            if (stretch_.last == Edge::kAnywhere && end == stretch_.end)
                return end;
            if (reports())
                report_end(at, end);
        } else if (is_cut_between_lines(end) && reports()) {
            image_.damage.report(KORX_DAMAGE_CUT, at, end - at,
                                 "further lines of this record, or all of the next, were cut off");
        }
        time_ = moment.micros;
        const bool damaged = too_long || !terminated;
        add(at, end, moment.utc_offset, kHasHead | (damaged ? KORX_RECORD_DAMAGED : 0));
        return end;
    }

    bool is_cut(size_t end) const { return stretch_.last == Edge::kCut && end == stretch_.end; }

    // The file is only cut to its limit when the text goes beyond, so that something was lost even
    // where a line ends there.
    bool is_cut_between_lines(size_t end) const {
        return is_cut(end) && image_.file_size == image_.format.kind->limit;
    }

    void report_end(size_t at, size_t end) {
        if (is_cut(end))
            image_.damage.report(KORX_DAMAGE_CUT, at, end - at, "a record whose end was cut off");
        else
            image_.damage.report(KORX_DAMAGE_UNTERMINATED, at, end - at,
                                 "a record without line end");
    }

    // Text or zeros up to the next place where a record begins.
    size_t take_other(size_t at) {
        if (bytes_[at] == '\0')
            return take_zeros(at, ZeroRunEnd(image_.bytes.view(), at, stretch_.end));
        const korx_damage_rule rule = ResemblesHead(image_.format, rest(at));
        size_t end = at + 1;
        while (end < stretch_.end && !ends_other(end))
            ++end;
        const bool torn = end == stretch_.end && bytes_[end - 1] != '\n';
        const bool dropped = torn && stretch_.last == Edge::kAnywhere;
        if (!is_at_first_edge() && !dropped && reports())
            take_text(at, end, torn && is_cut(end) ? KORX_DAMAGE_CUT : rule);
        return end;
    }

    // A few zeros belong to the text around them, so that entries stay in proportion to the file.
    bool ends_other(size_t at) {
        if (bytes_[at] == '[')
            return (bytes_[at - 1] == '\n' || bytes_[at - 1] == '\0') && begins_record(at);
        if (bytes_[at] != '\0' || bytes_[at - 1] == '\0')
            return false;
        const size_t run_end =
            ZeroRunEnd(image_.bytes.view(), at, std::min(stretch_.end, at + kZeroRun));
        return run_end == stretch_.end || run_end == at + kZeroRun;
    }

    // Whether there may still be the rest of a record that begins before the stretch.
    bool is_at_first_edge() const {
        return stretch_.first == Edge::kAnywhere && entries_.size() == first_entry_;
    }

    size_t take_zeros(size_t at, size_t end) {
        const bool unwritten = stretch_.zeros == ZeroTail::kUnwritten && end == stretch_.end;
        if (!unwritten && !is_at_first_edge() && reports())
            image_.damage.report(KORX_DAMAGE_ZEROS, at, end - at, "zero bytes inside the log");
        return end;
    }

    void take_text(size_t at, size_t end, korx_damage_rule rule) {
        image_.damage.report(rule, at, end - at,
                             rule == KORX_DAMAGE_CUT      ? "a record whose end was cut off"
                             : rule == KORX_DAMAGE_STAMP  ? "a record with a damaged time stamp"
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

    bool reports() const { return stretch_.search == Search::kRecordsAndDamage; }

    const Stretch stretch_;
    LogImage& image_;
    Array<Entry>& entries_;
    const size_t first_entry_;
    const char* const bytes_;
    size_t zero_ = 0;  // the next zero byte at or behind the record looked at
    int64_t time_;     // of the record before

    // The last place looked at, and what is there.
    size_t looked_at_ = SIZE_MAX;
    bool is_record_ = false;
    RecordHead head_ = {};
    korx_record fields_ = {};  // not kept: see Entry
};

}  // namespace

void ReadStretch(const Stretch& stretch, LogImage* image, Array<Entry>* entries) {
    StretchReader(stretch, image, entries).run();
}

size_t ZeroRunEnd(std::string_view bytes, size_t begin, size_t end) {
    uint64_t word = 0;
    while (end - begin >= sizeof word) {
        memcpy(&word, bytes.data() + begin, sizeof word);
        if (word != 0)
            break;
        begin += sizeof word;
    }
    const char* const found = std::find_if_not(bytes.data() + begin, bytes.data() + end, IsZero);
    return static_cast<size_t>(found - bytes.data());
}

bool AllZero(std::string_view bytes) {
    return ZeroRunEnd(bytes, 0, bytes.size()) == bytes.size();
}

size_t LineEndIn(std::string_view text) {
    const void* const found = memchr(text.data(), '\n', text.size());
    return found == nullptr
               ? text.size()
               : static_cast<size_t>(static_cast<const char*>(found) - text.data()) + 1;
}

}  // namespace korx
