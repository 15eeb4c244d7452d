// The cursor: a small text file that remembers what has been acknowledged.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/system_result.h"
#include "korx/reader.h"

namespace korx {

// How much of the last record's end the cursor keeps. The writers may legally overwrite its
// beginning; what is left of its end then tells whether they have come any further.
constexpr size_t kTailSize = 64;

struct Cursor {
    korx_log_kind kind = KORX_LOG_AUTO;
    uint32_t log_len = 0;  // rings: the head as it was left
    uint32_t dump_len = 0;
    uint32_t total_len = 0;
    korx_mark mark = {};
    uint32_t tail_length = 0;
    unsigned char tail[kTailSize] = {};
};

enum class CursorState { kFound, kNone, kDamaged };

CursorState LoadCursor(const char* path, Cursor* cursor);

// Replaces the file at path as a whole, durably.
SystemResult StoreCursor(const char* path, const Cursor& cursor);

bool SameCursor(const Cursor& a, const Cursor& b);

}  // namespace korx
