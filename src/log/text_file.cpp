// The file of the diagnostic log.
//
// Every line opens, locks, writes and closes it: nothing is cached, so any process may remove or
// replace the file at any time. The flock spans everything from the read of the file's length to
// its update; what goes wrong under it is reported after its release.
#include "korx/log.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/file_id.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/write_all.h"
#include "format/record.h"
#include "korx/fs.h"
#include "korx/str.h"
#include "plog/file.h"

namespace korx {
namespace {

constexpr mode_t kLogDirMode = 0750;
constexpr int kOpenFlags = O_RDWR | O_CREAT | O_SYNC;
constexpr int kMaxReopens = 16;

// Moves the length at the start of a log file, and the position with it. Returns the bytes moved,
// or the full count where the seek failed: that is silent.
ssize_t MoveLength(int fd, uint32_t operation, uint32_t* length) {
    static_assert(sizeof *length == kTextHeadSize);
    if (lseek(fd, 0, SEEK_SET) < 0)
        return sizeof *length;
    return operation == ORX_LOG_LENGTH_WRITE ? ORX_Write(fd, length, sizeof *length)
                                             : read(fd, length, sizeof *length);
}

// The same answer for a length that was read or written at its offset.
ssize_t LengthMoved(int fd, ssize_t moved) {
    return moved < 0 && CannotSeek(fd, 0) ? ssize_t{kTextHeadSize} : moved;
}

void ReportLength(ssize_t moved) {
    if (moved != ssize_t{kTextHeadSize})
        SysLog("ORX_UpdatelogLen failed, actually write len is %d.", static_cast<int>(moved));
}

// What happened under the file's lock, for the report after it.
struct Append {
    enum Step { kDone, kTruncate, kSeek, kWrite } failed = kDone;
    int64_t result = 0;
    int error = 0;
    ssize_t length_read = 0;
    ssize_t length_written = kTextHeadSize;

    Append& fail(Step step, int64_t value) {
        failed = step;
        result = value;
        error = errno;
        return *this;
    }
};

// A count that the next text would carry over 32 bits counts as one beyond the limit.
Append AppendText(int fd, uint32_t limit, const char* text) {
    Append append;
    const auto text_length = static_cast<uint32_t>(strlen(text));
    uint32_t length = 0;
    append.length_read = LengthMoved(fd, pread(fd, &length, sizeof length, 0));
    if (length > limit || uint64_t{length} + text_length > UINT32_MAX) {
        if (const int cut = ftruncate(fd, limit); cut < 0)
            return append.fail(Append::kTruncate, cut);
        length = 0;
    }

    const off_t position = off_t{kTextHeadSize} + length;
    const ssize_t written = WriteAllAt(fd, text, text_length, position);
    if (written < 0)
        return append.fail(CannotSeek(fd, position) ? Append::kSeek : Append::kWrite, written);

    length += static_cast<uint32_t>(written);
    append.length_written = LengthMoved(fd, WriteAllAt(fd, &length, sizeof length, 0));
    return append;
}

uint32_t ReportAppend(int fd, const Append& append) {
    ReportLength(append.length_read);
    ReportLength(append.length_written);
    const auto code = static_cast<uint32_t>(append.result);
    const int result = static_cast<int>(append.result);
    switch (append.failed) {
        case Append::kTruncate:
            return SysFail(code, "Ftruncate unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result, fd,
                           append.error);
        case Append::kSeek:
            return SysFail(code, "Lseek unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result, fd,
                           append.error);
        case Append::kWrite:
            return SysFail(code, "Write file unsuccessfully, iRet=%d, iFd=%d, errno=%d.", result,
                           fd, append.error);
        case Append::kDone:
            break;
    }
    return kOk;
}

uint32_t ResolveLogPath(const char* path, BuildText* absolute) {
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(path, absolute->data(), absolute->capacity());
    if (code != kOk)
        return SysFail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", path, code);
    return kOk;
}

// Most paths are their own resolution, and are opened without being resolved. Where that fails the
// path is resolved, and whatever is wrong with it is told from there.
uint32_t OpenText(const char* path, BuildText* absolute, OpenedLog* log) {
    if (absolute->empty() && log->open_as_named(path, kOpenFlags))
        return kOk;
    if (absolute->empty() && ResolveLogPath(path, absolute) != kOk)
        return kFailed;
    if (!log->open(absolute->c_str(), kOpenFlags))
        return SysFail(kFailed, "Open [%s] unsuccessfully, errno=%d.", path, errno);
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

void ORX_UpdatelogLen(int fd, uint32_t operation, uint32_t* length) {
    ReportLength(MoveLength(fd, operation, length));
}

uint32_t ORX_CreateLogfile(const char* directory, const char* name) {
    const LogScope writing;
    BuildText path;
    if (!path.format("%s/%s", directory, name))
        return SysFail(kFailed, "print Dir unsuccessfully, Dir=%s/%s.", directory, name);
    if (KORX_IsFileExist(path.c_str()) == 1)
        return kOk;
    if (KORX_IsDirExist(directory) == 0 && ORX_MkDir(directory, kLogDirMode) != kOk)
        return SysFail(kFailed, "mkdir %s unsuccessfully", directory);

    BuildText absolute;
    if (ResolveLogPath(path.c_str(), &absolute) != kOk)
        return kFailed;
    OpenedLog log;
    if (!log.open(absolute.c_str(), kOpenFlags))
        return SysFail(kFailed, "Open %s unsuccessfully, errno=%d.", path.c_str(), errno);

    // Another process may have made the file, and written to it, since it was found missing.
    const int fd = log.fd.get();
    FlockGuard lock(fd);
    struct stat st;
    ssize_t moved = kTextHeadSize;
    if (lock.acquire() && fstat(fd, &st) == 0 && st.st_size == 0) {
        uint32_t length = 0;
        moved = MoveLength(fd, ORX_LOG_LENGTH_WRITE, &length);
    }
    lock.release();
    ReportLength(moved);
    return kOk;
}

uint32_t ORX_WriteLogfile(const char* path, uint32_t limit, const char* text) {
    const LogScope writing;
    BuildText absolute;  // stays empty as long as the path is its own resolution
    for (int reopens = 0; reopens <= kMaxReopens; ++reopens) {
        OpenedLog log;
        if (OpenText(path, &absolute, &log) != kOk)
            return kFailed;
        const int fd = log.fd.get();
        FlockGuard lock(fd);
        if (!lock.acquire())
            return kFailed;
        // Whoever held the lock may have put another file there: a line in the old one would be
        // lost.
        if (!log.id.is_same_as(FileId::At(absolute.empty() ? path : absolute.c_str())))
            continue;
        const Append append = AppendText(fd, limit, text);
        lock.release();
        return ReportAppend(fd, append);
    }
    return kFailed;
}
