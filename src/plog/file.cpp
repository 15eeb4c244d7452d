#include "plog/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "korx/fs.h"
#include "korx/plog.h"

namespace korx {

bool IsFileOfPath(int fd, const char* path) {
    struct stat named;
    if (stat(path, &named) < 0)
        return false;
    struct stat opened;
    return fstat(fd, &opened) < 0 ||
           (opened.st_dev == named.st_dev && opened.st_ino == named.st_ino);
}

void CloseSlot(int* slot, int cleared) {
    const ErrnoSaver keep;
    (void) close(std::exchange(*slot, cleared));
}

uint32_t OpenAtEnd(const char* path, int* slot) {
    if (IsOpen(*slot)) {
        if (IsFileOfPath(*slot, path))
            return kOk;
        CloseSlot(slot, 0);
    }
    if (ORX_CreateDirByFile(path) != kOk)
        return kAllBits;
    if (LOG_OpenFile(path, kLogOpenFlags, slot) != kOk)
        return kAllBits;
    return lseek(*slot, 0, SEEK_END) < 0 ? kAllBits : kOk;
}

}  // namespace korx
