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
#include "reader/snapshot.h"
#include "reader/unread.h"

static_assert(sizeof(STLOG_HDR_S) == 76);
static_assert(offsetof(STLOG_HDR_S, astSec) == 12);

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

constexpr const char* kRuleNames[] = {nullptr,         "head-short", "head-length",  "head-order",
                                      "dump-position", "header",     "separator",    "not-a-record",
                                      "stamp",         "fields",     "unterminated", "too-long",
                                      "zeros",         "time-order", "uncommitted",  "cursor"};

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

MallocPtr<char> Copy(const char* text, size_t length) {
    auto* const copy = static_cast<char*>(malloc(length + 1));
    if (copy != nullptr) {
        std::copy(text, text + length, copy);
        copy[length] = '\0';
    }
    return MallocPtr<char>(copy);
}

// head, cut to head_length, and tail behind it.
MallocPtr<char> Joined(const char* head, size_t head_length, const char* tail) {
    const size_t tail_length = strlen(tail);
    auto* const text = static_cast<char*>(malloc(head_length + tail_length + 1));
    if (text != nullptr) {
        std::copy(head, head + head_length, text);
        std::copy(tail, tail + tail_length + 1, text + head_length);
    }
    return MallocPtr<char>(text);
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
    reader->name = options.name != nullptr ? Copy(options.name, strlen(options.name))
                                           : Copy(file, has_suffix ? length - suffix : length);
    reader->path = Copy(path, strlen(path));
    if (options.header_path != nullptr)
        reader->header_path = Copy(options.header_path, strlen(options.header_path));
    else
        reader->header_path = Joined(path, static_cast<size_t>(file - path), kStartHeaderName);
    if (options.cursor_path != nullptr)
        reader->cursor_path = Copy(options.cursor_path, strlen(options.cursor_path));
    else
        reader->cursor_path =
            Joined(path, path[0] == '\0' ? 0 : strlen(path), path[0] == '\0' ? "" : ".cursor");
    return reader->name && reader->path && reader->header_path && reader->cursor_path;
}

bool HasCursor(const korx_reader& reader) {
    return reader.cursor_path != nullptr && reader.cursor_path.get()[0] != '\0';
}

bool SetHeader(const korx_reader_options& options, LogImage* image) {
    if (options.header == nullptr)
        return true;
    image->header = Copy(static_cast<const char*>(options.header), options.header_length);
    image->header_size = options.header_length;
    return image->header != nullptr;
}

void FillInfo(korx_reader* reader) {
    const LogImage& image = reader->image;
    korx_reader_info& info = reader->info;
    info.kind = image.kind;
    info.laps = image.laps;
    info.size = image.file_size;
    info.limit = IsRing(image.kind) && image.laps != 0 ? image.file_size : KindOf(image.kind).limit;
    info.fill = image.fill;
    info.records = image.entries.size();
    info.damage = image.damage_count;
    info.has_head = IsRing(image.kind) ? 1 : 0;
    info.log_len = image.head.uiLogLen;
    info.dump_len = image.head.uiDumpLen;
    info.total_len = image.head.uiTotalLen;
    std::copy(std::begin(image.info.sections), std::end(image.info.sections), info.sections);
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
            image.report(KORX_DAMAGE_CURSOR, 0, 0, "the cursor is unreadable and was ignored",
                         true);
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
    image.kind = kind == KORX_LOG_AUTO ? korx_log_kind_of_name(path) : kind;
    if (image.kind == KORX_LOG_AUTO) {
        const korx_reader_code code = PeekKind(source, &image.kind, error);
        if (code != KORX_READER_OK)
            return code;
    }
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

void FillFields(const korx_reader& reader, const Entry& entry, korx_record* record) {
    RecordHead head = {};
    if ((entry.flags & kHasHead) == 0 ||
        !ParseHead(reader.image.kind, reader.image.bytes.get() + entry.offset, entry.length, &head))
        return;
    record->fields = head.fields;
    // Rounded down, so that the fraction of a time before 1970 is positive too.
    constexpr int64_t kMicros = 1000000;
    const int64_t fraction = (entry.time_us % kMicros + kMicros) % kMicros;
    record->time.tv_sec = static_cast<time_t>((entry.time_us - fraction) / kMicros);
    record->time.tv_nsec = static_cast<long>(fraction * 1000);
    record->utc_offset = entry.utc_offset;
    record->level = head.level;
    record->level_name = head.level_name;
    record->index = head.index;
    record->app_cid = head.app_cid;
    record->location = head.location;
    record->m_value = head.m_value;
    record->value = head.value;
    record->pid = head.pid;
    record->module = head.module;
    record->name = head.name;
    record->name_length = head.name_length;
    if (reader.image.kind == KORX_LOG_PROCESS && reader.name && reader.name.get()[0] != '\0') {
        record->fields |= KORX_FIELD_NAME;
        record->name = reader.name.get();
        record->name_length = strlen(reader.name.get());
    }
    if ((head.fields & KORX_FIELD_MESSAGE) != 0) {
        record->message = head.message;
        record->message_length = static_cast<size_t>(record->text + record->length - head.message);
    }
}

void FillRecord(const korx_reader& reader, const Entry& entry, korx_record* record) {
    *record = {};
    record->kind = reader.image.kind;
    record->flags = entry.flags & (KORX_RECORD_UNREAD | KORX_RECORD_OLD_LAP | KORX_RECORD_DAMAGED);
    record->offset = entry.offset;
    record->text = reader.image.bytes.get() + entry.offset;
    record->length = entry.length;
    if (record->length > 0 && record->text[record->length - 1] == '\n')
        --record->length;
    if (reader.image.kind == KORX_LOG_SPACE && record->length > 0 &&
        record->text[record->length - 1] == '\r')
        --record->length;
    FillFields(reader, entry, record);
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
    handed.mark = reader.info.has_cursor != 0 && !IsRing(reader.image.kind) ? reader.cursor.mark
                                                                            : korx_mark{};
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
        if (reader.image.kind == KORX_LOG_START || &entry == handed.last)
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
            memcmp(piece, image.bytes.get() + entry.offset + done, part) != 0)
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
    memcpy(cursor->tail, image.bytes.get() + last.end() - cursor->tail_length, cursor->tail_length);
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
    const bool is_ring = IsRing(reader->image.kind);
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
    LogLock lock(reader->image.kind, fd);
    code = lock.acquire(true, reader->source.timeout_ms, path, error);
    if (code != KORX_READER_OK)
        return code;

    Cursor cursor;
    cursor.kind = reader->image.kind;
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
    image.bytes = Copy(static_cast<const char*>(data), length);
    if (chosen.name != nullptr)
        reader->name = Copy(chosen.name, strlen(chosen.name));
    if (!image.bytes || (chosen.name != nullptr && !reader->name))
        return RefuseMemory(error, "memory");
    image.size = length;
    image.file_size = length;
    image.kind = kind == KORX_LOG_AUTO ? GuessKind(image.bytes.get(), length) : kind;
    if (image.kind == KORX_LOG_AUTO)
        return Refuse(error, KORX_READER_UNKNOWN, 0, 0, "memory: not a log of any known kind");
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
        if (passed && reader->image.kind != KORX_LOG_START)
            return;
    }
}

int korx_reader_seek_mark(korx_reader* reader, const korx_mark* mark) {
    korx_reader_rewind(reader);
    Array<Entry>& entries = reader->image.entries;
    int found_all = 1;
    for (size_t s = 0; s < kSections; ++s) {
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
    if (index >= reader->image.damage.size()) {
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
    const bool known = rule > 0 && static_cast<size_t>(rule) < std::size(kRuleNames);
    return known ? kRuleNames[rule] : nullptr;
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
