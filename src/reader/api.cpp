// The exported functions: a reader is a copy of a log, what was made of it, and a place in it.
#include "korx/reader.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "base/bounded.h"
#include "base/text.h"
#include "base/unique.h"
#include "reader/cursor.h"
#include "reader/image.h"
#include "reader/record.h"
#include "reader/snapshot.h"
#include "reader/unread.h"

struct korx_reader {
    korx::LogImage image;
    korx_reader_info info = {};

    korx::MallocPtr<char> path;  // null: from memory
    korx::MallocPtr<char> cursor_path;
    korx::MallocPtr<char> header_path;
    korx::MallocPtr<char> name;  // of the process
    korx::Source source;
    bool can_acknowledge = false;
    dev_t device = 0;
    ino_t inode = 0;

    korx::Cursor cursor;  // as it was found, all zero if it was not
    size_t next = 0;
};

namespace korx {
namespace {

constexpr char kStartHeaderName[] = ".korxloghdr";
constexpr char kLogSuffix[] = ".log";
constexpr int kPathRoom = 360;
constexpr int kAckFlags = O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

constexpr korx_reader_options kDefaultOptions = {};

// Destroys without operator delete, which would bring the C++ run-time library in.
struct ReaderDeleter {
    void operator()(korx_reader* reader) const {
        reader->~korx_reader();
        free(reader);
    }
};
using UniqueReader = std::unique_ptr<korx_reader, ReaderDeleter>;

UniqueReader NewReader() {
    void* const memory = malloc(sizeof(korx_reader));
    return UniqueReader(memory == nullptr ? nullptr : ::new (memory) korx_reader());
}

const char* BaseName(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

korx_reader_code RefuseMemory(korx_reader_error* error, const char* path) {
    return Refuse(error, KORX_READER_NO_MEMORY, ENOMEM, 0, "%.*s: out of memory", kPathRoom, path);
}

// The names that belong to the log. False: out of memory.
bool SetNames(const char* path, const korx_reader_options& options, korx_reader* reader) {
    const char* const file = BaseName(path);
    const size_t length = strlen(file);
    const size_t suffix = strlen(kLogSuffix);
    const bool has_suffix = length > suffix && strcmp(file + length - suffix, kLogSuffix) == 0;
    reader->name = options.name != nullptr ? Copy(options.name)
                                           : Copy({file, has_suffix ? length - suffix : length});
    reader->path = Copy(path);
    if (options.header_path != nullptr)
        reader->header_path = Copy(options.header_path);
    else
        reader->header_path = Joined({path, static_cast<size_t>(file - path)}, kStartHeaderName);
    if (options.cursor_path != nullptr)
        reader->cursor_path = Copy(options.cursor_path);
    else
        reader->cursor_path = Joined(path, path[0] == '\0' ? "" : ".cursor");
    return reader->name && reader->path && reader->header_path && reader->cursor_path;
}

bool HasCursor(const korx_reader& reader) {
    return reader.cursor_path != nullptr && reader.cursor_path.get()[0] != '\0';
}

bool SetHeader(const korx_reader_options& options, LogImage* image) {
    if (options.header == nullptr)
        return true;
    return CopyBytes(options.header, options.header_length, &image->header);
}

void FillInfo(korx_reader* reader) {
    const LogImage& image = reader->image;
    korx_reader_info& info = reader->info;
    info.kind = image.format.kind->kind;
    info.laps = image.laps;
    info.size = image.file_size;
    info.limit = image.is_ring() && image.laps != 0 ? image.file_size : image.format.kind->limit;
    info.fill = image.fill;
    info.records = image.entries.size();
    info.damage = image.damage.count();
    info.has_head = image.is_ring() ? 1 : 0;
    info.log_len = image.head.uiLogLen;
    info.dump_len = image.head.uiDumpLen;
    info.total_len = image.head.uiTotalLen;
    std::copy(std::begin(image.sections), std::end(image.sections), info.sections);
}

// Makes the copied bytes a reader.
korx_reader_code Finish(UniqueReader reader, korx_reader** out, korx_reader_error* error) {
    LogImage& image = reader->image;
    const char* const path = reader->path ? reader->path.get() : "memory";
    const Cursor* cursor = nullptr;
    if (HasCursor(*reader)) {
        const CursorState state = LoadCursor(reader->cursor_path.get(), &reader->cursor);
        if (state == CursorState::kFound)
            cursor = &reader->cursor;
        if (state == CursorState::kDamaged)
            image.damage.report_beside(KORX_DAMAGE_CURSOR, 0, 0,
                                       "the cursor is unreadable and was ignored");
    }
    if (!image.analyse())
        return RefuseMemory(error, path);
    MarkUnread(&image, cursor, &reader->info);
    FillInfo(reader.get());
    *out = reader.release();
    return KORX_READER_OK;
}

korx_reader_code OpenFile(int fd, const char* path, korx_log_kind kind,
                          const korx_reader_options& options, korx_reader** out,
                          korx_reader_error* error) {
    UniqueReader reader = NewReader();
    if (!reader || !SetNames(path, options, reader.get()) || !SetHeader(options, &reader->image))
        return RefuseMemory(error, path);
    Source& source = reader->source;
    source.path = reader->path.get();
    source.header_path = options.header != nullptr ? nullptr : reader->header_path.get();
    source.borrowed = fd;
    source.lock = (options.flags & KORX_READER_NO_LOCK) == 0;
    if (options.lock_timeout_ms != 0)
        source.timeout_ms = options.lock_timeout_ms;
    if (options.max_bytes != 0)
        source.max_bytes = options.max_bytes;

    LogImage& image = reader->image;
    if (kind == KORX_LOG_AUTO)
        kind = korx_log_kind_of_name(path);
    if (kind == KORX_LOG_AUTO) {
        const korx_reader_code code = PeekKind(source, &kind, error);
        if (code != KORX_READER_OK)
            return code;
    }
    image.format = FormatOf(kind);
    struct stat st = {};
    const korx_reader_code code = TakeSnapshot(source, &image, &st, error);
    if (code != KORX_READER_OK)
        return code;
    reader->device = st.st_dev;
    reader->inode = st.st_ino;
    reader->can_acknowledge = source.lock;
    return Finish(std::move(reader), out, error);
}

korx_reader_code BadArgument(korx_reader_error* error, const char* text) {
    return Refuse(error, KORX_READER_ARGUMENT, EINVAL, 0, "%s", text);
}

// Rounded down, so that the fraction of a time before 1970 is positive too.
struct timespec TimeOf(int64_t micros) {
    const int64_t fraction = (micros % kMicrosPerSecond + kMicrosPerSecond) % kMicrosPerSecond;
    return {.tv_sec = static_cast<time_t>((micros - fraction) / kMicrosPerSecond),
            .tv_nsec = static_cast<long>(fraction * 1000)};
}

// The record's text: all of it but its last line end.
std::string_view TextOf(const LogImage& image, const Entry& entry) {
    std::string_view text = image.text(entry);
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    const bool has_cr = image.format.shape->line_end == LineEnd::kCrLf;
    if (has_cr && !text.empty() && text.back() == '\r')
        text.remove_suffix(1);
    return text;
}

// What the head doesn't tell by itself.
void CompleteFields(const korx_reader& reader, const Entry& entry, korx_record* record) {
    record->time = TimeOf(entry.time_us);
    record->utc_offset = entry.utc_offset;
    const bool file_names_it = reader.image.format.shape->source_name == SourceName::kInFileName;
    if (file_names_it && reader.name && reader.name.get()[0] != '\0') {
        record->fields |= KORX_FIELD_NAME;
        record->name = reader.name.get();
        record->name_length = strlen(reader.name.get());
    }
    if ((record->fields & KORX_FIELD_MESSAGE) != 0)
        record->message_length =
            static_cast<size_t>(record->text + record->length - record->message);
}

void FillRecord(const korx_reader& reader, const Entry& entry, korx_record* record) {
    const LogImage& image = reader.image;
    *record = {};
    RecordHead head = {};
    // Where the log was written over, less may be left than the head takes.
    const bool has_fields =
        entry.is(kHasHead) && ParseHead(image.format, image.text(entry), &head, record);
    if (!has_fields)
        *record = {};
    const std::string_view text = TextOf(image, entry);
    record->kind = image.format.kind->kind;
    record->flags = entry.flags & (KORX_RECORD_UNREAD | KORX_RECORD_OLD_LAP | KORX_RECORD_DAMAGED);
    record->offset = entry.offset;
    record->text = text.data();
    record->length = text.size();
    if (has_fields)
        CompleteFields(reader, entry, record);
}

// The next entry that has none of the flags without and all of with; null at the end.
Entry* Advance(korx_reader* reader, uint8_t with) {
    Array<Entry>& entries = reader->image.entries;
    while (reader->next < entries.size()) {
        Entry& entry = entries[reader->next++];
        if ((entry.flags & with) == with && (entry.flags & kSeen) == 0)
            return &entry;
    }
    return nullptr;
}

void ForgetSeen(korx_reader* reader) {
    for (Entry& entry : reader->image.entries)
        entry.flags = static_cast<uint8_t>(entry.flags & ~kSeen);
}

// What may be acknowledged: unread entries handed out, up to the first that was not. Returns how
// many entries from the oldest on are then read, and the newest of them in *last.
struct HandedOut {
    size_t end = 0;
    const Entry* last = nullptr;
    korx_mark mark = {};
};

HandedOut CollectHandedOut(const korx_reader& reader) {
    HandedOut handed;
    handed.mark =
        reader.info.has_cursor != 0 && !reader.image.is_ring() ? reader.cursor.mark : korx_mark{};
    for (size_t i = 0; i < reader.image.entries.size(); ++i) {
        const Entry& entry = reader.image.entries[i];
        if ((entry.flags & KORX_RECORD_UNREAD) == 0)
            continue;
        if ((entry.flags & kHandedOut) == 0)
            break;
        handed.end = i + 1;
        handed.last = &entry;
    }
    for (size_t i = 0; handed.last != nullptr && i < handed.end; ++i) {
        // One hash for each section is enough.
        const Entry& entry = reader.image.entries[i];
        if (reader.image.format.shape->sections > 1 || &entry == handed.last)
            SetMark(reader.image, entry, &handed.mark);
    }
    return handed;
}

void MarkAcknowledged(korx_reader* reader, const HandedOut& handed, const Cursor& cursor,
                      bool cursor_kept) {
    for (size_t i = 0; i < handed.end; ++i) {
        Entry& entry = reader->image.entries[i];
        if ((entry.flags & KORX_RECORD_UNREAD) == 0)
            continue;
        entry.flags = static_cast<uint8_t>(entry.flags & ~(KORX_RECORD_UNREAD | kHandedOut));
        --reader->info.unread_records;
        reader->info.unread_bytes -= entry.length;
    }
    reader->image.head.uiDumpLen = cursor.dump_len;
    reader->info.dump_len = cursor.dump_len;
    if (cursor_kept) {
        reader->cursor = cursor;
        reader->info.has_cursor = 1;
    }
}

korx_reader_code Changed(korx_reader_error* error, const char* path, uint64_t offset,
                         const char* why) {
    return Refuse(error, KORX_READER_CHANGED, 0, offset, "%.*s: nothing acknowledged: %s",
                  kPathRoom, path, why);
}

// Whether the record still stands in the file where it was copied from.
bool StillStands(int fd, const LogImage& image, const Entry& entry) {
    char piece[kMaxSpaceRecord];
    for (uint32_t done = 0; done < entry.length;) {
        const size_t part = std::min<size_t>(sizeof piece, entry.length - done);
        if (!ReadExactly(fd, piece, part, entry.offset + done) ||
            memcmp(piece, image.bytes.data.get() + entry.offset + done, part) != 0)
            return false;
        done += static_cast<uint32_t>(part);
    }
    return true;
}

// Moves the ring's uiDumpLen behind the last record, under the file's lock.
korx_reader_code MoveDump(const korx_reader& reader, int fd, const Entry& last, Cursor* cursor,
                          korx_reader_error* error) {
    const char* const path = reader.path.get();
    const LogImage& image = reader.image;
    if (!image.head_sound)
        return Refuse(error, KORX_READER_DAMAGED, 0, 0,
                      "%.*s: nothing acknowledged: the head is damaged", kPathRoom, path);
    LOG_HEAD_S head = {};
    if (!ReadExactly(fd, &head, sizeof head, 0))
        return Changed(error, path, 0, "the head can't be read");
    if (head.uiDumpLen != image.head.uiDumpLen)
        return Changed(error, path, offsetof(LOG_HEAD_S, uiDumpLen),
                       "somebody else has acknowledged");
    const uint64_t position = last.end() - kRingHeadSize;
    if (position > std::max(head.uiLogLen, head.uiTotalLen) || !StillStands(fd, image, last))
        return Changed(error, path, last.offset, "the log has written over what was handed out");

    // Where the last lap has just ended its end is uiTotalLen, and so it stays: 0 would tell the
    // writers that a lap is unread.
    head.uiDumpLen = static_cast<uint32_t>(position);
    constexpr off_t kAt = offsetof(LOG_HEAD_S, uiDumpLen);
    if (pwrite(fd, &head.uiDumpLen, sizeof head.uiDumpLen, kAt) != ssize_t{sizeof head.uiDumpLen} ||
        fdatasync(fd) < 0)
        return Refuse(error, KORX_READER_WRITE, errno, kAt, "%.*s: writing the head failed: %s",
                      kPathRoom, path, strerror(errno));
    cursor->tail_length = std::min<uint32_t>(last.length, kTailSize);
    memcpy(cursor->tail, image.bytes.data.get() + last.end() - cursor->tail_length,
           cursor->tail_length);
    cursor->log_len = head.uiLogLen;
    cursor->dump_len = head.uiDumpLen;
    cursor->total_len = head.uiTotalLen;
    return KORX_READER_OK;
}

// The cursor alone says what was taken, so it must be the one that this reader began with.
korx_reader_code CheckCursor(const korx_reader& reader, korx_reader_error* error) {
    if (!HasCursor(reader))
        return Refuse(error, KORX_READER_WRITE, 0, 0,
                      "%.*s: nothing acknowledged: there is no cursor to keep it in", kPathRoom,
                      reader.path.get());
    Cursor now;
    (void) LoadCursor(reader.cursor_path.get(), &now);
    if (!SameCursor(now, reader.cursor))
        return Changed(error, reader.path.get(), 0, "somebody else has acknowledged");
    return KORX_READER_OK;
}

korx_reader_code Acknowledge(korx_reader* reader, const HandedOut& handed,
                             korx_reader_error* error) {
    const char* const path = reader->path.get();
    const bool is_ring = reader->image.is_ring();
    UniqueFd opened;
    int fd = -1;
    struct stat st;
    // Where there is no head to change, the log is opened for its lock.
    korx_reader_code code =
        OpenLog(path, reader->source.borrowed, kAckFlags, &opened, &fd, &st, error);
    if (code != KORX_READER_OK)
        return code;
    if (st.st_dev != reader->device || st.st_ino != reader->inode)
        return Changed(error, path, 0, "the file was replaced");
    LogLock lock(reader->image.format.kind->kind, fd);
    code = lock.acquire(true, reader->source.timeout_ms, path, error);
    if (code != KORX_READER_OK)
        return code;

    Cursor cursor;
    cursor.kind = reader->image.format.kind->kind;
    cursor.mark = handed.mark;
    code =
        is_ring ? MoveDump(*reader, fd, *handed.last, &cursor, error) : CheckCursor(*reader, error);
    if (code != KORX_READER_OK)
        return code;
    const SystemResult stored =
        HasCursor(*reader) ? StoreCursor(reader->cursor_path.get(), cursor) : SystemResult{};
    const bool kept = HasCursor(*reader) && stored.ok();
    if (!kept && !is_ring)
        return Refuse(error, KORX_READER_WRITE, stored.error, 0,
                      "%.*s: nothing acknowledged: writing the cursor failed: %s", kPathRoom,
                      reader->cursor_path.get(), strerror(stored.error));
    MarkAcknowledged(reader, handed, cursor, kept);
    if (!kept && HasCursor(*reader))
        return Refuse(error, KORX_READER_CURSOR, stored.error, 0,
                      "%.*s: acknowledged, but writing the cursor failed: %s", kPathRoom,
                      reader->cursor_path.get(), strerror(stored.error));
    return KORX_READER_OK;
}

}  // namespace
}  // namespace korx

using namespace korx;

korx_reader_code korx_reader_open(const char* path, korx_log_kind kind,
                                  const korx_reader_options* options, korx_reader** reader,
                                  korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no place for the reader");
    *reader = nullptr;
    if (path == nullptr || !IsKind(kind))
        return BadArgument(error, "no path, or no such kind of log");
    return OpenFile(-1, path, kind, options == nullptr ? kDefaultOptions : *options, reader, error);
}

korx_reader_code korx_reader_open_fd(int fd, const char* path, korx_log_kind kind,
                                     const korx_reader_options* options, korx_reader** reader,
                                     korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no place for the reader");
    *reader = nullptr;
    if (fd < 0 || !IsKind(kind))
        return BadArgument(error, "no descriptor, or no such kind of log");
    return OpenFile(fd, path == nullptr ? "" : path, kind,
                    options == nullptr ? kDefaultOptions : *options, reader, error);
}

korx_reader_code korx_reader_open_memory(const void* data, size_t length, korx_log_kind kind,
                                         const korx_reader_options* options, korx_reader** out,
                                         korx_reader_error* error) {
    if (out == nullptr)
        return BadArgument(error, "no place for the reader");
    *out = nullptr;
    if ((data == nullptr && length != 0) || !IsKind(kind))
        return BadArgument(error, "no data, or no such kind of log");
    const korx_reader_options& chosen = options == nullptr ? kDefaultOptions : *options;
    UniqueReader reader = NewReader();
    if (!reader || !SetHeader(chosen, &reader->image))
        return RefuseMemory(error, "memory");
    LogImage& image = reader->image;
    if (chosen.name != nullptr)
        reader->name = Copy(chosen.name);
    if (!CopyBytes(data, length, &image.bytes) || (chosen.name != nullptr && !reader->name))
        return RefuseMemory(error, "memory");
    image.file_size = length;
    if (kind == KORX_LOG_AUTO)
        kind = GuessKind(image.bytes.view());
    if (kind == KORX_LOG_AUTO)
        return Refuse(error, KORX_READER_UNKNOWN, 0, 0, "memory: not a log of any known kind");
    image.format = FormatOf(kind);
    return Finish(std::move(reader), out, error);
}

void korx_reader_close(korx_reader* reader) {
    UniqueReader owner(reader);
}

int korx_reader_next(korx_reader* reader, korx_record* record) {
    const Entry* const entry = Advance(reader, 0);
    if (entry == nullptr) {
        *record = {};
        return 0;
    }
    FillRecord(*reader, *entry, record);
    return 1;
}

int korx_reader_next_unread(korx_reader* reader, korx_record* record) {
    Entry* const entry = Advance(reader, KORX_RECORD_UNREAD);
    if (entry == nullptr) {
        *record = {};
        return 0;
    }
    entry->flags |= kHandedOut;
    FillRecord(*reader, *entry, record);
    return 1;
}

void korx_reader_rewind(korx_reader* reader) {
    ForgetSeen(reader);
    reader->next = 0;
}

void korx_reader_seek_newest(korx_reader* reader, size_t count) {
    ForgetSeen(reader);
    const size_t records = reader->image.entries.size();
    reader->next = records - std::min(records, count);
}

korx_reader_code korx_reader_ack(korx_reader* reader, korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no reader");
    if (!reader->can_acknowledge)
        return BadArgument(error, "a copy from memory or without lock can't be acknowledged");
    const HandedOut handed = CollectHandedOut(*reader);
    return handed.last == nullptr ? KORX_READER_OK : Acknowledge(reader, handed, error);
}

void korx_reader_get_mark(const korx_reader* reader, korx_mark* mark) {
    *mark = {};
    const Array<Entry>& entries = reader->image.entries;
    for (size_t i = entries.size(); i-- > 0;) {
        const Entry& entry = entries[i];
        const bool passed = i < reader->next || (entry.flags & kSeen) != 0;
        if (passed && mark->last[entry.section].length == 0)
            SetMark(reader->image, entry, mark);
        if (passed && reader->image.format.shape->sections == 1)
            return;
    }
}

int korx_reader_seek_mark(korx_reader* reader, const korx_mark* mark) {
    korx_reader_rewind(reader);
    Array<Entry>& entries = reader->image.entries;
    int found_all = 1;
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (mark->last[s].length == 0)
            continue;
        const size_t last = FindMarked(reader->image, *mark, s);
        if (last == entries.size())
            found_all = 0;
        for (size_t i = 0; last < entries.size() && i <= last; ++i)
            entries[i].flags |= entries[i].section == s ? kSeen : 0;
    }
    return found_all;
}

void korx_reader_get_info(const korx_reader* reader, korx_reader_info* info) {
    *info = reader->info;
}

int korx_reader_get_damage(const korx_reader* reader, size_t index, korx_damage* damage) {
    if (index >= reader->image.damage.listed()) {
        *damage = {};
        return 0;
    }
    *damage = reader->image.damage[index];
    return 1;
}

const char* korx_log_kind_name(korx_log_kind kind) {
    return IsKind(kind) ? KindOf(kind).name : nullptr;
}

const char* korx_damage_rule_name(korx_damage_rule rule) {
    return DamageName(rule);
}

korx_log_kind korx_log_kind_of_name(const char* path) {
    if (path == nullptr)
        return KORX_LOG_AUTO;
    const char* const name = BaseName(path);
    for (const LogKind& kind : kKinds) {
        for (const char* const file : kind.files) {
            if (IsLogFile(kind, file, name))
                return kind.kind;
        }
    }
    return KORX_LOG_AUTO;
}
