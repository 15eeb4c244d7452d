#include "reader/record.h"

#include <string.h>

#include <algorithm>

#include "reader/bytes.h"

namespace korx {
namespace {

constexpr size_t kHeadRoom = 128;  // where the pieces of a damaged head are looked for

bool ResemblesFields(const LogFormat& format, std::string_view text) {
    const auto* const line_end = static_cast<const char*>(memchr(text.data(), '\n', text.size()));
    if (line_end == nullptr && text.size() < kHeadRoom)
        return true;  // the log ends inside the head
    const size_t line =
        line_end == nullptr ? text.size() : static_cast<size_t>(line_end - text.data());
    return format.shape->resembles_fields(Slice(text, 0, std::min(line, kHeadRoom)));
}

}  // namespace

bool ParseHead(const LogFormat& format, std::string_view text, RecordHead* head,
               korx_record* record) {
    if (text.empty() || text[0] != '[')
        return false;
    const size_t stamp = ParseStamp(format.kind->stamp, text, &head->time);
    if (stamp == 0)
        return false;
    record->fields = KORX_FIELD_TIME;
    head->extent = 0;
    return format.shape->parse_fields(text, stamp, head, record);
}

bool BeginsRecord(const LogFormat& format, std::string_view text) {
    RecordHead head;
    korx_record record;
    return ParseHead(format, text, &head, &record);
}

korx_damage_rule ResemblesHead(const LogFormat& format, std::string_view text) {
    const StampStyle style = format.kind->stamp;
    RecordHead head = {};
    if (const size_t stamp = ParseStamp(style, text, &head.time); stamp != 0) {
        const bool alike = ResemblesFields(format, Slice(text, stamp));
        return alike ? KORX_DAMAGE_FIELDS : KORX_DAMAGE_NOT_A_RECORD;
    }
    if (!ResemblesStamp(style, text))
        return KORX_DAMAGE_NOT_A_RECORD;
    korx_record record = {};
    const bool sound = format.shape->parse_fields(text, ShapeOf(style).length, &head, &record);
    return sound ? KORX_DAMAGE_STAMP : KORX_DAMAGE_NOT_A_RECORD;
}

}  // namespace korx
