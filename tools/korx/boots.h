// Which boot a record is from. A board without a clock of its own starts each boot at the same
// time, so a boot begins where the clock was set back.
#pragma once

#include <stdint.h>

#include <array>
#include <string>

#include "format/start.h"
#include "korx/reader.h"

namespace korx::tool {

// Numbers the boots of one log, whose records it is shown oldest first. The sections of a start log
// begin and end at different times, so each is counted by itself.
class BootCounter {
  public:
    // Takes the next record and gives its boot, from 1.
    uint64_t next(const korx_record& record);
    // The place of that record's section, or 0.
    size_t section() const { return section_; }

  private:
    std::array<uint64_t, kSectionCount> boots_ = {};
    size_t section_ = 0;
};

// Which boot is wanted: 0 the newest, -1 the one before it, 1 the oldest. Throws Failure.
int64_t ParseBoot(const std::string& text);

// The records of one boot.
class BootFilter {
  public:
    // Reads the log to its end to count its boots, and goes back to its oldest record.
    BootFilter(korx_reader* reader, int64_t boot);

    // Whether any record is from the wanted boot.
    bool exists() const { return exists_; }
    // The next record will be the log's oldest one.
    void rewind() { counter_ = {}; }
    // Takes the next record. What comes after the newest boot while it is followed is wanted, too.
    bool matches(const korx_record& record);

  private:
    BootCounter counter_;
    std::array<uint64_t, kSectionCount> first_ = {};
    const bool is_newest_;
    bool exists_ = false;
};

}  // namespace korx::tool
