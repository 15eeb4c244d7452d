// Text buffers of a fixed size, and the sizes that paths have.
#pragma once

#include <stdarg.h>
#include <stddef.h>

#include "base/arguments.h"
#include "base/bounded.h"

namespace korx {

// A zeroed text buffer of N bytes. What does not fit in N - 1 characters is refused: the call
// returns false and the text is empty.
template <size_t N>
class FixedText {
  public:
    [[nodiscard, gnu::format(printf, 2, 3)]] bool format(const char* format, ...) {
        Arguments args;
        va_start(args.list, format);
        return vformat(format, args.list);
    }
    [[nodiscard, gnu::format(printf, 2, 0)]] bool vformat(const char* format, va_list args) {
        return vsnprintf_s(text_, N, N - 1, format, args) >= 0;
    }

    const char* c_str() const { return text_; }
    char* data() { return text_; }
    bool empty() const { return text_[0] == '\0'; }
    // Bytes, the terminator included; not the length of what is in it.
    static constexpr size_t capacity() { return N; }

  private:
    char text_[N] = {};
};

// The rooms that paths get. They are part of what callers see: a path that does not fit is refused.
constexpr size_t kComponentSize = 128;  // one component
constexpr size_t kDirectorySize = 256;  // a directory, a log's or a profile's path
constexpr size_t kFullPathSize = 384;   // a directory with a component behind it
constexpr size_t kBuildSize = 512;      // a path that is being built or resolved

using ComponentText = FixedText<kComponentSize>;
using DirectoryText = FixedText<kDirectorySize>;
using FullPathText = FixedText<kFullPathSize>;
using BuildText = FixedText<kBuildSize>;

}  // namespace korx
