#include "plog/file.h"

#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/file_id.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "fs/resolve.h"
#include "korx/fs.h"
#include "korx/plog.h"

static_assert(DBG_LOCK_SET == F_SETLK && DBG_LOCK_SET_WAIT == F_SETLKW);
static_assert(DBG_LOCK_WRITE == F_WRLCK && DBG_LOCK_RELEASE == F_UNLCK);

namespace korx {
namespace {

constexpr mode_t kLogMode = 0640;
// Without waiting, which only concerns what is no regular file.
constexpr int kCarefulFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kLowestLogFd = STDERR_FILENO + 1;
constexpr int kMaxReopens = 16;
// A record is written in less time than it takes to fall asleep and to be woken. Few enough that
// whoever sleeps already is not kept from the lock by those who come later.
constexpr int kLockTries = 8;

// Which file the library has opened in each of its slots.
struct Memory {
    const int* slot;
    size_t count;
    FileId* ids;
};
constinit FileId process_ids[std::size(g_iPLogFileFd)];
constinit FileId diag_id, security_id, life_id, start_id, start_header_id;
constexpr Memory kMemories[] = {
    {&g_iDLogFileFd, 1, &diag_id},   {&g_iSLogFileFd, 1, &security_id},
    {&g_lifeLogFileFd, 1, &life_id}, {g_iPLogFileFd, std::size(g_iPLogFileFd), process_ids},
    {&g_iSTLogFileFd, 1, &start_id}, {&g_iSTLogFileHeadFd, 1, &start_header_id},
};

// Null for a slot of the caller's own, of which nothing is remembered.
FileId* IdOf(const int* slot) {
    for (const Memory& memory : kMemories) {
        if (slot >= memory.slot && slot < memory.slot + memory.count)
            return memory.ids + (slot - memory.slot);
    }
    return nullptr;
}

FileId OpenedId(const int* slot) {
    const FileId* const id = IdOf(slot);
    return id != nullptr && id->is_known() ? *id : FileId::OfOpen(*slot);
}

void Remember(const int* slot) {
    if (FileId* const id = IdOf(slot); id != nullptr)
        *id = FileId::OfOpen(*slot);
}

bool MoveAboveStandardStreams(UniqueFd* fd) {
    if (fd->get() >= kLowestLogFd)
        return true;
    const int moved = fcntl(fd->get(), F_DUPFD_CLOEXEC, kLowestLogFd);
    fd->reset(moved);
    return moved >= 0;
}

// Of what is no regular file a FIFO is refused; the others wait from here on as they always have.
bool IsLogDevice(int fd, const struct stat& st) {
    if (S_ISREG(st.st_mode))
        return true;
    if (S_ISFIFO(st.st_mode)) {
        errno = ENXIO;
        return false;
    }
    const int flags = fcntl(fd, F_GETFL);
    return flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) >= 0;
}

// What a lock that somebody else holds is refused with.
bool IsBusy(int error) {
    return error == EAGAIN || error == EACCES;
}

void ReportLock(bool done) {
    if (!done)
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
}

}  // namespace

bool OpenedLog::open(const char* path, int flags) {
    return take(UniqueFd(::open(path, flags | kCarefulFlags, kLogMode)));
}

bool OpenedLog::open_as_named(const char* path, int flags) {
    return take(OpenAsNamed(path, flags | kCarefulFlags, kLogMode));
}

// One that cannot be examined is let through: nothing will be the same file as that.
bool OpenedLog::take(UniqueFd opened) {
    fd = std::move(opened);
    struct stat st;
    const bool is_known = fd && fstat(fd.get(), &st) == 0;
    id = is_known ? FileId::Of(st) : FileId{};
    if (fd && ((is_known && !IsLogDevice(fd.get(), st)) || !MoveAboveStandardStreams(&fd)))
        fd.reset();
    return static_cast<bool>(fd);
}

SlotState ExamineSlot(int* slot, int cleared) {
    if (!IsOpen(*slot))
        return SlotState::kClosed;
    const FileId opened = FileId::OfOpen(*slot);
    const FileId* const id = IdOf(slot);
    const bool is_remembered = id != nullptr && id->is_known();
    if (opened.is_known() && (!is_remembered || id->is_same_as(opened)))
        return SlotState::kOurs;
    SetSlot(slot, cleared);
    return SlotState::kForeign;
}

bool IsFileOfPath(const int* slot, const char* path) {
    return OpenedId(slot).is_same_as(FileId::At(path));
}

void CloseSlot(int* slot, int cleared) {
    const ErrnoSaver keep;
    const int fd = *slot;
    SetSlot(slot, cleared);
    (void) close(fd);
}

int WriteAt(int fd, uint32_t length, const void* data, off_t offset) {
    if (fd < 0 || data == nullptr)
        return -1;
    return static_cast<int>(pwrite(fd, data, length, offset));
}

bool CannotSeek(int fd, off_t offset) {
    const int error = errno;
    if (lseek(fd, offset, SEEK_SET) < 0)
        return true;
    errno = error;
    return false;
}

uint32_t OpenAtEnd(const char* path, int* slot) {
    if (ExamineSlot(slot, 0) == SlotState::kOurs) {
        if (IsFileOfPath(slot, path))
            return kOk;
        CloseSlot(slot, 0);
    }
    if (ORX_CreateDirByFile(path) != kOk)
        return kAllBits;
    if (LOG_OpenFile(path, kLogOpenFlags, slot) != kOk)
        return kAllBits;
    if (lseek(*slot, 0, SEEK_END) >= 0)
        return kOk;
    CloseSlot(slot, 0);  // or the next record would go over the oldest
    return kAllBits;
}

uint32_t EnsureOpenAtEnd(const char* path, int* slot) {
    return ExamineSlot(slot, 0) == SlotState::kOurs ? kOk : OpenAtEnd(path, slot);
}

// On failure errno tells whether somebody holds the lock or nobody can.
bool LogFileLock::try_lock() {
    for (int tries = 0; tries < kLockTries; ++tries) {
        if (lock_.try_acquire())
            return true;
        if (!IsBusy(errno))
            return false;
    }
    return false;
}

bool LogFileLock::is_current() {
    struct stat st;
    if (stat(path_, &st) < 0)
        return false;
    size_ = st.st_size;
    return OpenedId(slot_).is_same_as(FileId::Of(st));
}

// Most often nobody else holds the lock for long. Only where somebody does is the name looked at
// before the wait, so that nobody waits for the lock of an orphan.
LogFileLock::Attempt LogFileLock::attempt() {
    lock_.move_to(*slot_);
    if (!try_lock()) {
        const bool is_busy = IsBusy(errno);
        // Also where it cannot be locked: some logs are written all the same.
        if (!is_current())
            return Attempt::kReplaced;
        if (!is_busy || !lock_.acquire())
            return Attempt::kRefused;
    }
    if (is_current())
        return Attempt::kHeld;
    (void) lock_.release();
    return Attempt::kReplaced;
}

LogFileLock::Result LogFileLock::acquire() {
    for (int reopens = 0; reopens <= kMaxReopens; ++reopens) {
        switch (attempt()) {
            case Attempt::kHeld:
                return Result::kHeld;
            case Attempt::kRefused:
                return Result::kRefused;
            case Attempt::kReplaced:
                break;
        }
        if (reopen_(path_, slot_) != kOk)
            return Result::kNoFile;
    }
    return Result::kNoFile;
}

bool AcquireOrReport(LogFileLock* lock) {
    const LogFileLock::Result result = lock->acquire();
    ReportLock(result != LogFileLock::Result::kRefused);
    return result != LogFileLock::Result::kNoFile;
}

void ReleaseOrReport(LogFileLock* lock) {
    ReportLock(lock->release());
}

ReportedLock::ReportedLock(int fd) : lock_(fd) {
    ReportLock(lock_.acquire());
}

void ReportedLock::release() {
    ReportLock(lock_.release());
}

}  // namespace korx

using namespace korx;

uint32_t DBG_LockReg(int fd, int command, short type, off_t start, short whence, off_t length) {
    const int result = SetRecordLock(fd, command, type, start, whence, length, OnDeadlock::kRepeat);
    return result < 0 ? ORX_PLOG_ERR_LOCK : kOk;
}

int LOG_SetCloexecFlag(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    return flags < 0 ? flags : fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

uint32_t LOG_OpenFile(const char* path, int flags, int* fd) {
    const LogScope writing;
    BuildText absolute;
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(path, absolute.data(), absolute.capacity());
    if (code != kOk)
        return SysFail(kAllBits, "get absolutepath %s unsuccessfully, uiret=%u.", path, code);

    OpenedLog opened;
    SetSlot(fd, -1);
    if (!opened.open(absolute.c_str(), flags))
        return ORX_PLOG_ERR_OPEN;
    SetSlot(fd, 0);
    if (LOG_SetCloexecFlag(opened.fd.get()) < 0)
        return kAllBits;
    SetSlot(fd, opened.fd.release());
    Remember(fd);
    return kOk;
}

uint32_t LOG_CheckAndCreateFile(const char* path, int* fd) {
    if (path == nullptr || fd == nullptr)
        return ORX_PLOG_ERR_NULL_PARA;
    const LogScope writing;
    return OpenAtEnd(path, fd);
}

int LOG_Write(int fd, uint32_t length, const void* data) {
    if (fd < 0 || data == nullptr)
        return -1;
    return static_cast<int>(write(fd, data, length));
}

uint32_t LOG_CheckAndTruncate(int fd, uint32_t limit) {
    struct stat st;
    if (fstat(fd, &st) < 0 || static_cast<int32_t>(st.st_size) < 0)
        return kAllBits;
    if (st.st_size > off_t{limit}) {
        (void) !ftruncate(fd, limit);
        (void) lseek(fd, 0, SEEK_SET);
    }
    return kOk;
}

uint32_t LOG_Buff2File(int fd, const void* data, uint32_t length, uint32_t limit) {
    ReportedLock lock(fd);
    (void) LOG_CheckAndTruncate(fd, limit);
    (void) LOG_Write(fd, length, data);
    lock.release();
    return kOk;
}
