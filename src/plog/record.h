// What a product-log record is made of, and what surrounds its way to the file.
#pragma once

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
    char text_[kRecordRoom + 1];
    uint32_t length_ = 0;
};

// A thread on the road of a record: marked as a log's writer, not cancelled, alone in its process
// for this log, and silent until the locks are free again. The parts end from the last to the
// first.
class RecordRoad {
  public:
    explicit RecordRoad(ForkMutex& mutex) : threads_(mutex) {}
    explicit operator bool() const { return threads_.error() == 0; }

  private:
    const HeldReports reports_;
    const LogScope mark_;
    const MutexGuard threads_;
};

}  // namespace korx
