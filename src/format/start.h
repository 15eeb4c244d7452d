// The start log's file layout and which headers are accepted: one truth for its writers and for the
// reader, which would otherwise call sound files damaged.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "format/record.h"
#include "korx/plog.h"

static_assert(sizeof(STLOG_SEC_S) == 16);
static_assert(offsetof(STLOG_SEC_S, uiMarker) == 0);
static_assert(offsetof(STLOG_SEC_S, uiStart) == 4);
static_assert(offsetof(STLOG_SEC_S, uiEnd) == 8);
static_assert(offsetof(STLOG_SEC_S, uiCur) == 12);
static_assert(sizeof(STLOG_HDR_S) == 76);
static_assert(offsetof(STLOG_HDR_S, uiFlag) == 0);
static_assert(offsetof(STLOG_HDR_S, uiMagic) == 4);
static_assert(offsetof(STLOG_HDR_S, uiVersion) == 8);
static_assert(offsetof(STLOG_HDR_S, astSec) == 12);

namespace korx {

inline constexpr uint32_t kSectionCount = STLOG_SECTION_COUNT;
inline constexpr uint32_t kStartFileEnd = 258048;

inline constexpr char kSeparator[] = "\n==============================\n";
inline constexpr uint32_t kSeparatorLength = sizeof kSeparator - 1;
static_assert(kSeparatorLength == 32);

inline constexpr const char* kModules[kSectionCount] = {"FRAME", "PATCH", "CFL", "DBG"};
inline constexpr STLOG_HDR_S kStartDefaults = {
    .uiFlag = 1,
    .uiMagic = 0xDEADBEAF,
    .uiVersion = 2,
    .astSec = {{0xFFFFFFFF, 109, 8301, 109},
               {0x11111111, 8334, 41102, 8334},
               {0x22222222, 41135, 106671, 41135},
               {0x55555555, 106704, kStartFileEnd, 106704}},
};

// Whether a section lies in the file, with its cursor in it and room for a record, and apart from
// the sections before it. A header that leads outside the file or lets one section write over
// another is as bad as one of another version.
inline bool IsUsableSection(const STLOG_HDR_S& header, size_t index) {
    const STLOG_SEC_S& section = header.astSec[index];
    for (size_t other = 0; other < index; ++other) {
        const STLOG_SEC_S& before = header.astSec[other];
        if (section.uiStart < before.uiEnd && before.uiStart < section.uiEnd)
            return false;
    }
    return section.uiStart > 0 && section.uiStart <= section.uiCur &&
           section.uiCur <= section.uiEnd && section.uiEnd <= kStartFileEnd &&
           section.uiEnd - section.uiStart >= uint32_t{kRecordRoom};
}

}  // namespace korx
