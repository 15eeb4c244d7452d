// The cursor: a small text file that remembers what has been acknowledged.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "korx/reader.h"

namespace korx {

// How much of the last record's end the cursor keeps. The writers may legally overwrite its
// beginning; what is left of its end then tells whether they have come any further.
constexpr size_t kTailSize = 64;

using Last = std::remove_extent_t<decltype(korx_mark::last)>;

struct Tail {
    uint32_t length = 0;
    unsigned char bytes[kTailSize] = {};
};

// Rings: a position of the reader, and the record that ends there. Length 0: it is not known.
struct Taken {
    uint32_t dump_len = 0;
    Last last = {};
    Tail tail;
};

// A ring's cursor is written before its head is, and no one can write both at once. So it holds the
// position on either side of the acknowledgement, and the head tells which of them counts.
struct Cursor {
    korx_log_kind kind = KORX_LOG_AUTO;
    unsigned form = 1;     // 2: with the position before
    uint32_t log_len = 0;  // rings: the head as it was left
    uint32_t total_len = 0;
    korx_mark mark = {};
    Taken after;  // its record is the first of the mark
    Taken before;
};

// The record that ends where a ring's head has its reader; null: the cursor doesn't know.
const Taken* TakenAt(const Cursor& cursor, uint32_t dump_len);

enum class CursorState {
    kFound,
    kNone,
    kForbidden,  // to this process
    kDamaged
};

CursorState LoadCursor(const char* path, Cursor* cursor);

// What became of a cursor: kept, not kept at all, or in its place without being known to last.
enum class Stored { kKept, kNot, kUnsure };

struct StoreResult {
    Stored stored = Stored::kKept;
    int error = 0;  // of the call that failed
};

// Replaces the file at path as a whole, durably. It gets the log's owner and mode. The caller holds
// the log's lock, which keeps others off the temporary file.
StoreResult StoreCursor(const char* path, int log_fd, const Cursor& cursor);

bool SameCursor(const Cursor& a, const Cursor& b);

}  // namespace korx
