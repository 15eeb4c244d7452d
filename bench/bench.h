// What the benchmarks share. Each hot path is measured beside its floor: the same system calls in a
// bare loop. Only the ratio of the two says anything; scripts/bench prints it.
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace bench {

// In memory, so that the disk does not hide what the library costs.
inline const std::string& Dir() {
    static const std::string dir = [] {
        char name[] = "/dev/shm/korx-bench-XXXXXX";
        return std::string(mkdtemp(name));
    }();
    return dir;
}

inline std::string Path(const char* name) {
    return Dir() + "/" + name;
}

// The floor has no use for results; a failed call would make it look fast.
inline void Must(bool done) {
    if (!done)
        abort();
}

inline void SetRecordLock(int fd, short type) {
    struct flock request = {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    Must(fcntl(fd, type == F_UNLCK ? F_SETLK : F_SETLKW, &request) == 0);
}

inline void Put(int fd, off_t position, const std::string& bytes) {
    Must(lseek(fd, position, SEEK_SET) == position);
    Must(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
}

inline void Get(int fd, size_t size) {
    char bytes[64];
    Must(lseek(fd, 0, SEEK_SET) == 0 && read(fd, bytes, size) >= 0);
}

}  // namespace bench
