// The directory that a path leads through to its last component.
#pragma once

#include <string.h>

#include <string_view>

namespace korx {

// Without the slash at its end; "." for a path without a directory, "/" for what stands in the
// root.
inline std::string_view DirectoryOf(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return slash == 0 ? "/" : std::string_view(path.data(), slash);
}

// The last component itself: what stands behind the last slash, or all of the path.
inline const char* NameOf(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

}  // namespace korx
