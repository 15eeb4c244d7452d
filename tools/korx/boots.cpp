#include "boots.h"

#include <errno.h>
#include <stdlib.h>

#include "common.h"
namespace korx::tool {
namespace {

// Text between the records stays with the record before it.
size_t SectionOf(const korx_record& record, size_t before) {
    if (record.kind != KORX_LOG_START || (record.fields & KORX_FIELD_NAME) == 0)
        return before;
    for (size_t i = 0; i < kSectionCount; ++i)
        if (std::string(record.name, record.name_length) == kModules[i])
            return i;
    return before;
}

}  // namespace

uint64_t BootCounter::next(const korx_record& record) {
    section_ = SectionOf(record, section_);
    uint64_t& boot = boots_[section_];
    if (boot == 0 || (record.flags & KORX_RECORD_CLOCK_BACK) != 0)
        ++boot;
    return boot;
}

int64_t ParseBoot(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const int64_t boot = strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0)
        throw Failure{kUsage, "--boot: '" + text +
                                  "' is no boot; 0 is the newest, -1 the one before, 1 the oldest"};
    return boot;
}

BootFilter::BootFilter(korx_reader* reader, int64_t boot) : is_newest_(boot == 0) {
    korx_record record;
    BootCounter counter;
    std::array<uint64_t, kSectionCount> last = {};
    while (korx_reader_next(reader, &record) != 0) {
        const uint64_t number = counter.next(record);
        last[counter.section()] = number;
    }
    korx_reader_rewind(reader);
    for (size_t i = 0; i < last.size(); ++i) {
        const int64_t wanted = boot > 0 ? boot : static_cast<int64_t>(last[i]) + boot;
        first_[i] = wanted > 0 ? static_cast<uint64_t>(wanted) : 0;
        exists_ |= wanted > 0 && first_[i] <= last[i];
    }
}

bool BootFilter::matches(const korx_record& record) {
    const uint64_t number = counter_.next(record);
    const uint64_t first = first_[counter_.section()];
    return is_newest_ ? number >= first : number == first;
}

}  // namespace korx::tool
