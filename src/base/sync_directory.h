#pragma once

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include "base/directory.h"
#include "base/system_result.h"
#include "base/text.h"
#include "base/unique.h"

namespace korx {

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
