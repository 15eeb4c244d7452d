// The start log: four sections, each with laps of its own, and a header in a file of its own that
// says where they are and where their newest laps end.
#include <string.h>

#include <algorithm>

#include "reader/laps.h"
#include "reader/pieces.h"
#include "reader/record.h"

static_assert(sizeof(STLOG_HDR_S) == 76);
static_assert(offsetof(STLOG_HDR_S, astSec) == 12);

namespace korx {
namespace {

// Whether the cursors of the sections are known; if not they are found by time.
enum class Cursors { kKnown, kUnknown };

constexpr uint64_t OffsetOfSection(size_t index) {
    return offsetof(STLOG_HDR_S, astSec) + index * sizeof(STLOG_SEC_S);
}

// Nothing depends on these, but they never change either.
void CheckMarkers(const STLOG_HDR_S& stored, LogImage* image) {
    if (stored.uiFlag != kStartDefaults.uiFlag)
        image->damage.report_beside(KORX_DAMAGE_HEADER, 0, 4, "the header's flag is not 1");
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (stored.astSec[s].uiMarker != kStartDefaults.astSec[s].uiMarker)
            image->damage.report_beside(KORX_DAMAGE_HEADER, OffsetOfSection(s), 4,
                                        "a section's marker is not its own");
    }
}

// The header that is in the file, if it can be used.
Cursors LoadHeader(LogImage* image, STLOG_HDR_S* header) {
    const auto unusable = [image](uint64_t offset, const char* why) {
        image->damage.report_beside(KORX_DAMAGE_HEADER, offset, 0, "%s", why);
        return Cursors::kUnknown;
    };
    if (image->header.data == nullptr)
        return unusable(0, "there is no header file; the cursors are found by time");
    if (image->header.size < sizeof *header)
        return unusable(image->header.size, "the header file is too short");
    STLOG_HDR_S stored;
    memcpy(&stored, image->header.data.get(), sizeof stored);
    if (stored.uiMagic != kStartDefaults.uiMagic)
        return unusable(offsetof(STLOG_HDR_S, uiMagic), "the header's magic is wrong");
    if (stored.uiVersion != kStartDefaults.uiVersion)
        return unusable(offsetof(STLOG_HDR_S, uiVersion), "the header's version is wrong");
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (!IsUsableSection(stored, s))
            return unusable(OffsetOfSection(s), "a section's bounds or cursor are impossible");
    }
    CheckMarkers(stored, image);
    *header = stored;
    return Cursors::kKnown;
}

void CheckSeparator(uint32_t section_start, LogImage* image) {
    const uint32_t at = section_start - std::min(section_start, kSeparatorLength);
    const bool there = section_start <= image->bytes.size && section_start >= kSeparatorLength &&
                       image->text(at, section_start) == kSeparator;
    if (!there)
        image->damage.report(KORX_DAMAGE_SEPARATOR, at, kSeparatorLength,
                             "the separator before a section is not there");
}

void ReadSection(const STLOG_SEC_S& section, uint8_t index, Cursors cursors, LogImage* image) {
    const size_t end = std::min<size_t>(section.uiEnd, image->bytes.size);
    const size_t begin = std::min<size_t>(section.uiStart, end);
    const size_t cursor = std::min<size_t>(section.uiCur, end);
    CheckSeparator(section.uiStart, image);
    const size_t first = image->entries.size();
    if (cursors == Cursors::kKnown) {
        if (section.uiCur > end)
            image->damage.report_beside(KORX_DAMAGE_HEADER, OffsetOfSection(index), sizeof section,
                                        "a section's cursor lies behind the end of the log");
        ReadLaps({.begin = begin,
                  .newest_end = cursor,
                  .until = end,
                  .old_end = OldEnd::kUnknown,
                  .section = index},
                 image);
    } else {
        (void) ReadUnmarkedLaps({.begin = begin, .end = end, .usual_size = 0, .section = index},
                                image);
    }
    const bool wrapped =
        first < image->entries.size() && image->entries[first].is(KORX_RECORD_OLD_LAP);
    auto& info = image->sections[index];
    info.start = section.uiStart;
    info.end = section.uiEnd;
    info.cursor = section.uiCur;
    info.wrapped = wrapped ? 1 : 0;
    image->laps |= info.wrapped;
    image->fill += (wrapped ? end : cursor) - begin;
}

// Each section is in order already; of the four foremost records the oldest comes next.
void MergeSections(Array<Entry>* entries) {
    size_t next[kSectionCount] = {};
    size_t end[kSectionCount] = {};
    size_t at = 0;
    for (size_t s = 0; s < kSectionCount; ++s) {
        next[s] = at;
        while (at < entries->size() && (*entries)[at].section == s)
            ++at;
        end[s] = at;
    }
    const auto time_of_next = [&](size_t section) { return (*entries)[next[section]].time_us; };
    Array<Entry> merged;
    merged.reserve(entries->size());
    while (merged.size() < entries->size() && !merged.out_of_memory()) {
        size_t oldest = kSectionCount;
        for (size_t s = 0; s < kSectionCount; ++s) {
            const bool has_next = next[s] < end[s];
            if (has_next && (oldest == kSectionCount || time_of_next(s) < time_of_next(oldest)))
                oldest = s;
        }
        merged.push((*entries)[next[oldest]++]);
    }
    if (merged.out_of_memory())
        return entries->fail();
    std::copy(merged.begin(), merged.end(), entries->begin());
}

void AnalyseStart(LogImage* image) {
    if (image->bytes.size == 0 && image->header.size == 0)
        return;
    STLOG_HDR_S header = kStartDefaults;
    const Cursors cursors = LoadHeader(image, &header);
    for (uint8_t s = 0; s < kSectionCount; ++s)
        ReadSection(header.astSec[s], s, cursors, image);
    MergeSections(&image->entries);
}

bool ParseStart(std::string_view text, size_t stamp, RecordHead*, korx_record* record) {
    constexpr uint32_t kFields = KORX_FIELD_LOCATION | KORX_FIELD_VALUE | KORX_FIELD_NAME;
    uint32_t level = 0;
    uint32_t module = 0;
    Pieces pieces(Slice(text, stamp));
    pieces.literal("[").one_of(kRecordLevels, "][L:", &level).number(&record->location);
    pieces.literal(" ").one_of(kModules, "][", &module).number(&record->value).literal("]");
    record->name = kModules[module];
    record->name_length = strlen(kModules[module]);
    return pieces.finish(kRecordLevels, level, kFields, record);
}

bool ResemblesStart(std::string_view line) {
    constexpr const char* kFixed[] = {"][L:", "]["};
    return NearlyAllIn(kFixed, line);
}

bool BeginsStart(const LogFormat&, std::string_view beginning) {
    const size_t section = kStartDefaults.astSec[0].uiStart;
    return beginning.size() >= section &&
           Slice(beginning, section - kSeparatorLength, section) == kSeparator;
}

}  // namespace

const ShapeOperations kStartShape = {.shape = Shape::kStart,
                                     .sections = kSectionCount,
                                     .line_end = LineEnd::kLf,
                                     .source_name = SourceName::kInRecord,
                                     .analyse = AnalyseStart,
                                     .parse_fields = ParseStart,
                                     .resembles_fields = ResemblesStart,
                                     .begins_file = BeginsStart,
                                     .find_laps = nullptr,
                                     .conclude = nullptr};

}  // namespace korx
