// The bounds-checked string functions that every copy and format goes through.
//
// A text that does not fit is refused, never cut: the destination becomes the empty string and the
// call fails. A null or zero-sized destination, a null source and a formatter error fail the same
// way, and nothing is ever written past destMax bytes. The copies return 0 or an errno value
// (EINVAL, ERANGE); the formatters return the number of characters written or -1.
#pragma once

#include <stdarg.h>
#include <stddef.h>

namespace korx {

[[nodiscard]] int memcpy_s(void* dest, size_t dest_max, const void* src, size_t count);
[[nodiscard]] int memset_s(void* dest, size_t dest_max, int value, size_t count);
[[nodiscard]] int strcpy_s(char* dest, size_t dest_max, const char* src);

// Copies at most count characters of src and terminates.
[[nodiscard]] int strncpy_s(char* dest, size_t dest_max, const char* src, size_t count);

// Appends at most count characters of src to the text in dest.
[[nodiscard]] int strncat_s(char* dest, size_t dest_max, const char* src, size_t count);

[[nodiscard, gnu::format(printf, 3, 4)]] int sprintf_s(char* dest, size_t dest_max,
                                                       const char* format, ...);
[[nodiscard, gnu::format(printf, 3, 0)]] int vsprintf_s(char* dest, size_t dest_max,
                                                        const char* format, va_list args);

// Write at most count characters; a longer text is a failure.
[[nodiscard, gnu::format(printf, 4, 5)]] int snprintf_s(char* dest, size_t dest_max, size_t count,
                                                        const char* format, ...);
[[nodiscard, gnu::format(printf, 4, 0)]] int vsnprintf_s(char* dest, size_t dest_max, size_t count,
                                                         const char* format, va_list args);

[[nodiscard, gnu::format(scanf, 2, 3)]] int sscanf_s(const char* text, const char* format, ...);

}  // namespace korx
