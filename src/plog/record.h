// What a product-log record is made of, and how the product logs report.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <syslog.h>

#include "base/codes.h"
#include "base/text.h"

namespace korx {

constexpr uint32_t kRecordFailed = kAllBits;
constexpr int kRecordLimit = 600;  // a record with its terminator

// The agent's log types.
constexpr uint32_t kAgentSecurity = 1;
constexpr uint32_t kAgentDiag = 9;
constexpr uint32_t kAgentLife = 22;

// A caller's message, at most 600 characters.
using MessageText = FixedText<kRecordLimit + 1>;

// DBG_SysLog of an argument list.
[[gnu::format(printf, 2, 0)]] void DbgSysLogV(int priority, const char* format, va_list args);

// Reports a product log's failure to the system log and hands its code back.
template <typename Code>
[[gnu::format(printf, 2, 3)]] Code DbgFail(Code code, const char* format, ...) {
    va_list args;
    va_start(args, format);
    DbgSysLogV(LOG_ERR, format, args);
    va_end(args);
    return code;
}

// The product logs' name of a level; everything above 3 is "FATAL".
const char* LevelName(uint32_t level);

// One record: the time stamp and the text behind it.
class Record {
  public:
    // False when the record does not fit.
    [[nodiscard, gnu::format(printf, 2, 0)]] bool assemble(const char* format, va_list args);

    const char* text() const { return text_; }
    uint32_t length() const { return length_; }

  private:
    char text_[kRecordLimit + 1] = {};
    uint32_t length_ = 0;
};

}  // namespace korx
