// What has been appended to a log since it was copied.
#pragma once

#include "reader/reader.h"

namespace korx {

// kUnknown: something else has happened to the log, or may have.
enum class Appended { kNothing, kRecords, kUnknown };

// Reads what is new in the log, which is locked, and makes it part of the reader's copy. Judging
// its records is left to the caller. kUnknown: the reader is as it was.
[[nodiscard]] Appended TakeAppended(const LogFile& log, korx_reader* reader);

}  // namespace korx
