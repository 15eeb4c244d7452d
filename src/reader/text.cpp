// The text log: a count of bytes says where the newest lap ends. Its writer cuts the file when a
// lap ends, and with it what that lap has not written over.
#include <string.h>

#include <algorithm>

#include "reader/laps.h"
#include "reader/pieces.h"
#include "reader/record.h"

namespace korx {
namespace {

uint32_t CountOf(std::string_view bytes) {
    uint32_t count = 0;
    memcpy(&count, bytes.data(), kTextHeadSize);
    return count;
}

void ConcludeText(LogImage* image) {
    image->fill = image->bytes.size - kTextHeadSize;
    image->laps = CountOf(image->bytes.view()) < image->fill ? 1 : 0;
}

bool FindTextLaps(const LogFormat&, std::string_view beginning, uint64_t file_size, Laps* laps) {
    if (beginning.size() < kTextHeadSize || file_size < kTextHeadSize)
        return false;
    *laps = {.begin = kTextHeadSize,
             .newest_end = kTextHeadSize + CountOf(beginning),
             .until = file_size};
    return laps->newest_end <= file_size;
}

void AnalyseText(LogImage* image) {
    const size_t size = image->bytes.size;
    if (size < kTextHeadSize) {
        if (size != 0)
            image->damage.report(KORX_DAMAGE_HEAD_SHORT, size, 0, "the file ends in its head");
        return;
    }
    const uint32_t count = CountOf(image->bytes.view());
    const size_t room = size - kTextHeadSize;
    if (count > room)
        image->damage.report(KORX_DAMAGE_HEAD_LENGTH, 0, kTextHeadSize,
                             "the count %u exceeds the file", count);
    const size_t newest_end = kTextHeadSize + std::min<size_t>(count, room);
    ReadLaps(
        {.begin = kTextHeadSize, .newest_end = newest_end, .until = size, .old_end = OldEnd::kCut},
        image);
    ConcludeText(image);
}

bool ParseText(std::string_view text, size_t stamp, RecordHead*, korx_record* record) {
    uint32_t level = 0;
    Pieces pieces(Slice(text, stamp));
    pieces.literal(" [ProcID:").signed_number(&record->pid).literal("|").number(&record->module);
    pieces.literal("|").one_of(kTextLevels, "] : ", &level);
    return pieces.finish(kTextLevels, level, KORX_FIELD_PID | KORX_FIELD_MODULE, record);
}

bool ResemblesText(std::string_view line) {
    constexpr const char* kFixed[] = {" [ProcID:", "] : "};
    return NearlyAllIn(kFixed, line);
}

bool BeginsText(const LogFormat& format, std::string_view beginning) {
    if (beginning.size() > kTextHeadSize)
        return BeginsRecord(format, Slice(beginning, kTextHeadSize));
    return beginning.size() == kTextHeadSize && AllZero(beginning);
}

}  // namespace

const ShapeOperations kTextShape = {.shape = Shape::kText,
                                    .sections = 1,
                                    .line_end = LineEnd::kLf,
                                    .source_name = SourceName::kInRecord,
                                    .analyse = AnalyseText,
                                    .parse_fields = ParseText,
                                    .resembles_fields = ResemblesText,
                                    .begins_file = BeginsText,
                                    .find_laps = FindTextLaps,
                                    .conclude = ConcludeText};

}  // namespace korx
