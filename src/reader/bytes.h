// Copies of bytes and texts.
#pragma once

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "base/unique.h"

namespace korx {

// Bytes that were copied; without data there is no copy.
struct Bytes {
    MallocPtr<char> data;
    size_t size = 0;

    std::string_view view() const { return {data.get(), size}; }
};

// The part of a text from begin to end. substr would bring its exception in.
inline std::string_view Slice(std::string_view text, size_t begin, size_t end) {
    return {text.data() + begin, end - begin};
}
inline std::string_view Slice(std::string_view text, size_t begin) {
    return Slice(text, begin, text.size());
}

inline bool BeginsWith(std::string_view text, std::string_view wanted) {
    return text.size() >= wanted.size() && memcmp(text.data(), wanted.data(), wanted.size()) == 0;
}

// head with tail behind it, terminated. Null: out of memory.
inline MallocPtr<char> Joined(std::string_view head, std::string_view tail) {
    MallocPtr<char> text(static_cast<char*>(malloc(head.size() + tail.size() + 1)));
    if (text) {
        char* const end = std::copy(head.begin(), head.end(), text.get());
        *std::copy(tail.begin(), tail.end(), end) = '\0';
    }
    return text;
}
inline MallocPtr<char> Copy(std::string_view text) {
    return Joined(text, {});
}

// False: out of memory.
[[nodiscard]] inline bool CopyBytes(const void* data, size_t size, Bytes* bytes) {
    bytes->data = Copy({static_cast<const char*>(data), size});
    bytes->size = size;
    return bytes->data != nullptr;
}

}  // namespace korx
