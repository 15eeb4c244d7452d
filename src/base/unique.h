// One owner type per resource. None converts to the raw value by itself, so a raw close of an
// owned descriptor does not compile; every release keeps errno.
#pragma once

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "base/errno_saver.h"

namespace korx {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) {
        reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    // close is never retried: on Linux the descriptor is gone whatever it returns.
    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            const ErrnoSaver keep;
            (void) ::close(old);
        }
    }

  private:
    int fd_ = -1;
};

template <auto Release>
struct Releaser {
    template <typename T>
    void operator()(T* resource) const {
        const ErrnoSaver keep;
        (void) Release(resource);
    }
};

template <typename T>
using MallocPtr = std::unique_ptr<T, Releaser<::free>>;
using UniqueFile = std::unique_ptr<FILE, Releaser<::fclose>>;
using UniqueDir = std::unique_ptr<DIR, Releaser<::closedir>>;

}  // namespace korx
