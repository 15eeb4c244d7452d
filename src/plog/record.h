// What a product-log record is made of, and the road that every record takes to its file.
#pragma once

#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>

#include "base/codes.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "format/record.h"

namespace korx {

constexpr uint32_t kRecordFailed = kAllBits;

// A caller's message, at most 600 characters.
using MessageText = FixedText<kRecordRoom + 1>;

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
    char text_[kRecordRoom + 1] = {};
    uint32_t length_ = 0;
};

// Appends one record: the threads' mutex, the open file, the assembled text, the store. open says
// whether there is a file; store gets the record and gives the result.
template <typename Open, typename Store>
[[gnu::format(printf, 4, 0)]] uint32_t AppendRecord(pthread_mutex_t& mutex, Open open, Store store,
                                                    const char* format, va_list args) {
    const LogScope writing;
    const MutexGuard threads(mutex);
    if (threads.error() != 0 || !open())
        return kRecordFailed;
    Record record;
    if (!record.assemble(format, args))
        return kRecordFailed;
    return store(record);
}

}  // namespace korx
