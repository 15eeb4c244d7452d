// By what a record is known wherever it gets to.
#pragma once

#include <stddef.h>

#include "reader/reader.h"

namespace korx {

// See korx_reader_record_id. False: there is not enough room, and id is the empty text.
[[nodiscard]] bool FormatId(const korx_reader& reader, const korx_record& record, char* id,
                            size_t size);

}  // namespace korx
