#include "plog/file.h"

#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "korx/fs.h"
#include "korx/plog.h"

namespace korx {
namespace {

constexpr mode_t kLogMode = 0640;
constexpr int kLowestLogFd = STDERR_FILENO + 1;

constexpr uint32_t kNullArgument = 1;
constexpr uint32_t kOpenFailed = 6;
constexpr uint32_t kLockFailed = 7;

// Standard input, output and error are other people's: text meant for them would go into the log.
bool MoveAboveStandardStreams(UniqueFd* fd) {
    if (fd->get() >= kLowestLogFd)
        return true;
    const int moved = fcntl(fd->get(), F_DUPFD_CLOEXEC, kLowestLogFd);
    fd->reset(moved);
    return moved >= 0;
}

void ReportLock(bool done) {
    if (!done)
        DBG_SysLog(LOG_ERR, "DLOG lock file unsuccessfully.");
}

}  // namespace

bool IsFileOfPath(int fd, const char* path) {
    struct stat named;
    if (stat(path, &named) < 0)
        return false;
    struct stat opened;
    return fstat(fd, &opened) < 0 ||
           (opened.st_dev == named.st_dev && opened.st_ino == named.st_ino);
}

void CloseSlot(int* slot, int cleared) {
    const ErrnoSaver keep;
    (void) close(std::exchange(*slot, cleared));
}

uint32_t OpenAtEnd(const char* path, int* slot) {
    if (IsOpen(*slot)) {
        if (IsFileOfPath(*slot, path))
            return kOk;
        CloseSlot(slot, 0);
    }
    if (ORX_CreateDirByFile(path) != kOk)
        return kAllBits;
    if (LOG_OpenFile(path, kLogOpenFlags, slot) != kOk)
        return kAllBits;
    return lseek(*slot, 0, SEEK_END) < 0 ? kAllBits : kOk;
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
    return result < 0 ? kLockFailed : kOk;
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

    UniqueFd opened(open(absolute.c_str(), flags | O_CLOEXEC, kLogMode));
    *fd = -1;
    if (!opened)
        return kOpenFailed;
    *fd = 0;
    if (!MoveAboveStandardStreams(&opened) || LOG_SetCloexecFlag(opened.get()) < 0)
        return kAllBits;
    *fd = opened.release();
    return kOk;
}

uint32_t LOG_CheckAndCreateFile(const char* path, int* fd) {
    if (path == nullptr || fd == nullptr)
        return kNullArgument;
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
        (void) ftruncate(fd, limit);
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
