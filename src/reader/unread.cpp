// The rings' heads say how far the reader has come, with one blind spot: when a lap ends exactly
// where the reader stands, all of it being unread looks like nothing being unread. The cursor
// closes it, because the record it remembers then no longer stands where it stood. In the rings
// whose writers do not wait for any reader, it tells in the same way that they have passed. Where
// there is no head, the cursor alone remembers.
#include "reader/unread.h"

#include <string.h>

#include <algorithm>

#include "reader/mark.h"

namespace korx {
namespace {

// Behind this offset the entries of the lap that the reader is in are unread.
struct Position {
    bool everything;
    bool in_old_lap;  // and the whole newest lap with it
    uint64_t offset;
};

bool IsUnread(const Entry& entry, const Position& position) {
    const bool is_old = entry.is(KORX_RECORD_OLD_LAP);
    if (position.everything || (position.in_old_lap && !is_old))
        return true;
    return is_old == position.in_old_lap && entry.end() > position.offset;
}

Position PositionByHead(const LogImage& image) {
    const LOG_HEAD_S& head = image.head;
    const bool in_old_lap = head.uiLogLen < head.uiDumpLen;
    const uint64_t offset = uint64_t{kRingHeadSize} + head.uiDumpLen;
    // No reader leaves uiDumpLen at 0 once there is an old lap, and the logs that protect unread
    // records don't begin one before it has moved. In them only a whole lap begun at 0 can look
    // like that; in the others it just says that nobody has ever read.
    const bool never_read =
        head.uiDumpLen == 0 && head.uiTotalLen != 0 &&
        (head.uiLogLen == 0 || image.format.kind->unread == Unread::kOverwritten);
    const bool everything = !image.head_sound || !image.dump_sound || never_read;
    return {.everything = everything, .in_old_lap = in_old_lap, .offset = offset};
}

// Whether the last record taken still stands before the reader's position. A writer below the
// position may have overwritten its beginning without having passed.
bool Stands(const LogImage& image, const Taken& taken) {
    const Last& last = taken.last;
    if (last.length == 0)
        return true;
    if (last.end > image.bytes.size || last.length > last.end - kRingHeadSize)
        return false;
    const char* const bytes = image.bytes.data.get();
    const uint64_t begin = last.end - last.length;
    const uint64_t written_end = uint64_t{kRingHeadSize} + image.head.uiLogLen;
    if (written_end <= begin || written_end >= last.end)
        return HashRecord(image.text(begin, last.end)) == last.hash;
    const Tail& tail = taken.tail;
    const uint64_t length = std::min<uint64_t>(last.end - written_end, tail.length);
    return memcmp(bytes + last.end - length, tail.bytes + tail.length - length, length) == 0;
}

// The record behind which the head has the reader. Null: somebody else may have acknowledged since,
// or the log may have begun anew, and the cursor says nothing about that position.
const Taken* FindTaken(const LogImage& image, const Cursor* cursor) {
    if (cursor == nullptr || cursor->kind != image.format.kind->kind || !image.head_sound)
        return nullptr;
    return TakenAt(*cursor, image.head.uiDumpLen);
}

// Whether the head looks the same when all was taken as when a whole lap was not. Writers that
// don't wait for the reader may pass it anywhere.
bool IsAmbiguous(const LogImage& image) {
    const LOG_HEAD_S& head = image.head;
    if (!image.head_sound || head.uiTotalLen == 0 || head.uiDumpLen == 0)
        return false;
    return image.format.kind->unread == Unread::kOverwritten || head.uiLogLen == head.uiDumpLen ||
           (head.uiLogLen == 0 && head.uiDumpLen == head.uiTotalLen);
}

// What the log has written over since the whole lap behind the reader's position was unread, if it
// has been that way once: from the position to the oldest record left. Of a lap that was written
// over whole only so much is sure as every lap has.
uint64_t OverwrittenBytes(const LogImage& image) {
    const LOG_HEAD_S& head = image.head;
    if (image.entries.empty())
        return 0;
    const uint64_t oldest = image.entries[0].offset - kRingHeadSize;
    if (head.uiLogLen >= head.uiDumpLen)
        return oldest > head.uiDumpLen ? oldest - head.uiDumpLen : 0;
    const RingBounds bounds = BoundsOf(*image.format.kind, image.file_size);
    const uint64_t room = bounds.room + 1;
    const uint64_t sure = uint64_t{head.uiDumpLen} + bounds.longest;
    return oldest + (room > sure ? room - sure : 0);
}

void Count(const LogImage& image, korx_reader_info* info) {
    for (const Entry& entry : image.entries) {
        if (!entry.is(KORX_RECORD_UNREAD))
            continue;
        ++info->unread_records;
        info->unread_bytes += entry.length;
    }
}

uint32_t MarkRing(LogImage* image, const Cursor* cursor, korx_reader_info* info) {
    Position position = PositionByHead(*image);
    const uint64_t by_head = static_cast<uint64_t>(
        std::count_if(image->entries.begin(), image->entries.end(),
                      [&](const Entry& entry) { return IsUnread(entry, position); }));
    const LOG_HEAD_S& head = image->head;
    const uint32_t lap_end = head.uiTotalLen != 0 ? head.uiTotalLen : head.uiLogLen;
    const Taken* const taken = FindTaken(*image, cursor);
    info->has_cursor = taken != nullptr ? 1 : 0;
    // Of the protected logs a position behind the lap is damage, here it is a lap that ended early.
    const bool passed = (image->dump_sound && head.uiDumpLen > lap_end) ||
                        (taken != nullptr && !Stands(*image, *taken));
    position.everything |= passed;

    for (Entry& entry : image->entries)
        entry.set(IsUnread(entry, position) ? KORX_RECORD_UNREAD : 0);
    Count(*image, info);
    const bool misfits = cursor != nullptr && taken == nullptr;
    const uint32_t doubts = (misfits ? KORX_DOUBT_CURSOR : 0) |
                            (taken == nullptr && IsAmbiguous(*image) ? KORX_DOUBT_LAP : 0);
    if (!passed)
        return doubts;
    info->gap = 1;
    info->gap_recovered = info->unread_records - std::min(info->unread_records, by_head);
    info->gap_bytes = OverwrittenBytes(*image);
    const uint32_t longest = image->format.kind->longest_record;
    info->gap_lost = (info->gap_bytes + longest - 1) / longest;
    return doubts;
}

void MarkByCursor(LogImage* image, const Cursor* cursor, korx_reader_info* info) {
    info->has_cursor = cursor != nullptr && cursor->kind == image->format.kind->kind ? 1 : 0;
    for (size_t s = 0; s < kSectionCount; ++s) {
        const bool taken_before = info->has_cursor != 0 && cursor->mark.last[s].length != 0;
        // Where the place is lost all of the section is unread: twice is better than never.
        const Marked marked = taken_before ? FindMarked(*image, cursor->mark, s) : Marked{true, 0};
        info->gap |= marked.is_known ? 0 : 1;
        for (size_t i = marked.behind; i < image->entries.size(); ++i) {
            Entry& entry = image->entries[i];
            entry.set(entry.section == s ? KORX_RECORD_UNREAD : 0);
        }
    }
    Count(*image, info);
}

}  // namespace

// How often a log has gone past its reader nobody writes down, so what it took along is never known
// in full.
uint32_t MarkUnread(LogImage* image, const Cursor* cursor, korx_reader_info* info) {
    uint32_t doubts = 0;
    if (image->is_ring())
        doubts = MarkRing(image, cursor, info);
    else
        MarkByCursor(image, cursor, info);
    return doubts | (info->gap != 0 ? KORX_DOUBT_LOST : 0);
}

}  // namespace korx
