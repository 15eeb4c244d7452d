// Getting the bytes of a log: opening, waiting for its writers, copying.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

#include "base/unique.h"
#include "korx/reader.h"
#include "reader/image.h"

namespace korx {

constexpr uint32_t kDefaultTimeoutMs = 5000;
constexpr uint64_t kDefaultMaxBytes = uint64_t{64} << 20;

// Fills error, if there is one, and hands code back. format may begin with the path.
[[gnu::format(printf, 5, 6)]] korx_reader_code Refuse(korx_reader_error* error,
                                                      korx_reader_code code, int system_error,
                                                      uint64_t offset, const char* format, ...);

// The lock by which the writers of a kind exclude each other. Record locks are taken for the open
// file, not for the process: like that they exclude the writers of this process as well, and
// releasing them does not release those that it holds.
class LogLock {
  public:
    LogLock(korx_log_kind kind, int fd) : kind_(kind), fd_(fd) {}
    ~LogLock() { release(); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    // Waits at most so long. path is for the message.
    [[nodiscard]] korx_reader_code acquire(bool exclusive, uint32_t timeout_ms, const char* path,
                                           korx_reader_error* error);
    void release();

  private:
    bool attempt(bool exclusive) const;

    const korx_log_kind kind_;
    const int fd_;
    bool held_ = false;
};

// What there is to know to get at a log's file again.
struct Source {
    const char* path = "";  // for messages too
    const char* header_path = nullptr;
    int borrowed = -1;  // the caller's descriptor
    uint32_t timeout_ms = kDefaultTimeoutMs;
    uint64_t max_bytes = kDefaultMaxBytes;
    bool lock = true;
};

// Opens a regular file, whatever stands at path. opened keeps the descriptor unless it is borrowed.
korx_reader_code OpenLog(const char* path, int borrowed, int flags, UniqueFd* opened, int* fd,
                         struct stat* st, korx_reader_error* error);

// Copies the log, and the start log's header, into the image. stat: of the log.
korx_reader_code TakeSnapshot(const Source& source, LogImage* image, struct stat* st,
                              korx_reader_error* error);

// Tells the kind from the beginning of the file.
korx_reader_code PeekKind(const Source& source, korx_log_kind* kind, korx_reader_error* error);

// Reads count bytes at offset. False when they are not all there or reading fails (errno is 0 in
// the first case).
bool ReadExactly(int fd, void* buffer, size_t count, uint64_t offset);

}  // namespace korx
