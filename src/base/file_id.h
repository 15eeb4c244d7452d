// Which file a descriptor is open on and a name leads to: names change hands while a lock is waited
// for, so what was opened is compared with them.
#pragma once

#include <sys/stat.h>

namespace korx {

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;  // 0: it could not be examined

    static FileId Of(const struct stat& st) { return {st.st_dev, st.st_ino}; }
    static FileId OfOpen(int fd) {
        struct stat st;
        return fstat(fd, &st) == 0 ? Of(st) : FileId{};
    }
    // Links are followed.
    static FileId At(const char* path) {
        struct stat st;
        return stat(path, &st) == 0 ? Of(st) : FileId{};
    }
    // A link is what it is.
    static FileId OfEntry(const char* path) {
        struct stat st;
        return lstat(path, &st) == 0 ? Of(st) : FileId{};
    }

    bool is_known() const { return inode != 0; }
    // What could not be examined is the same as nothing. While a descriptor of a file is open, no
    // other file gets its number; of one that was closed this proves nothing.
    bool is_same_as(const FileId& other) const {
        return is_known() && inode == other.inode && device == other.device;
    }
};

}  // namespace korx
