#pragma once

#include <errno.h>
#include <stddef.h>
#include <sys/types.h>
#include <unistd.h>

namespace korx {

// Calls write(done) until everything is out, however often it is interrupted or would block.
// Returns length, or the failing write's result (-1 or 0). errno is cleared first: a write that
// returns 0 leaves it alone, and a stale EAGAIN would spin here for ever.
template <typename Write>
ssize_t MoveAll(size_t length, Write write) {
    size_t done = 0;
    while (done < length) {
        errno = 0;
        const ssize_t written = write(done);
        if (written > 0)
            done += static_cast<size_t>(written);
        else if (errno != EAGAIN && errno != EINTR)
            return written;
    }
    return static_cast<ssize_t>(length);
}

inline ssize_t WriteAll(int fd, const void* data, size_t length) {
    return MoveAll(length, [=](size_t done) {
        return write(fd, static_cast<const char*>(data) + done, length - done);
    });
}

// The same from an offset on; the position of the descriptor stays.
inline ssize_t WriteAllAt(int fd, const void* data, size_t length, off_t offset) {
    return MoveAll(length, [=](size_t done) {
        return pwrite(fd, static_cast<const char*>(data) + done, length - done,
                      offset + static_cast<off_t>(done));
    });
}

}  // namespace korx
