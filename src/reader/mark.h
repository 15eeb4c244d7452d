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

// Where a mark leads in its section.
struct Marked {
    bool is_known;  // if not, everything may have been written since
    size_t behind;  // the entries of the section before this one were not written since
};

// Finds the marked record, also where the log has cut it since; where it is gone, its place, if
// place and stamp leave no doubt of it.
Marked FindMarked(const LogImage& image, const korx_mark& mark, size_t section);

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
