// The files of the product logs: kept open between records, opened anew when their file is gone or
// is another one, and locked as a whole.
#pragma once

#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>

#include "base/file_id.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/unique.h"

namespace korx {

constexpr int kLogOpenFlags = O_RDWR | O_CREAT;

// Opens a log's file, close-on-exec and above the standard streams: text meant for those would go
// into the log. A FIFO is no log, and writing to it would hang once it is full: refused with ENXIO.
struct OpenedLog {
    UniqueFd fd;
    FileId id;

    // By a resolved path. False with errno.
    bool open(const char* path, int flags);
    // By a path that is its own resolution, without resolving it. False for all others, and when
    // anything fails.
    bool open_as_named(const char* path, int flags);

  private:
    bool take(UniqueFd opened);
};

// A slot never opened holds 0, a failed open leaves -1.
inline bool IsOpen(int slot) {
    return slot >= 1;
}

// KORX_DLogFsync reads a slot without the mutex that its writers hold.
inline void SetSlot(int* slot, int fd) {
    __atomic_store_n(slot, fd, __ATOMIC_RELAXED);
}

// The answer to whether a slot's descriptor still is the library's.
enum class SlotState { kClosed, kOurs, kForeign };

// Looks at what is open in the slot. The process may have closed the descriptor and may have
// something else open under its number by now: such a one is neither used nor closed, and the slot
// is reset to cleared.
SlotState ExamineSlot(int* slot, int cleared);

// Whether path still names the file that is open in the slot, which is ours. A log that was removed
// or replaced must not go on filling the orphan.
bool IsFileOfPath(const int* slot, const char* path);

// Closes what the slot holds. The slot is reset in the same step: a stale number would later name
// somebody else's file.
void CloseSlot(int* slot, int cleared);

// LOG_Write at an offset; the position of the descriptor stays where it is.
int WriteAt(int fd, uint32_t length, const void* data, off_t offset);

// Whether a read or write at an offset failed because there is no such place in the file: then
// errno is that of a seek to it, else still that of the failure.
bool CannotSeek(int fd, off_t offset);

// Makes the slot an open descriptor of the file at path. A file opened here is positioned at its
// end, with the directories it needs made. Result: 0 or 0xFFFFFFFF.
uint32_t OpenAtEnd(const char* path, int* slot);

// The same, but a file that is open is not compared with the path yet: its lock will do that.
uint32_t EnsureOpenAtEnd(const char* path, int* slot);

// The lock on a log that is open in a slot, and the proof that under the lock it still is the file
// that path names: whoever held the lock before may have put another one there, and a record in the
// old one would be lost.
class LogFileLock {
  public:
    // How a slot is opened again when its file turns out to be another one. Result: 0 or failure.
    using Reopen = uint32_t (*)(const char* path, int* slot);
    enum class Result {
        kHeld,
        kRefused,  // the file cannot be locked
        kNoFile,   // it was replaced and cannot be opened, or is replaced again and again
    };

    LogFileLock(const char* path, int* slot, Reopen reopen)
        : path_(path), slot_(slot), reopen_(reopen) {}

    [[nodiscard]] Result acquire();
    // Asks for the release even where the lock was refused and the work went on without it.
    bool release() { return lock_.release(); }
    bool is_held() const { return lock_.is_held(); }
    // How long the file was when its name was last looked at: nobody who keeps to the lock has
    // changed that since.
    off_t size() const { return size_; }

  private:
    enum class Attempt { kHeld, kRefused, kReplaced };
    Attempt attempt();
    bool try_lock();
    bool is_current();

    const char* const path_;
    int* const slot_;
    const Reopen reopen_;
    RecordLock lock_;
    off_t size_ = 0;
};

// The lock of a log that is written even where it cannot be locked: a record on a file system
// without locks is better than none. False when there is no file to write to.
[[nodiscard]] bool AcquireOrReport(LogFileLock* lock);
void ReleaseOrReport(LogFileLock* lock);

// The same for a descriptor of the caller's, which has no path.
class ReportedLock {
  public:
    explicit ReportedLock(int fd);
    void release();  // reports a failure, unlike the destructor

  private:
    const HeldReports reports_;
    const Uncancelled uncancelled_;
    RecordLock lock_;
};

}  // namespace korx
