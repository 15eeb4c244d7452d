// The file of a log: opening it, waiting for its writers, reading it.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

#include "base/unique.h"
#include "format/kinds.h"
#include "reader/error.h"

namespace korx {

// What a file is opened and locked for. Readers share the lock, who changes something has it alone.
enum class Access { kRead, kChange };

// Which file it is, whatever its name.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileId& other) const = default;
};

// A regular file. Where the descriptor is the caller's it stays the caller's.
class LogFile {
  public:
    // borrowed: the descriptor to use; negative: what stands at path is opened.
    [[nodiscard]] korx_reader_code open(const char* path, int borrowed, Access access,
                                        const Refusal& error);
    // Looks anew at what fstat tells: while a lock was waited for, the file may have grown.
    [[nodiscard]] korx_reader_code examine(const Refusal& error);

    int fd() const { return fd_; }
    uint64_t size() const { return static_cast<uint64_t>(stat_.st_size); }
    FileId id() const { return {stat_.st_dev, stat_.st_ino}; }

  private:
    UniqueFd own_;
    int fd_ = -1;
    struct stat stat_ = {};
};

// The lock by which the writers of a kind exclude each other. Where they don't, a flock still keeps
// readers that acknowledge apart.
class LogLock {
  public:
    // of: may be opened later.
    LogLock(LogLockKind kind, const LogFile& of) : kind_(kind), file_(of) {}
    ~LogLock();
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    [[nodiscard]] korx_reader_code acquire(Access access, uint32_t timeout_ms,
                                           const Refusal& error);

  private:
    bool attempt(Access access) const;

    const LogLockKind kind_;
    const LogFile& file_;
    bool held_ = false;
};

// Gives a file that stands beside the log its owner and mode, so that whoever may read the log may
// read that, too. Where that may not be, the file stays its maker's.
void LikeLog(int log_fd, int fd);

// How much was read before the end of the file; less than that with error set where reading failed.
struct ReadResult {
    size_t count = 0;
    int error = 0;
};

// Reads up to count bytes at offset; less at the end of the file.
ReadResult ReadUpTo(int fd, void* buffer, size_t count, uint64_t offset);

// Whether all count bytes at offset could be read.
bool ReadExactly(int fd, void* buffer, size_t count, uint64_t offset);

}  // namespace korx
