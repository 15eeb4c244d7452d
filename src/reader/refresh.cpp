// A reader is brought up to its log by what was appended or, where that is not all that happened,
// by a new copy. In that it finds its place again by the records that it has passed: one that
// stands where it stood, with the bytes that it had, is the same. So nothing depends on stamps, nor
// on how often the log went round meanwhile.
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

// Whether an entry is the record that an earlier copy had there. The text log cuts the end off its
// newest record when a lap begins.
bool IsSameRecord(const LogImage& before, const Entry& old, const LogImage& image,
                  const Entry& entry) {
    return old.offset == entry.offset && BeginsWith(before.text(old), image.text(entry));
}

using EntryList = Array<Entry*>;

// False: out of memory.
bool SortByOffset(Array<Entry>* entries, EntryList* sorted) {
    (void) sorted->reserve(entries->size());
    for (Entry& entry : *entries)
        sorted->push(&entry);
    std::sort(sorted->begin(), sorted->end(),
              [](const Entry* a, const Entry* b) { return a->offset < b->offset; });
    return !sorted->out_of_memory();
}

// Marks in an image what of it has been passed in the one before, and what was handed out.
// False: out of memory.
bool MarkStanding(LogImage* before, LogImage* image) {
    EntryList olds;
    EntryList entries;
    if (!SortByOffset(&before->entries, &olds) || !SortByOffset(&image->entries, &entries))
        return false;
    size_t at = 0;
    for (const Entry* const old : olds) {
        while (at < entries.size() && entries[at]->offset < old->offset)
            ++at;
        if (at < entries.size() && IsSameRecord(*before, *old, *image, *entries[at]))
            entries[at]->set((old->flags & (kSeen | kHandedOut)) | kStands);
    }
    return true;
}

// What lies before a passed record of its section has been passed, too. The place is lost where
// none of them stands any more: there may have been others behind them.
Place FindPlace(const LogImage& before, LogImage* image) {
    bool was_passed[kSectionCount] = {};
    for (const Entry& old : before.entries)
        was_passed[old.section] |= old.is(kSeen);
    bool is_passed[kSectionCount] = {};
    bool stands_any = false;
    for (size_t i = image->entries.size(); i-- > 0;) {
        Entry& entry = image->entries[i];
        is_passed[entry.section] |= entry.is(kSeen);
        entry.set(is_passed[entry.section] ? kSeen : 0);
        stands_any |= entry.is(kStands);
        entry.clear(kStands);
    }
    const bool lost_all = !before.entries.empty() && !stands_any;
    return lost_all || !std::equal(was_passed, was_passed + kSectionCount, is_passed)
               ? Place::kLost
               : Place::kKept;
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
    const Place place = FindPlace(*other, &reader->image);
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
