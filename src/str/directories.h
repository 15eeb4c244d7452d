// The making of directories along a path.
#pragma once

#include <errno.h>
#include <sys/stat.h>

namespace korx {

// Makes the missing directories of an absolute path, the outermost first, and hands the path of
// each that it has made to made. What exists is taken as it is, a file included; a directory that
// another process makes meanwhile is as good as ours. False, with errno, when one cannot be made.
// The path is cut meanwhile; only after a failure it stays cut.
template <typename Made>
[[nodiscard]] bool MakeDirectories(char* path, mode_t mode, Made made) {
    for (char* end = path + 1;; ++end) {
        const char separator = *end;
        if (separator != '/' && separator != '\0')
            continue;
        *end = '\0';
        if (mkdir(path, mode) == 0)
            made(path);
        else if (errno != EEXIST)
            return false;
        *end = separator;
        if (separator == '\0')
            return true;
    }
}

}  // namespace korx
