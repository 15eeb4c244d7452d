#pragma once

#include <errno.h>

namespace korx {

// Puts errno back at the end of its scope, so that reporting or releasing something never hides
// the error that is being handled.
class ErrnoSaver {
  public:
    ErrnoSaver() : saved_(errno) {}
    ~ErrnoSaver() { errno = saved_; }
    ErrnoSaver(const ErrnoSaver&) = delete;
    ErrnoSaver& operator=(const ErrnoSaver&) = delete;

  private:
    const int saved_;
};

}  // namespace korx
