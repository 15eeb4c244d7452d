#include "reader/log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace korx {
namespace {

// A name may be anything: a FIFO must not hang the reader, nor a terminal become its own.
constexpr int kOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

constexpr int64_t kNanosPerMs = 1000000;
constexpr int64_t kNanosPerSecond = 1000 * kNanosPerMs;
constexpr int64_t kFirstPauseNs = 50000;
constexpr int64_t kLongestPauseNs = 2 * kNanosPerMs;

int64_t NowNs() {
    struct timespec now = {};
    (void) clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * kNanosPerSecond + now.tv_nsec;
}

void Pause(int64_t nanos) {
    const struct timespec pause = {.tv_sec = 0, .tv_nsec = static_cast<long>(nanos)};
    (void) nanosleep(&pause, nullptr);
}

// A record lock of the open file, not of the process: like that it excludes the writers of this
// process as well, and releasing it does not release those that they hold.
bool SetFileLock(int fd, short type) {
    struct flock request = {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_SETLK, &request) == 0;
}

}  // namespace

korx_reader_code LogFile::open(const char* path, int borrowed, Access access,
                               const Refusal& error) {
    if (borrowed < 0) {
        own_.reset(::open(path, (access == Access::kRead ? O_RDONLY : O_RDWR) | kOpenFlags));
        if (!own_)
            return error.refuse(KORX_READER_OPEN, errno, "opening failed: %s", strerror(errno));
    }
    fd_ = borrowed < 0 ? own_.get() : borrowed;
    const korx_reader_code code = examine(error);
    if (code != KORX_READER_OK)
        return code;
    if (!S_ISREG(stat_.st_mode))
        return error.refuse(KORX_READER_NOT_REGULAR, 0, "not a regular file");
    return KORX_READER_OK;
}

korx_reader_code LogFile::examine(const Refusal& error) {
    if (fstat(fd_, &stat_) < 0)
        return error.refuse(KORX_READER_READ, errno, "examining failed: %s", strerror(errno));
    return KORX_READER_OK;
}

LogLock::~LogLock() {
    if (!held_)
        return;
    const ErrnoSaver keep;
    if (kind_ == LogLockKind::kRecord)
        (void) SetFileLock(file_.fd(), F_UNLCK);
    else
        (void) flock(file_.fd(), LOCK_UN);
}

bool LogLock::attempt(Access access) const {
    if (kind_ == LogLockKind::kRecord)
        return SetFileLock(file_.fd(), access == Access::kRead ? F_RDLCK : F_WRLCK);
    return flock(file_.fd(), (access == Access::kRead ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0;
}

// Asks again and again, because no waiting request has a time-out.
korx_reader_code LogLock::acquire(Access access, uint32_t timeout_ms, const Refusal& error) {
    const int64_t deadline = NowNs() + int64_t{timeout_ms} * kNanosPerMs;
    int64_t pause = kFirstPauseNs;
    while (!attempt(access)) {
        // A refused record lock may say either of the first two.
        const bool busy = errno == EAGAIN || errno == EACCES || errno == EINTR;
        if (!busy)
            return error.refuse(KORX_READER_READ, errno, "locking failed: %s", strerror(errno));
        if (NowNs() >= deadline)
            return error.refuse(KORX_READER_LOCKED, EAGAIN,
                                "another process has held the lock for %u ms", timeout_ms);
        Pause(pause);
        pause = std::min(pause * 2, kLongestPauseNs);
    }
    held_ = true;
    return KORX_READER_OK;
}

void LikeLog(int log_fd, int fd) {
    struct stat st;
    if (fstat(log_fd, &st) < 0)
        return;
    (void) !fchown(fd, st.st_uid, st.st_gid);
    (void) fchmod(fd, st.st_mode & 0666);
}

ReadResult ReadUpTo(int fd, void* buffer, size_t count, uint64_t offset) {
    char* const bytes = static_cast<char*>(buffer);
    size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(fd, bytes + done, count - done, static_cast<off_t>(offset + done));
        if (got == 0)
            break;
        if (got < 0 && errno != EINTR)
            return {done, errno};
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return {done, 0};
}

bool ReadExactly(int fd, void* buffer, size_t count, uint64_t offset) {
    return ReadUpTo(fd, buffer, count, offset).count == count;
}

}  // namespace korx
