#pragma once

#include <stdarg.h>
#include <stddef.h>

#include "base/bounded.h"

namespace korx {

// A zeroed text buffer of N bytes. What does not fit in N - 1 characters is refused: the call
// returns false and the text is empty.
template <size_t N>
class FixedText {
  public:
    [[nodiscard, gnu::format(printf, 2, 3)]] bool format(const char* format, ...) {
        va_list args;
        va_start(args, format);
        const bool fits = vformat(format, args);
        va_end(args);
        return fits;
    }
    [[nodiscard, gnu::format(printf, 2, 0)]] bool vformat(const char* format, va_list args) {
        return vsnprintf_s(text_, N, N - 1, format, args) >= 0;
    }

    const char* c_str() const { return text_; }
    char* data() { return text_; }
    bool empty() const { return text_[0] == '\0'; }
    static constexpr size_t size() { return N; }

  private:
    char text_[N] = {};
};

}  // namespace korx
