// Records that are remembered beyond their reader.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>
#include <utility>

#include "reader/image.h"

namespace korx {

// What tells a record from every other: FNV-1a with 64 bits.
uint64_t HashRecord(std::string_view record);

// The entry of a section that a mark stands for, or the number of entries when it is not there.
size_t FindMarked(const LogImage& image, const korx_mark& mark, size_t section);

// Puts a record into the mark of its section.
void SetMark(const LogImage& image, const Entry& entry, korx_mark* mark);

// Marks the newest record of each section among those whose index is_passed accepts. The mark of a
// section without one stays as it is.
template <typename IsPassed>
void MarkNewest(const LogImage& image, IsPassed is_passed, korx_mark* mark) {
    bool is_marked[kSectionCount] = {};
    size_t missing = image.format.shape->sections;
    for (size_t i = image.entries.size(); i-- > 0 && missing > 0;) {
        const Entry& entry = image.entries[i];
        if (!is_passed(i) || std::exchange(is_marked[entry.section], true))
            continue;
        SetMark(image, entry, mark);
        --missing;
    }
}

}  // namespace korx
