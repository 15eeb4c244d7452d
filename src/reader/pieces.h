// Takes the head of a record apart.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

#include "korx/reader.h"

namespace korx {

// Reads a head piece by piece. Once a piece is not there everything after it fails as well.
class Pieces {
  public:
    explicit Pieces(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool ok() const { return ok_; }
    const char* at() const { return at_; }

    Pieces& literal(std::string_view wanted) {
        if (!ok_ || left() < wanted.size() || memcmp(at_, wanted.data(), wanted.size()) != 0)
            return fail();
        at_ += wanted.size();
        return *this;
    }
    // As %u prints it.
    Pieces& number(uint32_t* value) { return digits(10, value); }
    Pieces& signed_number(int32_t* value) {
        const bool negative = ok_ && left() > 0 && *at_ == '-';
        at_ += negative ? 1 : 0;
        uint32_t magnitude = 0;
        digits(10, &magnitude);
        *value = static_cast<int32_t>(negative ? 0 - magnitude : magnitude);
        return *this;
    }
    // As %#x prints it.
    Pieces& alternate_hex(uint32_t* value) {
        if (!ok_ || left() < 1)
            return fail();
        if (left() < 2 || at_[0] != '0' || at_[1] != 'x')
            return digits(1, value);  // nothing but a single 0
        at_ += 2;
        return digits(16, value);
    }
    // One of the words with the tail behind it; its index in *which.
    template <size_t N>
    Pieces& one_of(const char* const (&words)[N], std::string_view tail, uint32_t* which) {
        for (size_t i = 0; ok_ && i < N; ++i) {
            Pieces attempt = *this;
            if (attempt.literal(words[i]).literal(tail).ok()) {
                *which = static_cast<uint32_t>(i);
                return *this = attempt;
            }
        }
        return fail();
    }

    // Whether all pieces were there. If so the record gets its level, the fields that were read,
    // and its message, which begins behind them.
    [[nodiscard]] bool finish(const char* const* levels, uint32_t level, uint32_t fields,
                              korx_record* record) const {
        if (!ok_)
            return false;
        record->level = level;
        record->level_name = levels[level];
        record->message = at_;
        record->fields |= fields | KORX_FIELD_LEVEL | KORX_FIELD_MESSAGE;
        return true;
    }

  private:
    size_t left() const { return static_cast<size_t>(end_ - at_); }
    Pieces& fail() {
        ok_ = false;
        return *this;
    }
    static uint32_t DigitValue(char c) {
        if (c >= '0' && c <= '9')
            return static_cast<uint32_t>(c - '0');
        return c >= 'a' && c <= 'f' ? static_cast<uint32_t>(c - 'a') + 10 : UINT32_MAX;
    }
    Pieces& digits(uint32_t base, uint32_t* value) {
        const char* const first = at_;
        uint64_t sum = 0;
        while (ok_ && at_ < end_ && DigitValue(*at_) < base && sum <= UINT32_MAX)
            sum = sum * base + DigitValue(*at_++);
        const auto count = at_ - first;
        const bool leading_zero = count > 1 && *first == '0';
        if (!ok_ || count == 0 || leading_zero || sum > UINT32_MAX)
            return fail();
        *value = static_cast<uint32_t>(sum);
        return *this;
    }

    const char* at_;
    const char* end_;
    bool ok_ = true;
};

// Whether at most one of a head's fixed pieces is missing in a text.
template <size_t N>
bool NearlyAllIn(const char* const (&wanted)[N], std::string_view text) {
    size_t missing = 0;
    for (const char* const piece : wanted)
        missing += memmem(text.data(), text.size(), piece, strlen(piece)) == nullptr;
    return missing <= 1;
}

}  // namespace korx
