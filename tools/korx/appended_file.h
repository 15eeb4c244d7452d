// A regular file at whose end records are written.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/unique.h"
#include "output.h"

namespace korx::tool {

class AppendedFile {
  public:
    // fd is written to and stays the caller's. Throws Failure when somebody else has the lock.
    AppendedFile(int fd, std::string name);

    // Remembers where the batch begins. Where the file ends in the middle of a line, that line is
    // ended first, so that no record is glued to it.
    void begin(Output* out);
    // The batch of so many bytes stays.
    void keep(uint64_t written) { line_end_ = start_ + static_cast<off_t>(written); }
    // Cuts the batch off again, of which so many bytes were written. Returns whether it is gone.
    bool take_back(uint64_t written);

  private:
    bool ends_inside_line() const;

    int fd_;
    std::string name_;
    UniqueFd own_;  // may be missing
    off_t start_ = 0;
    off_t line_end_ = 0;  // a place that is known to be one
    bool is_at_end_ = false;
};

}  // namespace korx::tool
