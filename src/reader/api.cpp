// The exported functions: they look at their arguments, call what does the work, and copy out what
// the caller asked for.
#include "korx/reader.h"

#include <errno.h>
#include <string.h>

#include <utility>

#include "reader/acknowledge.h"
#include "reader/identity.h"
#include "reader/open.h"
#include "reader/place.h"
#include "reader/reader.h"
#include "reader/record.h"
#include "reader/refresh.h"
#include "reader/repair.h"

namespace korx {
namespace {

constexpr korx_reader_options kDefaultOptions = {};
constexpr uint32_t kPublicFlags =
    KORX_RECORD_UNREAD | KORX_RECORD_OLD_LAP | KORX_RECORD_DAMAGED | KORX_RECORD_CLOCK_BACK;

const korx_reader_options& OrDefault(const korx_reader_options* options) {
    return options == nullptr ? kDefaultOptions : *options;
}

korx_reader_code BadArgument(korx_reader_error* error, const char* text) {
    return Refusal(error).refuse(KORX_READER_ARGUMENT, EINVAL, "%s", text);
}

// Hands the reader over if it could be opened; if not, what there is of it goes.
korx_reader_code HandOver(korx_reader_code code, UniqueReader opened, korx_reader** out) {
    if (code == KORX_READER_OK)
        *out = opened.release();
    return code;
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
    const char* const process = reader.names.process.get();
    const bool file_names_it = reader.image.format.shape->source_name == SourceName::kInFileName;
    if (file_names_it && process != nullptr && process[0] != '\0') {
        record->fields |= KORX_FIELD_NAME;
        record->name = process;
        record->name_length = strlen(process);
    }
    if ((record->fields & KORX_FIELD_MESSAGE) != 0)
        record->message_length =
            static_cast<size_t>(record->text + record->length - record->message);
}

void FillRecord(const korx_reader& reader, const Entry& entry, korx_record* record) {
    const LogImage& image = reader.image;
    *record = {};
    RecordHead head;
    // A head that reaches to the record's end may have lost that to zeros.
    const bool has_fields =
        entry.is(kHasHead) && ParseHead(image.format, image.text(entry), &head, record);
    if (!has_fields)
        *record = {};
    const std::string_view text = TextOf(image, entry);
    record->kind = image.format.kind->kind;
    record->flags = entry.flags & kPublicFlags;
    record->offset = entry.offset;
    record->text = text.data();
    record->length = text.size();
    if (has_fields)
        CompleteFields(reader, entry, record);
}

// Fills in the record of an entry, or clears it at the end. What the exported functions return.
int HandOut(const korx_reader& reader, const Entry* entry, korx_record* record) {
    if (entry == nullptr) {
        *record = {};
        return 0;
    }
    FillRecord(reader, *entry, record);
    return 1;
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
    UniqueReader opened;
    const korx_reader_code code =
        OpenFile(-1, path, kind, OrDefault(options), Refusal(error, path), &opened);
    return HandOver(code, std::move(opened), reader);
}

korx_reader_code korx_reader_open_fd(int fd, const char* path, korx_log_kind kind,
                                     const korx_reader_options* options, korx_reader** reader,
                                     korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no place for the reader");
    *reader = nullptr;
    if (fd < 0 || !IsKind(kind))
        return BadArgument(error, "no descriptor, or no such kind of log");
    const char* const name = path == nullptr ? "" : path;
    UniqueReader opened;
    const korx_reader_code code =
        OpenFile(fd, name, kind, OrDefault(options), Refusal(error, name), &opened);
    return HandOver(code, std::move(opened), reader);
}

korx_reader_code korx_reader_open_memory(const void* data, size_t length, korx_log_kind kind,
                                         const korx_reader_options* options, korx_reader** reader,
                                         korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no place for the reader");
    *reader = nullptr;
    if ((data == nullptr && length != 0) || !IsKind(kind))
        return BadArgument(error, "no data, or no such kind of log");
    const std::string_view bytes(static_cast<const char*>(data), length);
    UniqueReader opened;
    const korx_reader_code code =
        OpenMemory(bytes, kind, OrDefault(options), Refusal(error, "memory"), &opened);
    return HandOver(code, std::move(opened), reader);
}

korx_reader_code korx_reader_refresh(korx_reader* reader, korx_refreshed* how,
                                     korx_reader_error* error) {
    korx_refreshed unused;
    if (reader == nullptr)
        return BadArgument(error, "no reader");
    if (reader->names.path == nullptr)
        return BadArgument(error, "a copy from memory has no log to go along with");
    return Refresh(Refusal(error, reader->names.path.get()), reader,
                   how == nullptr ? &unused : how);
}

void korx_reader_close(korx_reader* reader) {
    UniqueReader owner(reader);
}

int korx_reader_record_id(const korx_reader* reader, const korx_record* record, char* id,
                          size_t size) {
    return FormatId(*reader, *record, id, size) ? 1 : 0;
}

int korx_reader_next(korx_reader* reader, korx_record* record) {
    return HandOut(*reader, Advance(Step::kAny, reader), record);
}

int korx_reader_next_unread(korx_reader* reader, korx_record* record) {
    Entry* const entry = Advance(Step::kUnread, reader);
    if (entry != nullptr)
        entry->set(kHandedOut);
    return HandOut(*reader, entry, record);
}

void korx_reader_rewind(korx_reader* reader) {
    SeekNewest(SIZE_MAX, reader);
}

void korx_reader_seek_newest(korx_reader* reader, size_t count) {
    SeekNewest(count, reader);
}

korx_reader_code korx_reader_ack(korx_reader* reader, korx_reader_error* error) {
    if (reader == nullptr)
        return BadArgument(error, "no reader");
    if (!reader->can_acknowledge())
        return BadArgument(error, "a copy from memory or without lock can't be acknowledged");
    return Acknowledge(Refusal(error, reader->names.path.get()), reader);
}

korx_reader_code korx_reader_repair(const char* path, korx_log_kind kind,
                                    const korx_reader_options* options, korx_reader_keep* keep,
                                    void* context, korx_reader_repaired* repaired,
                                    korx_reader_error* error) {
    if (keep == nullptr || repaired == nullptr)
        return BadArgument(error, "nobody who keeps the records, or no place for what was done");
    *repaired = {};
    if (path == nullptr || !IsKind(kind))
        return BadArgument(error, "no path, or no such kind of log");
    const Refusal refusal(error, path);
    UniqueReader reader;
    const korx_reader_code code = Prepare(-1, path, kind, OrDefault(options), refusal, &reader);
    if (code != KORX_READER_OK)
        return code;
    if (!reader->image.is_ring() || !reader->can_acknowledge())
        return BadArgument(error, "only a ring can be repaired, and only under its lock");
    return Repair({.keep = keep, .context = context}, refusal, reader.get(), repaired);
}

void korx_reader_get_mark(const korx_reader* reader, korx_mark* mark) {
    *mark = MarkOf(*reader);
}

int korx_reader_seek_mark(korx_reader* reader, const korx_mark* mark) {
    return SeekMark(*mark, reader) ? 1 : 0;
}

void korx_reader_get_info(const korx_reader* reader, korx_reader_info* info) {
    *info = reader->info;
}

uint32_t korx_reader_doubts(const korx_reader* reader) {
    return reader->doubts;
}

int korx_reader_get_damage(const korx_reader* reader, size_t index, korx_damage* damage) {
    const DamageList& list = reader->image.damage;
    const bool is_listed = index < list.listed();
    *damage = is_listed ? list[index] : korx_damage{};
    return is_listed ? 1 : 0;
}

const char* korx_log_kind_name(korx_log_kind kind) {
    return IsKind(kind) ? KindOf(kind).name : nullptr;
}

const char* korx_damage_rule_name(korx_damage_rule rule) {
    return DamageName(rule);
}

korx_log_kind korx_log_kind_of_name(const char* path) {
    return path == nullptr ? KORX_LOG_AUTO : KindOfName(path);
}
