// A log has at most two places that say what was taken: the ring's head, by which its writers go,
// and the cursor, which remembers the record itself. Either may have been moved by somebody else
// since the copy was taken, and the log may have been written over; all of that is looked at again
// under the log's lock, and if anything has changed nothing is acknowledged.
#include "reader/acknowledge.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

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
    MarkNewest(
        image, [&](size_t index) { return index < handed.end; }, &handed.mark);
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

// Moves the ring's uiDumpLen behind the last record. The cursor gets the head as it then is, and
// the end of that record.
korx_reader_code MoveDump(const korx_reader& reader, int fd, const Entry& last,
                          const Refusal& error, Cursor* cursor) {
    const LogImage& image = reader.image;
    constexpr off_t kAt = offsetof(LOG_HEAD_S, uiDumpLen);
    if (!image.head_sound)
        return error.refuse(KORX_READER_DAMAGED, 0, "nothing acknowledged: the head is damaged");
    LOG_HEAD_S head = {};
    if (!ReadExactly(fd, &head, sizeof head, 0))
        return error.refuse(KORX_READER_CHANGED, 0, "nothing acknowledged: the head can't be read");
    if (head.uiDumpLen != image.head.uiDumpLen)
        return error.at(kAt).refuse(KORX_READER_CHANGED, 0,
                                    "nothing acknowledged: somebody else has acknowledged");
    const uint64_t position = last.end() - kRingHeadSize;
    if (position > std::max(head.uiLogLen, head.uiTotalLen) || !StillStands(fd, image, last))
        return error.at(last.offset)
            .refuse(KORX_READER_CHANGED, 0,
                    "nothing acknowledged: the log has written over what was handed out");

    // Where the last lap has just ended its end is uiTotalLen, and so it stays: 0 would tell the
    // writers that a lap is unread.
    head.uiDumpLen = static_cast<uint32_t>(position);
    constexpr size_t kSize = sizeof head.uiDumpLen;
    if (pwrite(fd, &head.uiDumpLen, kSize, kAt) != ssize_t{kSize} || fdatasync(fd) < 0)
        return error.at(kAt).refuse(KORX_READER_WRITE, errno, "writing the head failed: %s",
                                    strerror(errno));
    cursor->log_len = head.uiLogLen;
    cursor->dump_len = head.uiDumpLen;
    cursor->total_len = head.uiTotalLen;
    cursor->tail_length = std::min<uint32_t>(last.length, kTailSize);
    memcpy(cursor->tail, image.bytes.data.get() + last.end() - cursor->tail_length,
           cursor->tail_length);
    return KORX_READER_OK;
}

// The cursor alone says what was taken, so it must be the one that this reader began with.
korx_reader_code CheckCursor(const korx_reader& reader, const Refusal& error) {
    if (!reader.has_cursor())
        return error.refuse(KORX_READER_WRITE, 0,
                            "nothing acknowledged: there is no cursor to keep it in");
    Cursor now;
    (void) LoadCursor(reader.names.cursor.get(), &now);
    if (!SameCursor(now, reader.cursor))
        return error.refuse(KORX_READER_CHANGED, 0,
                            "nothing acknowledged: somebody else has acknowledged");
    return KORX_READER_OK;
}

// Under the log's lock. For a ring the head counts: once it is moved the records are taken, whether
// or not the cursor can be kept.
korx_reader_code Remember(const HandedOut& handed, int fd, const Refusal& error,
                          korx_reader* reader) {
    const bool is_ring = reader->image.is_ring();
    const Entry& last = reader->image.entries[handed.end - 1];
    Cursor cursor;
    cursor.kind = reader->image.format.kind->kind;
    cursor.mark = handed.mark;
    const korx_reader_code code =
        is_ring ? MoveDump(*reader, fd, last, error, &cursor) : CheckCursor(*reader, error);
    if (code != KORX_READER_OK)
        return code;

    const char* const path = reader->names.cursor.get();
    const SystemResult stored = reader->has_cursor() ? StoreCursor(path, cursor) : SystemResult{};
    if (!stored.ok() && !is_ring)
        return error.about(path).refuse(KORX_READER_WRITE, stored.error,
                                        "nothing acknowledged: writing the cursor failed: %s",
                                        strerror(stored.error));
    MarkAcknowledged(handed, reader);
    reader->image.head.uiDumpLen = cursor.dump_len;
    reader->info.dump_len = cursor.dump_len;
    if (!stored.ok())
        return error.about(path).refuse(KORX_READER_CURSOR, stored.error,
                                        "acknowledged, but writing the cursor failed: %s",
                                        strerror(stored.error));
    if (reader->has_cursor()) {
        reader->cursor = cursor;
        reader->info.has_cursor = 1;
    }
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
    LogLock lock(reader->image.format.kind->lock, file.fd());
    code = lock.acquire(Access::kChange, source.timeout_ms, error);
    return code == KORX_READER_OK ? Remember(handed, file.fd(), error, reader) : code;
}

}  // namespace korx
