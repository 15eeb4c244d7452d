#include "reader/mark.h"

#include <type_traits>

namespace korx {

uint64_t HashRecord(std::string_view record) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : record)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash;
}

namespace {

using Last = std::remove_extent_t<decltype(korx_mark::last)>;

bool IsMarked(const LogImage& image, const Entry& entry, const Last& last) {
    return entry.length == last.length && HashRecord(image.text(entry)) == last.hash;
}

// The text log cuts its newest record when a lap ends.
bool IsMarkedAndCut(const Entry& entry, const Last& last) {
    return entry.is(KORX_RECORD_DAMAGED) && entry.is(kHasHead) && entry.length < last.length &&
           entry.time_us == last.time_us;
}

// A line that is no record makes the record before it longer.
bool IsMarkedAndLonger(const LogImage& image, const Entry& entry, const Last& last) {
    return entry.length > last.length &&
           HashRecord(image.text(entry.offset, last.end)) == last.hash;
}

// The place of a record that is gone: between one that stands before it and one that stands behind
// it, or in the next lap, by their stamps as well. Stamps alone prove nothing: a board without a
// clock of its own writes any number of laps that are older than the mark.
Marked FindPlace(const LogImage& image, const Last& last, size_t section) {
    const uint64_t start = last.end - last.length;
    const Entry* before = nullptr;
    for (size_t i = 0; i < image.entries.size(); ++i) {
        const Entry& entry = image.entries[i];
        if (entry.section != section || !entry.is(kHasHead))
            continue;
        const bool is_behind =
            before != nullptr && (entry.offset >= last.end ||
                                  before->is(KORX_RECORD_OLD_LAP) != entry.is(KORX_RECORD_OLD_LAP));
        if (is_behind && entry.time_us >= last.time_us)
            return {.is_known = true, .behind = i};
        const bool is_before = entry.end() <= start && entry.time_us <= last.time_us;
        const bool is_left_of_it = entry.offset == start && entry.time_us == last.time_us;
        if (!is_left_of_it)
            before = is_before ? &entry : nullptr;
    }
    return {.is_known = false, .behind = 0};
}

}  // namespace

// Newest first: that is where a mark taken lately is, and of records that are alike the newest was
// meant, because nothing behind it had been seen.
Marked FindMarked(const LogImage& image, const korx_mark& mark, size_t section) {
    const Last& last = mark.last[section];
    for (size_t i = image.entries.size(); i-- > 0;) {
        const Entry& entry = image.entries[i];
        if (entry.section == section && IsMarked(image, entry, last))
            return {.is_known = true, .behind = i + 1};
    }
    for (size_t i = image.entries.size(); i-- > 0;) {
        const Entry& entry = image.entries[i];
        if (entry.section != section || entry.offset + last.length != last.end)
            continue;
        if (IsMarkedAndCut(entry, last))
            return {.is_known = true, .behind = i + 1};
        if (IsMarkedAndLonger(image, entry, last))
            return {.is_known = true, .behind = i};
    }
    return FindPlace(image, last, section);
}

void SetMark(const LogImage& image, const Entry& entry, korx_mark* mark) {
    auto& last = mark->last[entry.section];
    last.hash = HashRecord(image.text(entry));
    last.end = entry.end();
    last.time_us = entry.time_us;
    last.length = entry.length;
}

}  // namespace korx
