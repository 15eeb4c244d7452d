#pragma once

#include <errno.h>
#include <stddef.h>
#include <sys/types.h>
#include <unistd.h>

namespace korx {

// Writes until everything is out, however often write is interrupted or would block. Returns
// length, or the failing write's result (-1 or 0). errno is cleared first: a write that returns 0
// leaves it alone, and a stale EAGAIN would spin here for ever.
inline ssize_t WriteAll(int fd, const void* data, size_t length) {
    const char* bytes = static_cast<const char*>(data);
    size_t done = 0;
    while (done < length) {
        errno = 0;
        const ssize_t written = write(fd, bytes + done, length - done);
        if (written > 0)
            done += static_cast<size_t>(written);
        else if (errno != EAGAIN && errno != EINTR)
            return written;
    }
    return static_cast<ssize_t>(length);
}

}  // namespace korx
