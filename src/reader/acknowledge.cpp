// A log has at most two places that say what was taken: the ring's head, by which its writers go,
// and the cursor, which remembers the record itself. Either may have been moved by somebody else
// since the copy was taken, and the log may have been written over; all of that is looked at again
// under the log's lock, and if anything has changed nothing is acknowledged.
//
// A ring's cursor goes first. Were it behind the head, an end between the two would leave a head
// that may hide a whole lap, and a cursor that knows nothing of it. Like this it holds both
// positions, and is right before the head moves, after it, and when the head is put back.
#include "reader/acknowledge.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/system_result.h"
#include "reader/mark.h"

namespace korx {
namespace {

// The unread records that were handed out, up to the first one that was not: a record that was
// passed over stays unread, and all after it, because one position tells them apart.
struct HandedOut {
    size_t end = 0;       // behind the newest of them; 0: there is none
    korx_mark mark = {};  // with all of them taken
};

HandedOut CollectHandedOut(const korx_reader& reader) {
    const LogImage& image = reader.image;
    HandedOut handed;
    for (size_t i = 0; i < image.entries.size(); ++i) {
        const Entry& entry = image.entries[i];
        if (!entry.is(KORX_RECORD_UNREAD))
            continue;
        if (!entry.is(kHandedOut))
            break;
        handed.end = i + 1;
    }
    if (handed.end == 0)
        return handed;
    // Where the cursor alone remembers, it keeps what it says of the other sections.
    if (reader.info.has_cursor != 0 && !image.is_ring())
        handed.mark = reader.cursor.mark;
    // Sections are merged by their stamps, so what was acknowledged of one may lie behind what was
    // handed out of another, and stays acknowledged.
    const auto is_taken = [&](size_t index) {
        return index < handed.end || !image.entries[index].is(KORX_RECORD_UNREAD);
    };
    MarkNewest(image, is_taken, &handed.mark);
    return handed;
}

void MarkAcknowledged(const HandedOut& handed, korx_reader* reader) {
    for (size_t i = 0; i < handed.end; ++i) {
        Entry& entry = reader->image.entries[i];
        if (!entry.is(KORX_RECORD_UNREAD))
            continue;
        entry.clear(KORX_RECORD_UNREAD | kHandedOut);
        --reader->info.unread_records;
        reader->info.unread_bytes -= entry.length;
    }
}

// Whether the record still stands in the file where it was copied from.
bool StillStands(int fd, const LogImage& image, const Entry& entry) {
    char piece[kMaxSpaceRecord];
    for (uint32_t done = 0; done < entry.length;) {
        const size_t part = std::min<size_t>(sizeof piece, entry.length - done);
        const uint64_t at = entry.offset + done;
        if (!ReadExactly(fd, piece, part, at) ||
            image.text(at, at + part) != std::string_view(piece, part))
            return false;
        done += static_cast<uint32_t>(part);
    }
    return true;
}

// Whether the ring still is what was handed out. head: as it stands now.
korx_reader_code CheckRing(const korx_reader& reader, const LogFile& file, const Entry& last,
                           const Refusal& error, LOG_HEAD_S* head) {
    const LogImage& image = reader.image;
    if (!ReadExactly(file.fd(), head, sizeof *head, 0))
        return error.refuse(KORX_READER_CHANGED, 0, "nothing acknowledged: the head can't be read");
    const HeadFault fault = FaultOf(*head, BoundsOf(*image.format.kind, file.size()));
    const bool head_sound = fault == HeadFault::kNone || fault == HeadFault::kDumpLen;
    if (!image.head_sound || !head_sound)
        return error.refuse(KORX_READER_DAMAGED, 0, "nothing acknowledged: the head is damaged");
    if (head->uiDumpLen != image.head.uiDumpLen)
        return error.at(offsetof(LOG_HEAD_S, uiDumpLen))
            .refuse(KORX_READER_CHANGED, 0, "nothing acknowledged: somebody else has acknowledged");
    const uint64_t position = last.end() - kRingHeadSize;
    if (position > std::max(head->uiLogLen, head->uiTotalLen) ||
        !StillStands(file.fd(), image, last))
        return error.at(last.offset)
            .refuse(KORX_READER_CHANGED, 0,
                    "nothing acknowledged: the log has written over what was handed out");
    return KORX_READER_OK;
}

// Where the last lap has just ended its end is uiTotalLen, and so it stays: 0 would tell the
// writers that a lap is unread.
Taken TakenUpTo(const LogImage& image, const Entry& entry) {
    korx_mark mark = {};
    SetMark(image, entry, &mark);
    Taken taken = {.dump_len = static_cast<uint32_t>(entry.end() - kRingHeadSize),
                   .last = mark.last[0],
                   .tail = {}};
    taken.tail.length = std::min<uint32_t>(entry.length, kTailSize);
    memcpy(taken.tail.bytes, image.bytes.data.get() + entry.end() - taken.tail.length,
           taken.tail.length);
    return taken;
}

// The position that the head still has. What the cursor knows of it stays; where it knows nothing
// the record that ends there is taken at its word.
Taken TakenBefore(const korx_reader& reader, uint32_t dump_len) {
    if (reader.info.has_cursor != 0)
        return *TakenAt(reader.cursor, dump_len);
    for (const Entry& entry : reader.image.entries) {
        if (entry.end() == uint64_t{kRingHeadSize} + dump_len)
            return TakenUpTo(reader.image, entry);
    }
    Taken unknown;
    unknown.dump_len = dump_len;
    return unknown;
}

// Whether uiDumpLen is this from now on, durably.
SystemResult WriteDump(int fd, uint32_t dump_len) {
    constexpr off_t kAt = offsetof(LOG_HEAD_S, uiDumpLen);
    constexpr size_t kSize = sizeof dump_len;
    errno = 0;
    const bool written = pwrite(fd, &dump_len, kSize, kAt) == ssize_t{kSize} && fdatasync(fd) == 0;
    return written ? SystemResult{} : SystemResult::Failed();
}

// A sync that failed may have written the head all the same, now or later. So the old one is put
// back, and only once that is durable it is sure that nothing was acknowledged.
korx_reader_code MoveDump(int fd, uint32_t from, uint32_t to, const Refusal& error) {
    const SystemResult moved = WriteDump(fd, to);
    if (moved.ok())
        return KORX_READER_OK;
    const Refusal there = error.at(offsetof(LOG_HEAD_S, uiDumpLen));
    if (WriteDump(fd, from).ok())
        return there.refuse(KORX_READER_WRITE, moved.error, "writing the head failed: %s",
                            strerror(moved.error));
    return there.refuse(KORX_READER_UNSURE, moved.error,
                        "whether the head was written is not known: %s", strerror(moved.error));
}

korx_reader_code RefuseCursor(const korx_reader& reader, const StoreResult& stored,
                              const Refusal& error) {
    const Refusal there = error.about(reader.names.cursor.get());
    if (stored.stored == Stored::kNot)
        return there.refuse(KORX_READER_WRITE, stored.error,
                            "nothing acknowledged: writing the cursor failed: %s",
                            strerror(stored.error));
    return there.refuse(KORX_READER_UNSURE, stored.error,
                        "acknowledged, but whether the cursor lasts is not known: %s",
                        strerror(stored.error));
}

void KeepCursor(const Cursor& cursor, korx_reader* reader) {
    reader->cursor = cursor;
    reader->info.has_cursor = 1;
    reader->doubts &= ~uint32_t{KORX_DOUBT_CURSOR | KORX_DOUBT_LAP | KORX_DOUBT_CURSOR_FORBIDDEN};
}

// Once the head is moved the records are taken, whether or not the cursor can be kept. Only where a
// whole lap has ended just where the reader stands the head is the same before and after, and the
// cursor alone tells.
korx_reader_code RememberInRing(const HandedOut& handed, const LogFile& file, const Refusal& error,
                                korx_reader* reader) {
    const LogImage& image = reader->image;
    const Entry& last = image.entries[handed.end - 1];
    LOG_HEAD_S head = {};
    korx_reader_code code = CheckRing(*reader, file, last, error, &head);
    if (code != KORX_READER_OK)
        return code;
    const Cursor cursor = {.kind = image.format.kind->kind,
                           .form = 2,
                           .log_len = head.uiLogLen,
                           .total_len = head.uiTotalLen,
                           .mark = handed.mark,
                           .after = TakenUpTo(image, last),
                           .before = TakenBefore(*reader, head.uiDumpLen)};
    const char* const path = reader->names.cursor.get();
    const StoreResult stored =
        reader->has_cursor() ? StoreCursor(path, file.fd(), cursor) : StoreResult{};
    const bool moves = head.uiDumpLen != cursor.after.dump_len;
    if (!moves && stored.stored != Stored::kKept)
        return RefuseCursor(*reader, stored, error);
    if (moves)
        code = MoveDump(file.fd(), head.uiDumpLen, cursor.after.dump_len, error);
    if (code != KORX_READER_OK)
        return code;

    MarkAcknowledged(handed, reader);
    reader->image.head.uiDumpLen = cursor.after.dump_len;
    reader->info.dump_len = cursor.after.dump_len;
    reader->info.has_cursor = 0;
    if (stored.stored != Stored::kKept)
        return error.about(path).refuse(KORX_READER_CURSOR, stored.error,
                                        "acknowledged, but writing the cursor failed: %s",
                                        strerror(stored.error));
    if (reader->has_cursor())
        KeepCursor(cursor, reader);
    return KORX_READER_OK;
}

// The cursor alone says what was taken, so it must be the one that this reader began with.
korx_reader_code RememberInCursor(const HandedOut& handed, const LogFile& file,
                                  const Refusal& error, korx_reader* reader) {
    if (!reader->has_cursor())
        return error.refuse(KORX_READER_WRITE, 0,
                            "nothing acknowledged: there is no cursor to keep it in");
    Cursor now;
    (void) LoadCursor(reader->names.cursor.get(), &now);
    if (!SameCursor(now, reader->cursor))
        return error.refuse(KORX_READER_CHANGED, 0,
                            "nothing acknowledged: somebody else has acknowledged");
    Cursor cursor;
    cursor.kind = reader->image.format.kind->kind;
    cursor.mark = handed.mark;
    const StoreResult stored = StoreCursor(reader->names.cursor.get(), file.fd(), cursor);
    if (stored.stored != Stored::kKept)
        return RefuseCursor(*reader, stored, error);
    MarkAcknowledged(handed, reader);
    KeepCursor(cursor, reader);
    return KORX_READER_OK;
}

}  // namespace

korx_reader_code Acknowledge(const Refusal& error, korx_reader* reader) {
    const HandedOut handed = CollectHandedOut(*reader);
    if (handed.end == 0)
        return KORX_READER_OK;
    const Source& source = reader->source;
    // Where there is no head to change, the log is opened for its lock.
    LogFile file;
    korx_reader_code code = file.open(source.path, source.borrowed, Access::kChange, error);
    if (code != KORX_READER_OK)
        return code;
    if (file.id() != reader->file)
        return error.refuse(KORX_READER_CHANGED, 0, "nothing acknowledged: the file was replaced");
    LogLock lock(reader->image.format.kind->lock, file);
    code = lock.acquire(Access::kChange, source.timeout_ms, error);
    if (code == KORX_READER_OK)
        code = file.examine(error);
    if (code != KORX_READER_OK)
        return code;
    return reader->image.is_ring() ? RememberInRing(handed, file, error, reader)
                                   : RememberInCursor(handed, file, error, reader);
}

}  // namespace korx
