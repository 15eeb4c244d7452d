#include "reader/place.h"

#include <stdint.h>

#include <algorithm>

#include "reader/mark.h"

namespace korx {

Entry* Advance(Step step, korx_reader* reader) {
    Array<Entry>& entries = reader->image.entries;
    while (reader->next < entries.size()) {
        Entry& entry = entries[reader->next++];
        if (!entry.is(kSeen) && (step == Step::kAny || entry.is(KORX_RECORD_UNREAD)))
            return &entry;
    }
    return nullptr;
}

void SeekNewest(size_t count, korx_reader* reader) {
    Array<Entry>& entries = reader->image.entries;
    for (Entry& entry : entries)
        entry.clear(kSeen);
    reader->next = entries.size() - std::min(entries.size(), count);
}

korx_mark MarkOf(const korx_reader& reader) {
    const auto is_passed = [&](size_t index) {
        return index < reader.next || reader.image.entries[index].is(kSeen);
    };
    korx_mark mark = {};
    MarkNewest(reader.image, is_passed, &mark);
    return mark;
}

// The sections of a log are merged by time, so what was seen of each may be anywhere in the order.
bool SeekMark(const korx_mark& mark, korx_reader* reader) {
    SeekNewest(SIZE_MAX, reader);
    Array<Entry>& entries = reader->image.entries;
    bool found_all = true;
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (mark.last[s].length == 0)
            continue;
        const Marked marked = FindMarked(reader->image, mark, s);
        found_all &= marked.is_known;
        for (size_t i = 0; i < marked.behind; ++i)
            entries[i].set(entries[i].section == s ? kSeen : 0);
    }
    return found_all;
}

}  // namespace korx
