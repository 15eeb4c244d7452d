#include "base/bounded.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "base/arguments.h"
#include "base/print.h"

namespace korx {
namespace {

[[gnu::format(printf, 3, 0)]] int Print(char* dest, size_t limit, const char* format,
                                        va_list args) {
    Arguments again;
    va_copy(again.list, args);
    const int length = PrintPlain(dest, limit, format, &again);
    return length == kNotPlain ? vsnprintf(dest, limit + 1, format, args) : length;
}

}  // namespace

int memcpy_s(void* dest, size_t dest_max, const void* src, size_t count) {
    if (dest == nullptr || src == nullptr || dest_max == 0)
        return EINVAL;
    if (count > dest_max)
        return ERANGE;
    memcpy(dest, src, count);
    return 0;
}

int memset_s(void* dest, size_t dest_max, int value, size_t count) {
    if (dest == nullptr || dest_max == 0)
        return EINVAL;
    if (count > dest_max)
        return ERANGE;
    memset(dest, value, count);
    return 0;
}

int strcpy_s(char* dest, size_t dest_max, const char* src) {
    return strncpy_s(dest, dest_max, src, dest_max);
}

int strncpy_s(char* dest, size_t dest_max, const char* src, size_t count) {
    if (dest == nullptr || dest_max == 0)
        return EINVAL;
    if (src == nullptr) {
        dest[0] = '\0';
        return EINVAL;
    }
    const size_t length = strnlen(src, count);
    if (length >= dest_max) {
        dest[0] = '\0';
        return ERANGE;
    }
    memmove(dest, src, length);
    dest[length] = '\0';
    return 0;
}

int strncat_s(char* dest, size_t dest_max, const char* src, size_t count) {
    if (dest == nullptr || dest_max == 0)
        return EINVAL;
    const size_t used = strnlen(dest, dest_max);
    const size_t added = src == nullptr ? 0 : strnlen(src, count);
    if (src == nullptr || added >= dest_max - used) {
        dest[0] = '\0';
        return src == nullptr ? EINVAL : ERANGE;
    }
    memmove(dest + used, src, added);
    dest[used + added] = '\0';
    return 0;
}

int sprintf_s(char* dest, size_t dest_max, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return vsprintf_s(dest, dest_max, format, args.list);
}

int vsprintf_s(char* dest, size_t dest_max, const char* format, va_list args) {
    return vsnprintf_s(dest, dest_max, dest_max, format, args);
}

int snprintf_s(char* dest, size_t dest_max, size_t count, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    return vsnprintf_s(dest, dest_max, count, format, args.list);
}

int vsnprintf_s(char* dest, size_t dest_max, size_t count, const char* format, va_list args) {
    if (dest == nullptr || dest_max == 0)
        return -1;
    const size_t limit = std::min(count, dest_max - 1);
    const int length = format == nullptr ? -1 : Print(dest, limit, format, args);
    if (length < 0 || static_cast<size_t>(length) > limit) {
        dest[0] = '\0';
        return -1;
    }
    return length;
}

int sscanf_s(const char* text, const char* format, ...) {
    if (text == nullptr || format == nullptr)
        return -1;
    Arguments args;
    va_start(args.list, format);
    return vsscanf(text, format, args.list);
}

}  // namespace korx
