// The files of the product logs: kept open between records, opened anew when their file is gone or
// is another one, and locked as a whole.
#pragma once

#include <fcntl.h>
#include <stdint.h>

#include "base/lock.h"

namespace korx {

constexpr int kLogOpenFlags = O_RDWR | O_CREAT;

// A slot never opened holds 0, a failed open leaves -1.
inline bool IsOpen(int slot) {
    return slot >= 1;
}

// Whether path still names the file that is open in fd. A log that was removed or replaced must not
// go on filling the orphan. A descriptor that cannot be examined counts as the file that is there.
bool IsFileOfPath(int fd, const char* path);

// Closes what the slot holds. The slot is reset in the same step: a stale number would later name
// somebody else's file.
void CloseSlot(int* slot, int cleared);

// Makes the slot an open descriptor of the file at path. A file opened here is positioned at its
// end, with the directories it needs made. Result: 0 or 0xFFFFFFFF.
uint32_t OpenAtEnd(const char* path, int* slot);

// The lock of a log that is written even where it cannot be locked: what goes wrong is reported,
// and a record on a file system without locks is better than none.
class ReportedLock {
  public:
    explicit ReportedLock(int fd);
    // Gives the lock back and reports a failure; the destructor does it silently.
    void release();

  private:
    RecordLock lock_;
};

}  // namespace korx
