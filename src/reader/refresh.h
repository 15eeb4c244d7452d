// Brings a reader up to its log as it is now.
#pragma once

#include "reader/error.h"
#include "reader/reader.h"

namespace korx {

// See korx_reader_refresh. Where it fails the reader stays as it was.
[[nodiscard]] korx_reader_code Refresh(const Refusal& error, korx_reader* reader,
                                       korx_refreshed* how);

}  // namespace korx
