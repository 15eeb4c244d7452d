// A follower looks at its log after every few records, so what a look costs must not depend on the
// size of the log. While a lap lasts its writers change three things: the head's first count, what
// stands between its old value and its new one, and with that the record of the old lap into which
// they have cut. So this is what is read:
//
//     head | ... | last known | new | new | rest | next old | ... old lap ...
//                ^                                         ^
//
// If the last known record stands as it stood, so that no lap can have ended meanwhile, if the next
// old one is where it was, and if all between them is sound, the new ones join the copy and the old
// ones that they cover leave it. In every other case nothing is touched, and the log is copied as a
// whole: after a lap, after a replacement, wherever damage has come or gone, and for the logs whose
// laps no head tells. Each entry found here must be the one that a reader finds who opens the log
// now; so what is read is taken apart by the same rules, and what those rules tell by more than
// that is left to them.
#include "reader/append.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "reader/laps.h"
#include "reader/ring.h"

namespace korx {
namespace {

constexpr size_t kMostAppended = 64 << 10;  // more costs nearly as much as a whole copy
constexpr size_t kLargestHead = std::max(kRingHeadSize, kTextHeadSize);

bool IsSound(const Entry& entry) {
    return entry.is(kHasHead) && !entry.is(KORX_RECORD_DAMAGED);
}

bool IsSameEntry(const Entry& a, const Entry& b) {
    return a.offset == b.offset && a.length == b.length && a.time_us == b.time_us &&
           a.utc_offset == b.utc_offset;
}

class Continuation {
  public:
    Continuation(const LogFile& log, korx_reader* reader)
        : log_(log),
          reader_(*reader),
          image_(reader->image),
          head_size_(image_.format.kind->head) {}

    Appended take() {
        if (!has_same_lap() || !find_old() || !is_damage_elsewhere() || !read() ||
            !is_as_copied(last().offset, last().end()))
            return Appended::kUnknown;
        if (now_.newest_end == before_.newest_end)
            return is_as_copied() ? Appended::kNothing : Appended::kUnknown;
        if (!parse() || !make_room())
            return Appended::kUnknown;
        take_over();
        return Appended::kRecords;
    }

  private:
    const Entry& last() const { return image_.entries[image_.entries.size() - 1]; }
    bool has_old_lap() const { return now_.newest_end < now_.until; }
    const Entry& next_old() const { return image_.entries[first_left_]; }
    uint64_t size() const { return end_ - last().offset; }
    std::string_view window(uint64_t begin, uint64_t end) const {
        return Slice(window_.bytes.view(), begin - last().offset, end - last().offset);
    }
    bool is_as_copied(uint64_t begin, uint64_t end) const {
        return end <= image_.bytes.size && window(begin, end) == image_.text(begin, end);
    }
    // The head, too: its count may move beyond the end of the file, where it moves nothing else.
    bool is_as_copied() const {
        return is_as_copied(last().offset, end_) && log_.size() == image_.file_size &&
               memcmp(head_, image_.bytes.data.get(), head_size_) == 0;
    }

    // Whether the newest lap is still the same, and was known whole. What has been passed and is no
    // entry is known by its bytes, which must not be written over here.
    bool has_same_lap() {
        const ShapeOperations& shape = *image_.format.shape;
        const std::string_view copied = image_.bytes.view();
        if (shape.find_laps == nullptr || !image_.passed.empty() || image_.entries.empty() ||
            !IsSound(last()) || last().is(KORX_RECORD_OLD_LAP) ||
            !ReadExactly(log_.fd(), head_, head_size_, 0) ||
            !shape.find_laps(image_.format, copied, image_.file_size, &before_) ||
            !shape.find_laps(image_.format, {head_, head_size_}, log_.size(), &now_))
            return false;
        const bool had_old_lap = before_.newest_end < before_.until;
        const bool fits =
            has_old_lap() ? before_.until == now_.until : log_.size() >= image_.file_size;
        return fits && had_old_lap == has_old_lap() && before_.newest_end <= now_.newest_end &&
               now_.newest_end - last().offset <= kMostAppended;
    }

    // The first record of the old lap that is left. It must not be the last one, where other rules
    // hold, and a record must be left of those that the reader has passed, to keep its place by.
    bool find_old() {
        end_ = image_.is_ring() ? NeededOfRing(HeadOf(head_), log_.size()) : log_.size();
        if (!has_old_lap())
            return true;
        const Entry* const found =
            std::find_if(image_.entries.begin(), image_.entries.end(), [&](const Entry& entry) {
                return !entry.is(KORX_RECORD_OLD_LAP) || entry.offset >= now_.newest_end;
            });
        if (!found->is(KORX_RECORD_OLD_LAP) || !IsSound(*found))
            return false;
        const Entry& behind = found[1];  // there is one: the newest lap has its last known record
        first_left_ = static_cast<size_t>(found - image_.entries.begin());
        end_ = found->end();
        if (!behind.is(KORX_RECORD_OLD_LAP) || end_ - now_.newest_end > kMostAppended)
            return false;
        // One that begins where the newest lap ends may be no old one: its writer may have ended
        // before he entered it in the head. Then it is newer than the one behind it.
        const bool may_be_new = found->offset == now_.newest_end && found->time_us > behind.time_us;
        return !may_be_new && (first_left_ == 0 || reader_.next > first_left_);
    }

    // Whether all known damage lies where nothing has changed.
    bool is_damage_elsewhere() const {
        const DamageList& damage = image_.damage;
        for (size_t i = 0; i < damage.listed(); ++i) {
            const bool is_old = has_old_lap() && damage[i].offset >= end_;
            const bool is_before = damage[i].offset >= head_size_ &&
                                   damage[i].offset + damage[i].length <= last().offset;
            if (damage[i].in_header == 0 && !is_old && !is_before)
                return false;
        }
        return damage.listed() == damage.count();
    }

    bool read() {
        Bytes& bytes = window_.bytes;
        bytes.size = static_cast<size_t>(size());
        bytes.data.reset(static_cast<char*>(malloc(bytes.size)));
        return bytes.data && ReadExactly(log_.fd(), bytes.data.get(), bytes.size, last().offset);
    }

    // What is new, and what is left of the record into which that has cut.
    bool parse() {
        window_.format = image_.format;
        const Array<Entry>& known = image_.entries;
        const size_t newest_size = static_cast<size_t>(now_.newest_end - last().offset);
        const bool has_before =
            known.size() > 1 && !known[known.size() - 2].is(KORX_RECORD_OLD_LAP);
        ReadStretch({.begin = 0,
                     .end = newest_size,
                     .after = has_before ? known[known.size() - 2].time_us : INT64_MIN},
                    &window_, &window_.entries);
        Array<Entry> old;
        if (has_old_lap())
            ReadStretch({.begin = newest_size, .end = window_.bytes.size, .first = Edge::kAnywhere},
                        &window_, &old);
        else if (!AllZero(window(now_.newest_end, end_)))
            return false;
        place(&window_.entries);
        place(&old);
        const bool is_old_known =
            has_old_lap() ? old.size() == 1 && IsSameEntry(old[0], next_old()) : old.empty();
        return window_.damage.count() == 0 && !window_.entries.out_of_memory() && is_old_known &&
               !window_.entries.empty() && IsSameEntry(window_.entries[0], last());
    }

    // From offsets in the window to those in the file.
    void place(Array<Entry>* entries) const {
        for (Entry& entry : *entries)
            entry.offset += last().offset;
    }

    // False: out of memory. Once there is room nothing can fail any more.
    bool make_room() {
        Array<Entry>& entries = image_.entries;
        const size_t count = entries.size() + window_.entries.size();
        if (count > entries.capacity() && !entries.reserve(count * 2))
            return false;
        Bytes& bytes = image_.bytes;
        if (end_ <= bytes.size)
            return true;
        void* const grown = realloc(bytes.data.get(), end_);
        if (grown == nullptr)
            return false;
        (void) bytes.data.release();
        bytes.data.reset(static_cast<char*>(grown));
        bytes.size = end_;
        return true;
    }

    void take_over() {
        Array<Entry>& entries = image_.entries;
        const std::string_view bytes = window_.bytes.view();
        std::copy(bytes.begin(), bytes.end(), image_.bytes.data.get() + last().offset);
        std::copy(head_, head_ + head_size_, image_.bytes.data.get());
        image_.file_size = log_.size();
        for (size_t i = 1; i < window_.entries.size(); ++i)
            entries.push(window_.entries[i]);
        std::copy(entries.begin() + first_left_, entries.end(), entries.begin());
        entries.truncate(entries.size() - first_left_);
        reader_.next -= first_left_;
        entries[0].clear(KORX_RECORD_CLOCK_BACK);  // there is none before it any more
        MarkClockSetBack(0, &image_);
        image_.format.shape->conclude(&image_);
    }

    static LOG_HEAD_S HeadOf(const char* bytes) {
        LOG_HEAD_S head;
        memcpy(&head, bytes, sizeof head);
        return head;
    }

    const LogFile& log_;
    korx_reader& reader_;
    LogImage& image_;
    const size_t head_size_;

    char head_[kLargestHead] = {};
    Laps before_ = {};
    Laps now_ = {};
    size_t first_left_ = 0;  // of the entries
    uint64_t end_ = 0;       // of what is read
    LogImage window_;        // from the last known record on
};

}  // namespace

Appended TakeAppended(const LogFile& log, korx_reader* reader) {
    return Continuation(log, reader).take();
}

}  // namespace korx
