// The answers of a reader of standard output, on a descriptor of its own: one line a batch.
#pragma once

#include <stdint.h>

#include <string>

#include "output.h"

namespace korx::tool {

class Confirmation {
  public:
    // fd: where the answers come from; it stays the caller's. Throws Failure.
    Confirmation(int fd, bool json);

    // Says that the batch ends here: an empty line, which no record has, or a JSON object.
    void end_batch(uint64_t records, Output* out);
    // Returns when the batch was confirmed. Throws Failure when it was not, ClosedPipe when nobody
    // reads from out_fd any more, and Stopped.
    void await(int out_fd) const;

  private:
    void refuse(const std::string& why) const;

    int fd_;
    bool json_;
    uint64_t batch_ = 0;
};

}  // namespace korx::tool
