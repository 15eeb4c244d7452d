// From a name, a descriptor or bytes to a reader.
#pragma once

#include <string_view>

#include "reader/error.h"
#include "reader/reader.h"

namespace korx {

// A reader of a log that is known, but not copied yet.
[[nodiscard]] korx_reader_code Prepare(int fd, const char* path, korx_log_kind kind,
                                       const korx_reader_options& options, const Refusal& error,
                                       UniqueReader* reader);

// Makes the bytes that were copied into a reader's image records, unread or not, and damage.
[[nodiscard]] korx_reader_code Finish(const Refusal& error, korx_reader* reader);

// Tells anew what of a reader's records is unread, and fills its info. cursor: null when there is
// none.
void Judge(const Cursor* cursor, korx_reader* reader);

// fd: the caller's descriptor; negative: the log is opened by its path.
[[nodiscard]] korx_reader_code OpenFile(int fd, const char* path, korx_log_kind kind,
                                        const korx_reader_options& options, const Refusal& error,
                                        UniqueReader* reader);

[[nodiscard]] korx_reader_code OpenMemory(std::string_view bytes, korx_log_kind kind,
                                          const korx_reader_options& options, const Refusal& error,
                                          UniqueReader* reader);

// The kind of log that has this name, directories left out; KORX_LOG_AUTO: none.
korx_log_kind KindOfName(const char* path);

}  // namespace korx
