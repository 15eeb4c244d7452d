// The space-full log: records behind the blanks that reserved their room, or behind a header. Its
// file is started anew, never wrapped.
#include <string.h>

#include <algorithm>

#include "reader/laps.h"
#include "reader/pieces.h"
#include "reader/record.h"

namespace korx {
namespace {

bool IsBlank(char c) {
    return c == ' ';
}

void AnalyseReserve(LogImage* image) {
    const std::string_view bytes = image->bytes.view();
    size_t begin = 0;
    while (begin < bytes.size() && IsBlank(bytes[begin]))
        ++begin;
    if (BeginsWith(bytes, kSpaceHeader))
        begin = kSpaceHeaderLength;
    ReadStretch({.begin = begin, .end = bytes.size()}, image, &image->entries);
    MarkClockSetBack(0, image);
    image->fill = bytes.size() - begin;
}

// The value at the end of a body, right-aligned.
bool ParseValueField(const char* field, uint32_t* value) {
    size_t blanks = 0;
    while (blanks < kSpaceValueField && IsBlank(field[blanks]))
        ++blanks;
    Pieces pieces({field + blanks, kSpaceValueField - blanks});
    return pieces.number(value).ok() && pieces.at() == field + kSpaceValueField;
}

// A shorter name is filled up with blanks before it; a longer one has all the room it needs.
std::string_view NameIn(std::string_view field) {
    const bool padded = field.size() == kSpaceNameField;
    while (padded && !field.empty() && IsBlank(field[0]))
        field.remove_prefix(1);
    return field;
}

// A name may hold line ends, the end of the record is the first CR LF behind a value.
bool ParseReserve(std::string_view text, size_t stamp, RecordHead* head, korx_record* record) {
    const char* const body = text.data() + stamp;
    const char* const end = text.data() + std::min<size_t>(text.size(), kMaxSpaceRecord);
    const char* from = body;
    while (from < end) {
        const auto* const line_end =
            static_cast<const char*>(memchr(from, '\n', static_cast<size_t>(end - from)));
        if (line_end == nullptr)
            return false;
        from = line_end + 1;
        const auto size = static_cast<size_t>(line_end - body);
        if (size < kSpaceNameField + kSpaceValueField + 1 || line_end[-1] != '\r')
            continue;
        const char* const field = line_end - 1 - kSpaceValueField;
        if (!ParseValueField(field, &record->value))
            continue;
        const std::string_view name = NameIn({body, static_cast<size_t>(field - body)});
        record->name = name.data();
        record->name_length = name.size();
        record->fields |= KORX_FIELD_NAME | KORX_FIELD_VALUE;
        head->extent = static_cast<size_t>(from - text.data());
        return true;
    }
    return false;
}

// There are no fixed pieces in it.
bool ResemblesReserve(std::string_view) {
    return true;
}

bool BeginsReserve(const LogFormat& format, std::string_view beginning) {
    const size_t reserve = std::min<size_t>(beginning.size(), format.kind->limit);
    return BeginsRecord(format, beginning) || BeginsWith(beginning, kSpaceHeader) ||
           (reserve > 0 && std::all_of(beginning.data(), beginning.data() + reserve, IsBlank));
}

}  // namespace

const ShapeOperations kReserveShape = {.shape = Shape::kReserve,
                                       .sections = 1,
                                       .line_end = LineEnd::kCrLf,
                                       .source_name = SourceName::kInRecord,
                                       .analyse = AnalyseReserve,
                                       .parse_fields = ParseReserve,
                                       .resembles_fields = ResemblesReserve,
                                       .begins_file = BeginsReserve,
                                       .find_laps = nullptr,
                                       .conclude = nullptr};

}  // namespace korx
