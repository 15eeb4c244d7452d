// Logs that are being shown, and their records in the order of time.
#pragma once

#include <stdint.h>

#include <optional>
#include <vector>

#include "boots.h"
#include "progress.h"
#include "sources.h"
#include "when.h"

namespace korx::tool {

// A log that is being shown; its reader stands behind what has been.
struct Shown {
    explicit Shown(Source from) : source(std::move(from)) {}

    Source source;
    Reader reader;
    korx_mark mark = {};  // where it begins
    std::optional<BootFilter> boot;
    korx_record record = {};
    bool has_record = false;
    int64_t time_us = INT64_MIN;  // a damaged record stays behind the one before it

    // To the first record, where the reader stands at its place.
    void begin() {
        if (boot)
            boot->rewind();
        time_us = INT64_MIN;
        advance();
    }
    void advance() {
        do
            has_record = korx_reader_next(reader.get(), &record) != 0;
        while (has_record && boot && !boot->matches(record));
        if (has_record && (record.fields & KORX_FIELD_TIME) != 0)
            time_us = Microseconds(record.time);
    }
};

// Hands all records from where the readers stand to use, oldest first.
template <typename Use>
void Merge(std::vector<Shown>& logs, Use use) {
    Progress progress("show");
    uint64_t total = 0;
    std::vector<Shown*> open;
    for (Shown& log : logs) {
        if (!log.reader)
            continue;
        total += InfoOf(log.reader.get()).records;
        log.begin();
        open.push_back(&log);
    }
    while (true) {
        Shown* oldest = nullptr;
        for (Shown* log : open)
            if (log->has_record && (oldest == nullptr || log->time_us < oldest->time_us))
                oldest = log;
        if (oldest == nullptr)
            return;
        use(*oldest);
        progress.step(total);
        oldest->advance();
    }
}

}  // namespace korx::tool
