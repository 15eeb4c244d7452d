// Where laps end, and what of the old one still counts.
//
// Two things make this hard. A record may have lines that look like anything, so the rest of a
// record that was written over passes for more lines of the record before it. And clocks are set:
// a stamp that falls is the beginning of the old lap only if something else says so too.
#include "reader/laps.h"

#include <string.h>

#include <algorithm>

namespace korx {
namespace {

constexpr int64_t kOrderSlack = 2 * kMicrosPerSecond;  // stamped before the lock is waited for
constexpr int64_t kLongestPause = int64_t{366} * 86400 * kMicrosPerSecond;

size_t EndOfFirstLine(const LogImage& image, const Entry& entry) {
    return static_cast<size_t>(entry.offset) + LineEndIn(image.text(entry));
}

void RemoveEntry(size_t index, Array<Entry>* entries) {
    std::copy(entries->begin() + index + 1, entries->end(), entries->begin() + index);
    entries->truncate(entries->size() - 1);
}

const Entry& Last(const Array<Entry>& entries) {
    return entries[entries.size() - 1];
}

// Whether the first entry of the old lap, the others of which end before old_end, is the record of
// a writer that ended after it had written the record and before it had entered it in the head:
//
//     | 11 | 12 | 13 | 14 |         head: the newest lap ends here
//                         | 15 |    written, but not entered
//                              | 8 | 9 | 10 |
//
// It was never accepted: its writer's caller was told nothing, and the next record takes its place.
// An accepted record of the old lap can begin at this very place as well, if the laps' records
// happen to end alike. That one is older than what follows it, and than the newest lap.
bool IsUncommitted(const Laps& laps, size_t first, size_t old_end, const LogImage& image) {
    const Entry& candidate = image.entries[first];
    if (candidate.offset != laps.newest_end || !candidate.is(kHasHead))
        return false;
    // Without a record behind it to compare with, it is of the old lap if that ends with it, or if
    // there is anything else of that lap.
    const bool is_followed = old_end > first + 1;
    const bool ends_old_lap =
        candidate.end() == laps.until || !AllZero(image.text(candidate.end(), laps.until));
    // Where the file is cut to the lap's end, whatever was written last ends with it as well.
    const bool fits_old_lap = is_followed ? candidate.time_us <= image.entries[first + 1].time_us
                                          : laps.old_end != OldEnd::kCut && ends_old_lap;
    if (fits_old_lap)
        return false;
    const bool has_newest_lap = old_end < image.entries.size();
    return !has_newest_lap || Last(image.entries).time_us <= candidate.time_us;
}

// first_damage: of the old lap.
void DropUncommitted(const Laps& laps, size_t first, size_t old_end, size_t first_damage,
                     LogImage* image) {
    if (first == old_end || !IsUncommitted(laps, first, old_end, *image))
        return;
    const Entry candidate = image->entries[first];
    if (old_end == first + 1)  // nothing else is wrong there
        (void) image->damage.withdraw(first_damage, candidate.offset);
    image->damage.report(KORX_DAMAGE_UNCOMMITTED, candidate.offset, candidate.length,
                         "a record whose writer ended before it was entered in the head");
    RemoveEntry(first, &image->entries);
}

// Drops what laps before the old one have left behind its end:
//
//     | ... old lap | 41 | 42 | rest of 7 | 8 | rest
//                        window ^                   ^ until
//
// A lap ends where the next record would not have fitted, so this is less than the longest record.
// Record 42 was written over the beginning of 7, whose rest passes for more lines of 42; what
// follows is older than 42. The first record stays in any case: where nothing but such a tail is
// left there is nothing before it to tell it by. first and first_damage: of the old lap.
void DropStaleTail(size_t first, size_t first_damage, size_t until, LogImage* image) {
    Array<Entry>& entries = image->entries;
    if (first == entries.size())
        return;
    const size_t window = until - std::min<size_t>(until, kRecordRoom);
    size_t end = first + 1;
    while (end < entries.size() && !(entries[end].offset >= window && entries[end].is(kHasHead) &&
                                     entries[end].time_us < entries[end - 1].time_us))
        ++end;
    // Text without a head in there is a rest that was cut twice.
    while (end > first + 1 && !entries[end - 1].is(kHasHead) && entries[end - 1].offset >= window)
        --end;
    entries.truncate(end);

    // What was wrong with the tail is not damage of the log. It may have been one with the last
    // record: too long together, or a line end missing in the rest.
    const bool had_damage = image->damage.withdraw(first_damage, window) != 0;
    Entry& kept = entries[end - 1];
    if (kept.is(kHasHead) && (kept.end() > window || had_damage)) {
        kept.length = static_cast<uint32_t>(EndOfFirstLine(*image, kept) - kept.offset);
        kept.clear(KORX_RECORD_DAMAGED);
    }
}

// A place where the newest lap may end: the stamps fall from the record before it to the one
// behind.
struct Seam {
    size_t at = 0;          // where that lap would end
    int64_t fall = 0;       // in microseconds; 0: there is no seam
    bool has_rest = false;  // something stands between the two records
};

// The rest of a record that was cut into is the surer sign, clocks that were set leave none. It is
// missing where the laps' records happen to end alike. Of equals the deepest fall is it: a lap
// takes longer than a clock is usually wrong.
bool IsBetter(const Seam& seam, const Seam& best) {
    if (seam.has_rest != best.has_rest)
        return seam.has_rest;
    return seam.fall > best.fall;
}

// Whether a file with these first and last records looks like one that has wrapped: its last record
// was followed by its first, after no longer than a device is switched off.
bool Closes(const Entry& first, const Entry& last) {
    return last.time_us <= first.time_us && first.time_us - last.time_us < kLongestPause;
}

// Where the newest of laps without a mark ends; the end of the text when there is only one. A
// process log that has wrapped, with the minutes of its stamps, and the seam at ^:
//
//     12:07 ... | 12:08 ... | 12:09 ... | rest | 12:02 ... | 12:03 ... | 12:06 ... | zeros
//                                       ^
//
// The stamps rise through each lap, and fall where the old one begins; the last record precedes the
// first (12:06, 12:07); the file has the size to which the writer cuts it when a lap ends, or the
// zeros with which that fills it up. One of these signs beside the fall must be there, or the clock
// was merely set back.
size_t FindNewestEnd(const UnmarkedLaps& laps, LogImage* image) {
    Array<Entry> found;
    ReadStretch({.begin = laps.begin, .end = laps.end, .search = Search::kRecords}, image, &found);
    if (found.out_of_memory() || found.size() < 2)
        return laps.end;
    const bool size_fits =
        image->file_size == laps.usual_size || image->bytes.view()[laps.end - 1] == '\0';
    const bool looks_wrapped = size_fits || Closes(found[0], Last(found));
    Seam best;
    for (size_t i = 0; i + 1 < found.size(); ++i) {
        const Entry& behind = found[i + 1];
        const size_t at = EndOfFirstLine(*image, found[i]);
        const Seam seam = {at, found[i].time_us - behind.time_us, at != behind.offset};
        // So close to the end a second fall is rather what the lap before the old one has left.
        const bool is_stale = best.fall != 0 && behind.offset + kRecordRoom > laps.end;
        const bool is_likely = seam.has_rest || looks_wrapped;
        if (seam.fall > 0 && is_likely && !is_stale && IsBetter(seam, best))
            best = seam;
    }
    if (best.fall != 0)
        return best.at;
    // The newest lap has reached the end of the file, or what is left before it is no record.
    return size_fits ? EndOfFirstLine(*image, Last(found)) : laps.end;
}

constexpr Edge EdgeOf(OldEnd end) {
    switch (end) {
        case OldEnd::kKnown:
            break;
        case OldEnd::kCut:
            return Edge::kCut;
        case OldEnd::kUnknown:
            return Edge::kAnywhere;
    }
    return Edge::kBetweenRecords;
}

}  // namespace

void ReadLaps(const Laps& laps, LogImage* image) {
    Array<Entry>& entries = image->entries;
    const size_t first = entries.size();
    const size_t first_damage = image->damage.listed();
    if (laps.newest_end < laps.until)
        ReadStretch(
            {.begin = laps.newest_end,
             .end = laps.until,
             .flags = KORX_RECORD_OLD_LAP,
             .section = laps.section,
             .first = Edge::kAnywhere,
             .last = EdgeOf(laps.old_end),
             .zeros = laps.old_end == OldEnd::kUnknown ? ZeroTail::kUnwritten : ZeroTail::kDamage},
            image, &entries);
    if (laps.old_end == OldEnd::kUnknown)
        DropStaleTail(first, first_damage, laps.until, image);
    const size_t old_end = entries.size();
    ReadStretch({.begin = laps.begin,
                 .end = laps.newest_end,
                 .section = laps.section,
                 .zeros = laps.newest_zeros},
                image, &entries);
    DropUncommitted(laps, first, old_end, first_damage, image);
    MarkClockSetBack(first, image);
}

bool ReadUnmarkedLaps(const UnmarkedLaps& laps, LogImage* image) {
    if (laps.begin >= laps.end)
        return false;
    const size_t newest_end = FindNewestEnd(laps, image);
    ReadLaps({.begin = laps.begin,
              .newest_end = newest_end,
              .until = laps.end,
              .old_end = OldEnd::kUnknown,
              .newest_zeros = ZeroTail::kUnwritten,
              .section = laps.section},
             image);
    return newest_end < laps.end;
}

void MarkClockSetBack(size_t first, LogImage* image) {
    const Entry* before = nullptr;
    for (size_t i = first; i < image->entries.size(); ++i) {
        Entry& entry = image->entries[i];
        if (!entry.is(kHasHead))
            continue;
        const bool set_back = before != nullptr && entry.time_us < before->time_us - kOrderSlack;
        entry.set(set_back ? KORX_RECORD_CLOCK_BACK : 0);
        before = &entry;
    }
}

}  // namespace korx
