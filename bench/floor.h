// What floors are made of: system calls whose failure ends the program.
#pragma once

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "contest.h"

namespace bench {

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) { MUST(fd >= 0); }
    Descriptor(const std::string& path, int flags, mode_t mode = 0640)
        : Descriptor(open(path.c_str(), flags | O_CLOEXEC, mode)) {}
    ~Descriptor() { close(fd_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

inline void SetRecordLock(int fd, short type) {
    struct flock request = {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    MUST(fcntl(fd, type == F_UNLCK ? F_SETLK : F_SETLKW, &request) == 0);
}

inline void Resolve(const std::string& path) {
    char resolved[PATH_MAX];
    MUST(realpath(path.c_str(), resolved) != nullptr);
}

inline void Look(const std::string& path) {
    struct stat status;
    MUST(stat(path.c_str(), &status) == 0);
}

inline void LookAtZone() {
    struct stat status;
    (void) stat("/etc/localtime", &status);  // it need not be there
}

template <typename T>
T Get(int fd, off_t position) {
    T value = {};
    MUST(lseek(fd, position, SEEK_SET) == position && read(fd, &value, sizeof value) >= 0);
    return value;
}

inline void Put(int fd, off_t position, const void* bytes, size_t size) {
    MUST(lseek(fd, position, SEEK_SET) == position);
    MUST(write(fd, bytes, size) == static_cast<ssize_t>(size));
}

}  // namespace bench
