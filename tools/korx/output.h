// Buffered output that reports every failure and can be made durable.
#pragma once

#include <stdint.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "common.h"

namespace korx::tool {

class Output {
  public:
    Output() : Output(STDOUT_FILENO, "standard output") {}
    Output(int fd, std::string name) : fd_(fd), name_(std::move(name)) { buffer_.reserve(kRoom); }
    // What was not flushed is dropped: a command that failed has said so.
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int fd() const { return fd_; }
    std::string& buffer() { return buffer_; }
    void write(std::string_view text) {
        buffer_ += text;
        if (buffer_.size() >= kFull)
            flush();
    }
    void flush_if_full() {
        if (buffer_.size() >= kFull)
            flush();
    }
    // Throws Failure, ClosedPipe or Stopped.
    void flush();
    // Flushes, and syncs a regular file.
    void sync();
    // Bytes that the descriptor has taken so far.
    uint64_t written() const { return written_; }
    // Drops what is not flushed.
    void discard() { buffer_.clear(); }
    // Writes wait for room in a way that SIGINT and SIGTERM end.
    void set_interruptible() { interruptible_ = true; }

  private:
    static constexpr size_t kFull = 64 << 10;
    static constexpr size_t kRoom = kFull + 8192;

    void wait_writable() const;

    int fd_;
    std::string name_;
    std::string buffer_;
    uint64_t written_ = 0;
    bool interruptible_ = false;
};

// Whether text for people on this descriptor is coloured: on a terminal, unless NO_COLOR is set.
bool WantsColor(int fd);

}  // namespace korx::tool
