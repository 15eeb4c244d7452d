// Cures a ring whose head is damaged.
#pragma once

#include "reader/error.h"
#include "reader/reader.h"

namespace korx {

// Who is handed the records of a damaged ring.
struct Keeper {
    korx_reader_keep* keep;
    void* context;
};

// See korx_reader_repair. reader: prepared, but without a copy of the log.
[[nodiscard]] korx_reader_code Repair(const Keeper& keeper, const Refusal& error,
                                      korx_reader* reader, korx_reader_repaired* repaired);

}  // namespace korx
