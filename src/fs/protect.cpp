// Protection of files by the immutable inode flag, or, where the file system has no such flags or
// the process may not set them, by taking the write permission away.
//
// The write permission is always worked out from the file that was opened, never from a symbolic
// link's own 0777.
#include "fs/protect.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/unique.h"
#include "fs/mode.h"
#include "korx/fs.h"

namespace korx {
namespace {

constexpr int kOpenForFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

MallocPtr<char> ResolveOrReport(const char* path) {
    MallocPtr<char> real(realpath(path, nullptr));
    if (!real)
        Log(kLevelErr, "[ORX-LIB] open file '%s' return err, errno:%d.", path, errno);
    return real;
}

UniqueFd OpenForFlags(const char* path) {
    return UniqueFd(open(path, kOpenForFlags));
}

// What bears the name itself. For a symbolic link nothing, with errno ELOOP: the answer comes with
// the descriptor, because the name may lead elsewhere when it is looked at twice.
UniqueFd OpenItself(const char* name) {
    return UniqueFd(open(name, kOpenForFlags | O_NOFOLLOW));
}

// The kernel's request is declared with long but moves an int.
bool GetFlags(const UniqueFd& fd, int* flags) {
    *flags = 0;
    return ioctl(fd.get(), FS_IOC_GETFLAGS, flags) >= 0;
}

bool SetFlags(const UniqueFd& fd, int flags) {
    return ioctl(fd.get(), FS_IOC_SETFLAGS, &flags) >= 0;
}

bool HasWriteBit(const UniqueFd& fd) {
    struct stat st;
    return fstat(fd.get(), &st) < 0 || (st.st_mode & kWriteBits) != 0;
}

// What KORX_ProtectFile does once it has opened the file, or failed to.
uint32_t ProtectOpened(const UniqueFd& fd, const char* path) {
    if (!fd)
        return Fail(kFailed, "[ORX-LIB] open file '%s' return err when protect it, errno:%d.", path,
                    errno);
    int flags;
    if (!GetFlags(fd, &flags)) {
        Log(kLevelWarning,
            "[ORX-LIB] ioctl return err when protcet file, errno %d, try another way.", errno);
        (void) ChangeMode(fd, path, kTakeWriteRight);
        Log(kLevelInfo, "[ORX-LIB] File '%s' remove write right OK. ", path);
        return kOk;
    }
    if ((flags & FS_IMMUTABLE_FL) != 0)
        return kOk;
    if (SetFlags(fd, flags | FS_IMMUTABLE_FL)) {
        Log(kLevelInfo, "[ORX-LIB] File '%s' protect OK. ", path);
        return kOk;
    }
    if (errno != EPERM)
        return Fail(kFailed,
                    "[ORX-LIB] File '%s' protect unsuccessful ioctl setflag, ret(%d), errno:%d.",
                    path, static_cast<int>(kFailed), errno);
    Log(kLevelWarning, "[ORX-LIB] Proc has no right to protect file!");
    (void) ChangeMode(fd, path, kTakeWriteRight);
    return kOk;
}

uint32_t ReportClearFailed(const UniqueFd& fd, const char* path) {
    const int error = errno;
    Log(kLevelErr, "Ioctl unsuccessfully, PathName=[%s], errno=[%d].", path, error);
    uint32_t result = kFailed;
    if (error == EPERM) {
        Log(kLevelInfo, "Proc has no right to unprotect.");
        (void) ChangeMode(fd, path, kGiveWriteRight);
        result = kOk;
    }
    return Fail(result, "File '%s' undo protect unsuccessfully. setflag.", path);
}

}  // namespace

uint32_t UndoProtectOpened(const UniqueFd& fd, const char* path) {
    if (!fd)
        return Fail(kFailed, "open file '%s' unsuccessfully when unprotect it, errno:%d.", path,
                    errno);
    int flags;
    if (!GetFlags(fd, &flags)) {
        Log(kLevelWarning,
            "ioctl did not succeed when unprotect unsuccessfully,try another way, PathName=[%s], errno=[%d].",
            path, errno);
        (void) ChangeMode(fd, path, kGiveWriteRight);
        Log(kLevelInfo, "File '%s' give write right OK when ioctl unsuccessfully. ", path);
        return kOk;
    }
    if ((flags & FS_IMMUTABLE_FL) != 0) {
        if (!SetFlags(fd, flags & ~FS_IMMUTABLE_FL))
            return ReportClearFailed(fd, path);
    } else if (!HasWriteBit(fd)) {
        (void) ChangeMode(fd, path, kGiveWriteRight);
    }
    Log(kLevelInfo, "File '%s' undo protect OK. ", path);
    return kOk;
}

void ReportMissing(const char* path) {
    Log(kLevelInfo, "File '%s' is not exist.", path);
}

}  // namespace korx

using namespace korx;

uint32_t KORX_IsForIoctl(const char* path) {
    const MallocPtr<char> real = ResolveOrReport(path);
    if (!real)
        return kFailed;
    const UniqueFd fd = OpenForFlags(real.get());
    if (!fd)
        return Fail(KORX_TRUE, "open file '%s' return err when protect it, errno:%d.", path, errno);
    int flags;
    return GetFlags(fd, &flags) ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_IsFileWriteable(const char* path) {
    struct stat st;
    if (path == nullptr || lstat(path, &st) < 0)
        return KORX_FALSE;
    return (st.st_mode & kWriteBits) != 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_IsFileProtected(const char* path) {
    if (KORX_IsFileExist(path) == KORX_FALSE) {
        ReportMissing(path);
        return KORX_FALSE;
    }
    if (KORX_IsForIoctl(path) == KORX_TRUE && access(path, W_OK) < 0)
        return KORX_TRUE;
    struct stat st;
    return lstat(path, &st) == 0 && (st.st_mode & kWriteBits) == 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_ProtectFile(const char* path) {
    const MallocPtr<char> real = ResolveOrReport(path);
    if (!real)
        return kFailed;
    return ProtectOpened(OpenForFlags(real.get()), path);
}

uint32_t KORX_UndoProtectFile(const char* path) {
    const MallocPtr<char> real = ResolveOrReport(path);
    if (!real)
        return kFailed;
    return UndoProtectOpened(OpenForFlags(real.get()), path);
}

uint32_t ORXFS_ProtectFile(const char* name, uint32_t length) {
    // A directory's name may end in a slash, which a file's name may not.
    if (KORX_CheckFileName(name, length) != ORXFS_OK && KORX_CheckDirName(name) != ORXFS_OK)
        return Warn(ORXFS_ERR_NAME_END_SLASH, "[ORXFS-LOCAL] Check filename: %s unsuccessfully!",
                    name);
    if (KORX_IsFileExist(name) == KORX_FALSE)
        return Warn(ORXFS_ERR_NOT_EXIST, "[ORXFS-LOCAL] File '%s' is not exist!", name);
    const UniqueFd fd = OpenItself(name);
    if (!fd && errno == ELOOP)
        return Warn(ORXFS_ERR_PROTECT_SYMLINK,
                    "[ORXFS-LOCAL] Symlink File '%s' not permit to protect!", name);
    const uint32_t result = ProtectOpened(fd, name);
    if (result != kOk)
        return Fail(result, "[ORXFS-LOCAL] protect file '%s' unsuccessfully, return code: %u .",
                    name, result);
    return kOk;
}

uint32_t ORXFS_UndoProtectFile(const char* name, uint32_t length) {
    const uint32_t checked = KORX_CheckFileName(name, length);
    if (checked != ORXFS_OK)
        return checked;
    if (KORX_IsFileExist(name) == KORX_FALSE)
        return ORXFS_ERR_NOT_EXIST;
    const UniqueFd fd = OpenItself(name);
    if (!fd && errno == ELOOP)
        return ORXFS_ERR_UNPROTECT_SYMLINK;
    const uint32_t result = UndoProtectOpened(fd, name);
    if (result != kOk)
        return Fail(result, "[ORXFS-LOCAL]File '%s' undo protect unsuccessfully, return code: %u.",
                    name, result);
    return kOk;
}
