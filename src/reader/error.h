// How a call is refused: what it hands back, and what the caller's error then says.
#pragma once

#include <stdint.h>

#include "korx/reader.h"

namespace korx {

// Where the failures of one log are explained. The caller may have given no place for that.
class Refusal {
  public:
    // path begins the text; null: the text stands alone.
    explicit Refusal(korx_reader_error* error, const char* path = nullptr)
        : error_(error), path_(path) {}

    // The same about another file, or about a place in it.
    Refusal about(const char* path) const { return Refusal(error_, path); }
    Refusal at(uint64_t offset) const {
        Refusal there = *this;
        there.offset_ = offset;
        return there;
    }

    // Fills the caller's error and hands code back. system_error: 0 where no call has failed.
    [[gnu::format(printf, 4, 5)]] korx_reader_code refuse(korx_reader_code code, int system_error,
                                                          const char* format, ...) const;

  private:
    korx_reader_error* error_;
    const char* path_;
    uint64_t offset_ = 0;
};

}  // namespace korx
