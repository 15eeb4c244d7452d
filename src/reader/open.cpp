#include "reader/open.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "base/directory.h"
#include "reader/unread.h"

namespace korx {
namespace {

constexpr char kCursorSuffix[] = ".cursor";

// Null: out of memory.
UniqueReader NewReader() {
    void* const memory = malloc(sizeof(korx_reader));
    return UniqueReader(memory == nullptr ? nullptr : ::new (memory) korx_reader());
}

korx_reader_code RefuseMemory(const Refusal& error) {
    return error.refuse(KORX_READER_NO_MEMORY, ENOMEM, "out of memory");
}

// The process whose log has this name. Any other name is one, too.
std::string_view ProcessOf(std::string_view file) {
    constexpr std::string_view kSuffix = kProcessSuffix;
    const bool has_suffix =
        file.size() > kSuffix.size() && Slice(file, file.size() - kSuffix.size()) == kSuffix;
    return has_suffix ? Slice(file, 0, file.size() - kSuffix.size()) : file;
}

// False: out of memory.
bool SetNames(const char* path, const korx_reader_options& options, LogNames* names) {
    const std::string_view whole = path;
    const std::string_view file = NameOf(path);
    const std::string_view directory = Slice(whole, 0, whole.size() - file.size());
    names->path = Copy(whole);
    names->process = Copy(options.name != nullptr ? options.name : ProcessOf(file));
    names->header = options.header_path != nullptr ? Copy(options.header_path)
                                                   : Joined(directory, kStartHeaderFile);
    if (options.cursor_path != nullptr)
        names->cursor = Copy(options.cursor_path);
    else  // a descriptor without a name has no place for a cursor
        names->cursor = Joined(whole, whole.empty() ? "" : kCursorSuffix);
    return names->path && names->process && names->header && names->cursor;
}

// False: out of memory.
bool CopyHeader(const korx_reader_options& options, LogImage* image) {
    return options.header == nullptr ||
           CopyBytes(options.header, options.header_length, &image->header);
}

Source SourceOf(int fd, const LogNames& names, const korx_reader_options& options) {
    Source source;
    source.path = names.path.get();
    source.header_path = options.header != nullptr ? nullptr : names.header.get();
    source.borrowed = fd;
    if ((options.flags & KORX_READER_NO_LOCK) != 0)
        source.locking = Locking::kNone;
    if (options.lock_timeout_ms != 0)
        source.timeout_ms = options.lock_timeout_ms;
    if (options.max_bytes != 0)
        source.max_bytes = options.max_bytes;
    return source;
}

void FillInfo(korx_reader* reader) {
    const LogImage& image = reader->image;
    korx_reader_info& info = reader->info;
    info.kind = image.format.kind->kind;
    info.laps = image.laps;
    info.size = image.file_size;
    // The writer of a ring cuts its file to its limit when a lap ends.
    info.limit = image.is_ring() && image.laps != 0 ? image.file_size : image.format.kind->limit;
    info.fill = image.fill;
    info.records = image.entries.size();
    info.clock_set_back = static_cast<uint64_t>(
        std::count_if(image.entries.begin(), image.entries.end(),
                      [](const Entry& entry) { return entry.is(KORX_RECORD_CLOCK_BACK); }));
    info.damage = image.damage.count();
    info.has_head = image.is_ring() ? 1 : 0;
    info.log_len = image.head.uiLogLen;
    info.dump_len = image.head.uiDumpLen;
    info.total_len = image.head.uiTotalLen;
    std::copy(std::begin(image.sections), std::end(image.sections), info.sections);
}

}  // namespace

void Judge(const Cursor* cursor, korx_reader* reader) {
    reader->info = {};
    for (Entry& entry : reader->image.entries)
        entry.clear(KORX_RECORD_UNREAD);
    reader->doubts &= KORX_DOUBT_CURSOR_FORBIDDEN;
    reader->doubts |= MarkUnread(&reader->image, cursor, &reader->info);
    FillInfo(reader);
}

korx_reader_code Prepare(int fd, const char* path, korx_log_kind kind,
                         const korx_reader_options& options, const Refusal& error,
                         UniqueReader* reader) {
    *reader = NewReader();
    if (!*reader || !SetNames(path, options, &(*reader)->names) ||
        !CopyHeader(options, &(*reader)->image))
        return RefuseMemory(error);
    korx_reader& prepared = **reader;
    prepared.source = SourceOf(fd, prepared.names, options);
    korx_reader_code code = KORX_READER_OK;
    if (kind == KORX_LOG_AUTO)
        kind = KindOfName(path);
    if (kind == KORX_LOG_AUTO)
        code = PeekKind(prepared.source, error, &kind);
    prepared.image.format = FormatOf(kind);
    return code;
}

korx_reader_code Finish(const Refusal& error, korx_reader* reader) {
    LogImage& image = reader->image;
    const Cursor* cursor = nullptr;
    if (reader->has_cursor()) {
        const CursorState state = LoadCursor(reader->names.cursor.get(), &reader->cursor);
        if (state == CursorState::kFound)
            cursor = &reader->cursor;
        if (state == CursorState::kDamaged)
            image.damage.report_beside(KORX_DAMAGE_CURSOR, 0, 0,
                                       "the cursor is unreadable and was ignored");
        reader->doubts = state == CursorState::kForbidden ? KORX_DOUBT_CURSOR_FORBIDDEN : 0;
    }
    if (!image.analyse())
        return RefuseMemory(error);
    Judge(cursor, reader);
    return KORX_READER_OK;
}

korx_reader_code OpenFile(int fd, const char* path, korx_log_kind kind,
                          const korx_reader_options& options, const Refusal& error,
                          UniqueReader* reader) {
    korx_reader_code code = Prepare(fd, path, kind, options, error, reader);
    if (code != KORX_READER_OK)
        return code;
    korx_reader& opened = **reader;
    LogImage& image = opened.image;
    {
        LockedLog log(opened.source, *image.format.kind);
        code = log.open(error);
        if (code == KORX_READER_OK)
            code = log.copy(error, &image);
        opened.file = log.file().id();
    }
    return code == KORX_READER_OK ? Finish(error, &opened) : code;
}

korx_reader_code OpenMemory(std::string_view bytes, korx_log_kind kind,
                            const korx_reader_options& options, const Refusal& error,
                            UniqueReader* reader) {
    *reader = NewReader();
    if (!*reader)
        return RefuseMemory(error);
    korx_reader& opened = **reader;
    LogImage& image = opened.image;
    if (options.name != nullptr)
        opened.names.process = Copy(options.name);
    const bool has_name = options.name == nullptr || opened.names.process;
    if (!has_name || !CopyHeader(options, &image) ||
        !CopyBytes(bytes.data(), bytes.size(), &image.bytes))
        return RefuseMemory(error);
    image.file_size = bytes.size();
    if (kind == KORX_LOG_AUTO)
        kind = GuessKind(bytes);
    if (kind == KORX_LOG_AUTO)
        return error.refuse(KORX_READER_UNKNOWN, 0, "not a log of any known kind");
    image.format = FormatOf(kind);
    return Finish(error, &opened);
}

korx_log_kind KindOfName(const char* path) {
    const char* const name = NameOf(path);
    for (const LogKind& kind : kKinds) {
        for (const char* const file : kind.files) {
            if (IsLogFile(kind, file, name))
                return kind.kind;
        }
    }
    return KORX_LOG_AUTO;
}

}  // namespace korx
