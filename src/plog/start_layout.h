// The start log's file layout and which headers are accepted: one truth for its writers and for the
// reader, which would otherwise call sound files damaged.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "korx/plog.h"

namespace korx {

constexpr uint32_t kSectionCount = 4;
constexpr uint32_t kStartFileEnd = 258048;
constexpr uint32_t kRecordRoom = 600;  // a cursor with less room left goes back to the start

constexpr char kSeparator[] = "\n==============================\n";
constexpr uint32_t kSeparatorLength = sizeof kSeparator - 1;
static_assert(kSeparatorLength == 32);

constexpr const char* kModules[kSectionCount] = {"FRAME", "PATCH", "CFL", "DBG"};
constexpr STLOG_HDR_S kStartDefaults = {
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
           section.uiEnd - section.uiStart >= kRecordRoom;
}

}  // namespace korx
