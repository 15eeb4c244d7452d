// The rings: a head says where the newest lap and the old one end, and how far a reader has come.
#include "reader/ring.h"

#include <string.h>

#include <algorithm>

#include "reader/laps.h"
#include "reader/pieces.h"
#include "reader/record.h"

namespace korx {
namespace {

constexpr size_t kTailLook = 1024;  // looked at behind the end of the text

void CheckHead(LogImage* image) {
    const LOG_HEAD_S& head = image->head;
    const RingBounds bounds = BoundsOf(*image->format.kind, image->file_size);
    const HeadFault fault = FaultOf(head, bounds);
    image->head_sound = fault == HeadFault::kNone || fault == HeadFault::kDumpLen;
    image->dump_sound = fault == HeadFault::kNone;
    DamageList& damage = image->damage;
    if (fault == HeadFault::kLogLen)
        damage.report(KORX_DAMAGE_HEAD_LENGTH, offsetof(LOG_HEAD_S, uiLogLen), 4,
                      head.uiLogLen > bounds.room ? "uiLogLen %u leads outside the file"
                                                  : "uiLogLen %u ends long before the file does",
                      head.uiLogLen);
    if (fault == HeadFault::kTotalLen)
        damage.report(KORX_DAMAGE_HEAD_LENGTH, offsetof(LOG_HEAD_S, uiTotalLen), 4,
                      head.uiTotalLen > bounds.room
                          ? "uiTotalLen %u leads outside the file"
                          : "uiTotalLen %u ends long before the file does",
                      head.uiTotalLen);
    if (fault == HeadFault::kOrder)
        damage.report(KORX_DAMAGE_HEAD_ORDER, 0, kRingHeadSize,
                      "uiLogLen %u is not below uiTotalLen %u", head.uiLogLen, head.uiTotalLen);
    if (fault == HeadFault::kDumpLen)
        damage.report(KORX_DAMAGE_DUMP_POSITION, offsetof(LOG_HEAD_S, uiDumpLen), 4,
                      "uiDumpLen %u lies behind the log", head.uiDumpLen);
}

// Before the first wrap nothing may stand behind the newest record.
void CheckBehind(size_t end, LogImage* image) {
    const size_t behind = std::min(image->bytes.size - end, kTailLook);
    if (!AllZero(image->text(end, end + behind)))
        image->damage.report(KORX_DAMAGE_UNCOMMITTED, end, image->file_size - end,
                             "bytes behind the newest record that the head does not count");
}

// Whether the reader's position is where some record ends, as far as the records tell. In a ring
// that is written over regardless and has wrapped, those that ended there may be gone.
bool IsBetweenRecords(const LogImage& image) {
    const LOG_HEAD_S& head = image.head;
    const bool any_place = image.format.kind->unread == Unread::kOverwritten;
    if (!image.dump_sound || (any_place && head.uiTotalLen != 0))
        return true;
    const uint64_t position = uint64_t{kRingHeadSize} + head.uiDumpLen;
    // Behind the newest record there may stand the rest of one that was written over.
    const bool has_old = !image.entries.empty() && image.entries[0].is(KORX_RECORD_OLD_LAP);
    const uint64_t rest_end = has_old ? image.entries[0].offset : kRingHeadSize + head.uiTotalLen;
    if (head.uiLogLen < head.uiDumpLen && position < rest_end)
        return false;
    return std::none_of(image.entries.begin(), image.entries.end(), [=](const Entry& entry) {
        return entry.offset < position && position < entry.end();
    });
}

Laps LapsOf(const LOG_HEAD_S& head, size_t file_size) {
    const size_t room = file_size - kRingHeadSize;
    const size_t newest = std::min<size_t>(head.uiLogLen, room);
    const bool wrapped = head.uiTotalLen != 0 && head.uiTotalLen > head.uiLogLen;
    const size_t oldest_end = wrapped ? std::min<size_t>(head.uiTotalLen, room) : newest;
    return {.begin = kRingHeadSize,
            .newest_end = kRingHeadSize + newest,
            .until = kRingHeadSize + oldest_end};
}

void ConcludeRing(LogImage* image) {
    memcpy(&image->head, image->bytes.data.get(), kRingHeadSize);
    const Laps laps = LapsOf(image->head, image->bytes.size);
    image->laps = laps.newest_end < laps.until ? 1 : 0;
    image->fill = laps.until - kRingHeadSize;
    if (!IsBetweenRecords(*image))
        image->damage.report(KORX_DAMAGE_DUMP_POSITION, offsetof(LOG_HEAD_S, uiDumpLen), 4,
                             "uiDumpLen %u lies inside a record", image->head.uiDumpLen);
}

bool FindRingLaps(const LogFormat& format, std::string_view beginning, uint64_t file_size,
                  Laps* laps) {
    if (beginning.size() < kRingHeadSize || file_size < kRingHeadSize)
        return false;
    LOG_HEAD_S head;
    memcpy(&head, beginning.data(), kRingHeadSize);
    *laps = LapsOf(head, file_size);
    return FaultOf(head, BoundsOf(*format.kind, file_size)) == HeadFault::kNone;
}

void AnalyseRing(LogImage* image) {
    const size_t size = image->bytes.size;
    if (size < kRingHeadSize) {
        if (size != 0)
            image->damage.report(KORX_DAMAGE_HEAD_SHORT, size, 0, "the file ends in its head");
        image->head_sound = size == 0;
        image->dump_sound = image->head_sound;
        return;
    }
    memcpy(&image->head, image->bytes.data.get(), kRingHeadSize);
    CheckHead(image);

    const Laps laps = LapsOf(image->head, size);
    ReadLaps(laps, image);
    if (laps.newest_end == laps.until)
        CheckBehind(laps.newest_end, image);
    ConcludeRing(image);
}

bool ParseRing(std::string_view text, size_t stamp, RecordHead*, korx_record* record) {
    constexpr uint32_t kFields = KORX_FIELD_INDEX | KORX_FIELD_APP_CID | KORX_FIELD_LOCATION |
                                 KORX_FIELD_M_VALUE | KORX_FIELD_VALUE;
    uint32_t level = 0;
    Pieces pieces(Slice(text, stamp));
    pieces.literal("[Index:").alternate_hex(&record->index);
    pieces.literal("][AppCid:").number(&record->app_cid);
    pieces.literal("][").one_of(kRecordLevels, "", &level);
    pieces.literal("][L:").number(&record->location).literal(" M:").number(&record->m_value);
    pieces.literal("][").number(&record->value).literal("]");
    return pieces.finish(kRecordLevels, level, kFields, record);
}

bool ResemblesRing(std::string_view line) {
    constexpr const char* kFixed[] = {"[Index:", "][AppCid:", "][L:", " M:"};
    return NearlyAllIn(kFixed, line);
}

bool BeginsRing(const LogFormat& format, std::string_view beginning) {
    if (beginning.size() > kRingHeadSize)
        return BeginsRecord(format, Slice(beginning, kRingHeadSize));
    return beginning.size() == kRingHeadSize && AllZero(beginning);
}

}  // namespace

const ShapeOperations kRingShape = {.shape = Shape::kRing,
                                    .sections = 1,
                                    .line_end = LineEnd::kLf,
                                    .source_name = SourceName::kInRecord,
                                    .analyse = AnalyseRing,
                                    .parse_fields = ParseRing,
                                    .resembles_fields = ResemblesRing,
                                    .begins_file = BeginsRing,
                                    .find_laps = FindRingLaps,
                                    .conclude = ConcludeRing};

uint64_t NeededOfRing(const LOG_HEAD_S& head, uint64_t file_size) {
    const uint64_t text = std::max(head.uiLogLen, head.uiTotalLen);
    return std::min(file_size, kRingHeadSize + text + kTailLook);
}

}  // namespace korx
