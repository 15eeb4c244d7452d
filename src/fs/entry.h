// Which file a name leads to, and through which directory entries.
#pragma once

#include <sys/stat.h>

namespace korx {

inline bool IsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether deleting path would take the source away: path is the entry that source names, or a
// symbolic link on the way from there to the file, in the middle of a path or at its end. Another
// hard link of the file, or a symbolic link to it from elsewhere, is not.
bool HoldsSource(const char* path, const char* source);

}  // namespace korx
