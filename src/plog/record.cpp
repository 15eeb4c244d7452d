#include "plog/record.h"

#include <algorithm>
#include <iterator>

#include "base/local_time.h"
#include "format/stamp.h"
#include "korx/plog.h"

namespace korx {

const char* LevelName(uint32_t level) {
    return kRecordLevels[std::min<size_t>(level, std::size(kRecordLevels) - 1)];
}

bool Record::assemble(const char* format, va_list args) {
    return LOG_BuffAddTime(text_, kRecordRoom, &length_, format, args) == kOk;
}

}  // namespace korx

using namespace korx;

int LOG_GetCurTime(char* buffer, uint32_t size) {
    const LocalNow now;
    const struct tm& local = now.local;
    return snprintf_s(buffer, size, size == 0 ? 0 : size - 1, kDashedFormat, local.tm_year + 1900,
                      local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                      now.micros());
}

uint32_t LOG_BuffAddTime(char* buffer, int size, uint32_t* length, const char* format,
                         va_list args) {
    if (size <= 0)
        return kAllBits;
    const auto room = static_cast<uint32_t>(size);
    const int stamp = LOG_GetCurTime(buffer, room);
    if (stamp < 0)
        return kAllBits;
    const auto used = static_cast<uint32_t>(stamp);
    const int text = vsprintf_s(buffer + used, room - used, format, args);
    if (text < 0)
        return kAllBits;
    *length = used + static_cast<uint32_t>(text);
    return kOk;
}
