// The process logs: records and nothing else, so the laps are told by their stamps.
#include "reader/laps.h"
#include "reader/pieces.h"
#include "reader/record.h"

namespace korx {
namespace {

constexpr uint32_t kFields = KORX_FIELD_LOCATION | KORX_FIELD_M_VALUE | KORX_FIELD_VALUE;

void AnalysePlain(LogImage* image) {
    const std::string_view bytes = image->bytes.view();
    const bool wrapped = ReadUnmarkedLaps(
        {.begin = 0, .end = bytes.size(), .usual_size = image->format.kind->limit}, image);
    image->laps = wrapped ? 1 : 0;
    size_t used = bytes.size();
    while (used > 0 && bytes[used - 1] == '\0')
        --used;
    image->fill = used;
}

bool ParsePlain(std::string_view text, size_t stamp, RecordHead*, korx_record* record) {
    uint32_t level = 0;
    Pieces own(Slice(text, stamp));
    own.literal("[").one_of(kRecordLevels, "][L:", &level).number(&record->location);
    own.literal(" M:").number(&record->m_value).literal("][").number(&record->value).literal("]");
    if (own.finish(kRecordLevels, level, kFields, record))
        return true;

    Pieces named(Slice(text, stamp));  // written under a process's name by another one
    named.literal("[L:").number(&record->location).literal(" M:").number(&record->m_value);
    named.literal("][").one_of(kRecordLevels, "][", &level).number(&record->value).literal("]");
    return named.finish(kRecordLevels, level, kFields, record);
}

bool ResemblesPlain(std::string_view line) {
    constexpr const char* kFixed[] = {"[L:", " M:", "]["};
    return NearlyAllIn(kFixed, line);
}

}  // namespace

const ShapeOperations kPlainShape = {.shape = Shape::kPlain,
                                     .sections = 1,
                                     .line_end = LineEnd::kLf,
                                     .source_name = SourceName::kInFileName,
                                     .analyse = AnalysePlain,
                                     .parse_fields = ParsePlain,
                                     .resembles_fields = ResemblesPlain,
                                     .begins_file = BeginsRecord,
                                     .find_laps = nullptr,
                                     .conclude = nullptr};

}  // namespace korx
