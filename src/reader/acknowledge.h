// Remembers outside the reader what has been taken.
#pragma once

#include "reader/error.h"
#include "reader/reader.h"

namespace korx {

// Acknowledges what was handed out: in the ring's head and in the cursor, or in the cursor alone.
[[nodiscard]] korx_reader_code Acknowledge(const Refusal& error, korx_reader* reader);

}  // namespace korx
