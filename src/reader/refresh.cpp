// A reader is brought up to its log by what was appended or, where that is not all that happened,
// by a new copy. In that it finds its place again by the records that it has passed: one that
// stands where it stood, with the bytes that it had, is the same, and every other one is new. So
// nothing depends on stamps, nor on how often the log went round meanwhile.
#include "reader/refresh.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "reader/append.h"
#include "reader/open.h"

namespace korx {
namespace {

enum class Place { kKept, kLost };

korx_reader_code RefuseMemory(const Refusal& error) {
    return error.refuse(KORX_READER_NO_MEMORY, ENOMEM, "out of memory");
}

// Whether somebody else has acknowledged since. For a ring the head says it as well.
bool IsCursorMoved(const korx_reader& reader, CursorState* state) {
    Cursor now;
    *state = reader.has_cursor() ? LoadCursor(reader.names.cursor.get(), &now) : CursorState::kNone;
    return !SameCursor(now, reader.cursor);
}

bool IsSameCopy(const LogImage& a, const LogImage& b) {
    return a.file_size == b.file_size && a.bytes.view() == b.bytes.view() &&
           a.header.view() == b.header.view();
}

bool SameText(const LogImage& a, const LogImage& b, const Entry& entry) {
    return entry.end() <= std::min(a.bytes.size, b.bytes.size) && a.text(entry) == b.text(entry);
}

using EntryList = Array<Entry*>;

// Those that are no entries now as well; of two at one place the longer one is the last. False: out
// of memory.
bool SortByOffset(LogImage* image, EntryList* sorted) {
    (void) sorted->reserve(image->entries.size() + image->passed.size());
    for (Array<Entry>* const entries : {&image->entries, &image->passed}) {
        for (Entry& entry : *entries)
            sorted->push(&entry);
    }
    std::sort(sorted->begin(), sorted->end(), [](const Entry* a, const Entry* b) {
        return a->offset != b->offset ? a->offset < b->offset : a->length < b->length;
    });
    return !sorted->out_of_memory();
}

// Marks in an image what of it has been passed in the one before, and what was handed out. An entry
// is the same when its bytes stood there before: the text log cuts the end off its newest record
// when a lap begins. Where in the order it stands says nothing, because clocks are set back. What
// is no entry now, because it seems to be the leftover of an older lap, may be one again later.
// False: out of memory.
bool MarkStanding(LogImage* before, LogImage* image) {
    EntryList olds;
    EntryList entries;
    if (!SortByOffset(before, &olds) || !SortByOffset(image, &entries))
        return false;
    size_t at = 0;
    const uint64_t size = image->bytes.size;
    for (Entry* const old : olds) {
        while (at < entries.size() && entries[at]->offset < old->offset)
            ++at;
        old->clear(kStands);  // memory may have run out the last time
        Entry left = *old;    // the file may have been cut
        left.length =
            static_cast<uint32_t>(std::min(left.end(), size) - std::min(left.offset, size));
        const bool is_entry = at < entries.size() && entries[at]->offset == old->offset &&
                              SameText(*before, *image, *entries[at]);
        if (is_entry) {
            entries[at]->clear(kSeen | kHandedOut);  // of a shorter one that was passed here
            entries[at]->set(old->flags & (kSeen | kHandedOut));
        } else if (left.length == 0 || !SameText(*before, *image, left)) {
            continue;
        } else if (old->is(kSeen)) {
            image->passed.push(left);
        }
        old->set(kStands);
    }
    return !image->passed.out_of_memory();
}

// The place is lost where nothing stands any more that was passed: there may have been others
// behind it. Of the old lap the very end can outlast the lap that came after it, so that says
// nothing where the newest lap had been reached.
Place FindPlace(const LogImage& before) {
    enum { kOld, kNewest, kLaps };
    bool was_passed[kSectionCount][kLaps] = {};
    bool is_passed[kSectionCount][kLaps] = {};
    bool stands_any = before.entries.empty();
    for (const Entry& old : before.entries) {
        const size_t lap = old.is(KORX_RECORD_OLD_LAP) ? kOld : kNewest;
        was_passed[old.section][lap] |= old.is(kSeen);
        is_passed[old.section][lap] |= old.is(kSeen) && old.is(kStands);
        stands_any |= old.is(kStands);
    }
    bool is_kept = stands_any;
    for (size_t s = 0; s < kSectionCount; ++s) {
        const size_t lap = was_passed[s][kNewest] ? kNewest : kOld;
        is_kept &= !was_passed[s][lap] || is_passed[s][lap];
    }
    return is_kept ? Place::kKept : Place::kLost;
}

// The reader's image becomes the new one. The old one gets the place.
korx_reader_code Replace(const Refusal& error, korx_reader* reader, LogImage* other,
                         korx_refreshed* how) {
    const korx_reader_info info = std::exchange(reader->info, {});
    const uint32_t doubts = reader->doubts;
    const Cursor cursor = std::exchange(reader->cursor, {});
    for (size_t i = 0; i < reader->next; ++i)
        reader->image.entries[i].set(kSeen);
    std::swap(reader->image, *other);
    korx_reader_code code = Finish(error, reader);
    if (code == KORX_READER_OK && !MarkStanding(other, &reader->image))
        code = RefuseMemory(error);
    if (code != KORX_READER_OK) {
        std::swap(reader->image, *other);
        reader->info = info;
        reader->doubts = doubts;
        reader->cursor = cursor;
        return code;
    }
    const Place place = FindPlace(*other);
    reader->next = 0;
    *how = place == Place::kKept ? KORX_REFRESHED_MORE : KORX_REFRESHED_GAP;
    return KORX_READER_OK;
}

}  // namespace

korx_reader_code Refresh(const Refusal& error, korx_reader* reader, korx_refreshed* how) {
    *how = KORX_REFRESHED_SAME;
    LogImage image;
    image.format = reader->image.format;
    const Bytes& header = reader->image.header;
    const bool is_header_given = reader->source.header_path == nullptr && header.data != nullptr;
    if (is_header_given && !CopyBytes(header.data.get(), header.size, &image.header))
        return RefuseMemory(error);
    CursorState cursor;
    const bool is_moved = IsCursorMoved(*reader, &cursor);
    Appended appended = Appended::kUnknown;
    korx_reader_code code = KORX_READER_OK;
    FileId file;
    {
        LockedLog log(reader->source, *image.format.kind);
        code = log.open(error);
        if (code != KORX_READER_OK)
            return code;
        file = log.file().id();
        if (!is_moved && file == reader->file)
            appended = TakeAppended(log.file(), reader);
        if (appended == Appended::kUnknown)
            code = log.copy(error, &image);
    }
    if (code != KORX_READER_OK)
        return code;
    const bool is_other =
        appended == Appended::kUnknown && (is_moved || !IsSameCopy(reader->image, image));
    if (is_other)
        code = Replace(error, reader, &image, how);
    else  // this reader may have acknowledged
        Judge(cursor == CursorState::kFound ? &reader->cursor : nullptr, reader);
    if (appended == Appended::kRecords)
        *how = KORX_REFRESHED_MORE;
    if (code == KORX_READER_OK)
        reader->file = file;
    return code;
}

}  // namespace korx
