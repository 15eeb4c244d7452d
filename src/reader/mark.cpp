#include "reader/mark.h"

namespace korx {

uint64_t HashRecord(std::string_view record) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : record)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash;
}

// Newest first: that is where a mark taken lately is, and of records that are alike the newest was
// meant, because nothing behind it had been seen.
size_t FindMarked(const LogImage& image, const korx_mark& mark, size_t section) {
    const auto& last = mark.last[section];
    for (size_t i = image.entries.size(); i-- > 0;) {
        const Entry& entry = image.entries[i];
        if (entry.section == section && entry.length == last.length &&
            HashRecord(image.text(entry)) == last.hash)
            return i;
    }
    return image.entries.size();
}

void SetMark(const LogImage& image, const Entry& entry, korx_mark* mark) {
    auto& last = mark->last[entry.section];
    last.hash = HashRecord(image.text(entry));
    last.end = entry.end();
    last.time_us = entry.time_us;
    last.length = entry.length;
}

}  // namespace korx
