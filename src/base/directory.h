// The two parts of a path: its last component, and the directory that leads there.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "base/system_result.h"
#include "base/text.h"
#include "base/unique.h"

namespace korx {

// Behind the last slash; empty for a path that ends in one.
inline const char* BaseName(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

// Without the slash at its end; "." for a path without a directory, "/" for what stands in the
// root.
inline std::string_view DirectoryOf(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return slash == 0 ? "/" : std::string_view(path.data(), slash);
}

// Makes a name that was created, replaced or removed in the path's directory last. A file's own
// fsync says nothing about its name.
inline SystemResult SyncDirectoryOf(const char* path) {
    const std::string_view directory = DirectoryOf(path);
    FixedText<PATH_MAX> text;
    if (directory.size() >= text.capacity() ||
        !text.format("%.*s", static_cast<int>(directory.size()), directory.data()))
        return {ENAMETOOLONG};
    const UniqueFd fd(open(text.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && fsync(fd.get()) == 0 ? SystemResult{} : SystemResult::Failed();
}

}  // namespace korx
