// Feeds the reader with anything. The first byte chooses the kind; for the start log the next 76
// bytes are its header file. What must hold of any input is checked, the sanitizers do the rest.
#include <stdint.h>
#include <string.h>

#include "korx/reader.h"
#include "support.h"

using korx::fuzz::Require;

namespace {

constexpr size_t kHeaderSize = 76;

void ReadAll(korx_reader* reader, const char* bytes, size_t size) {
    korx_reader_info info = {};
    korx_reader_get_info(reader, &info);
    korx_record record = {};
    uint64_t records = 0;
    while (korx_reader_next(reader, &record) == 1) {
        ++records;
        Require(record.offset <= size && record.length <= size - record.offset);
        Require(memcmp(record.text, bytes + record.offset, record.length) == 0);
        Require(record.message_length <= record.length && record.level <= 4);
        const bool sound = (record.flags & KORX_RECORD_DAMAGED) == 0;
        Require(!sound || (record.fields & KORX_FIELD_TIME) != 0);
        char id[KORX_RECORD_ID_SIZE];
        Require(korx_reader_record_id(reader, &record, id, sizeof id) == 1);
    }
    Require(records == info.records);
    uint64_t unread = 0;
    korx_reader_rewind(reader);
    while (korx_reader_next_unread(reader, &record) == 1)
        ++unread;
    Require(unread == info.unread_records);
    korx_mark mark = {};
    korx_reader_get_mark(reader, &mark);
    (void) korx_reader_seek_mark(reader, &mark);
    Require(korx_reader_refresh(reader, nullptr, nullptr) == KORX_READER_ARGUMENT);
    korx_damage damage = {};
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) == 1; ++i)
        Require(korx_damage_rule_name(damage.rule) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    const auto kind = static_cast<korx_log_kind>(*data % (KORX_LOG_SPACE + 1));
    const auto* bytes = reinterpret_cast<const char*>(data + 1);
    --size;
    korx_reader_options options = {};
    if (kind == KORX_LOG_START && size >= kHeaderSize) {
        options.header = bytes;
        options.header_length = kHeaderSize;
        bytes += kHeaderSize;
        size -= kHeaderSize;
    }
    korx_reader* reader = nullptr;
    const korx_reader_code code =
        korx_reader_open_memory(bytes, size, kind, &options, &reader, nullptr);
    Require(code == KORX_READER_OK || code == KORX_READER_UNKNOWN);
    if (reader != nullptr)
        ReadAll(reader, bytes, size);
    korx_reader_close(reader);
    return 0;
}
