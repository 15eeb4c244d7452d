#include "reader/snapshot.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/bounded.h"
#include "reader/ring.h"

namespace korx {
namespace {

constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr size_t kPeekSize = 8192;
constexpr size_t kStartHeaderRoom = 4096;  // more of a header file is not looked at
constexpr int kPathRoom = 360;             // of a message

constexpr int64_t kNanosPerMs = 1000000;
constexpr int64_t kFirstPauseNs = 50000;
constexpr int64_t kLongestPauseNs = 2 * kNanosPerMs;

int64_t NowNs() {
    struct timespec now = {};
    (void) clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void Pause(int64_t nanos) {
    const struct timespec pause = {.tv_sec = 0, .tv_nsec = static_cast<long>(nanos)};
    (void) nanosleep(&pause, nullptr);
}

// Reads up to count bytes at offset; less at the end of the file. -1: reading failed.
ssize_t ReadUpTo(int fd, char* buffer, size_t count, uint64_t offset) {
    size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(fd, buffer + done, count - done, static_cast<off_t>(offset + done));
        if (got == 0)
            break;
        if (got < 0 && errno != EINTR)
            return -1;
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return static_cast<ssize_t>(done);
}

korx_reader_code ReadBytes(int fd, uint64_t count, const Source& source, const char* path,
                           Bytes* bytes, korx_reader_error* error) {
    if (count > source.max_bytes)
        return Refuse(error, KORX_READER_TOO_LARGE, 0, source.max_bytes,
                      "%.*s: %llu bytes would have to be read, more than the limit of %llu",
                      kPathRoom, path, static_cast<unsigned long long>(count),
                      static_cast<unsigned long long>(source.max_bytes));
    const auto size = static_cast<size_t>(count);
    bytes->data.reset(static_cast<char*>(malloc(std::max<size_t>(size, 1))));
    if (!bytes->data)
        return Refuse(error, KORX_READER_NO_MEMORY, ENOMEM, 0, "%.*s: no memory for %zu bytes",
                      kPathRoom, path, size);
    const ssize_t got = ReadUpTo(fd, bytes->data.get(), size, 0);
    if (got < 0)
        return Refuse(error, KORX_READER_READ, errno, 0, "%.*s: reading failed: %s", kPathRoom,
                      path, strerror(errno));
    bytes->size = static_cast<size_t>(got);
    return KORX_READER_OK;
}

// A huge file behind a small ring is none of our business.
uint64_t NeededBytes(korx_log_kind kind, int fd, uint64_t file_size) {
    LOG_HEAD_S head;
    if (!IsRing(kind) || !ReadExactly(fd, &head, sizeof head, 0))
        return file_size;
    return NeededOfRing(head, file_size);
}

korx_reader_code CopyLog(const Source& source, int fd, LogImage* image, struct stat* st,
                         korx_reader_error* error) {
    if (fstat(fd, st) < 0)
        return Refuse(error, KORX_READER_READ, errno, 0, "%.*s: examining failed: %s", kPathRoom,
                      source.path, strerror(errno));
    const auto file_size = static_cast<uint64_t>(st->st_size);
    const korx_reader_code code =
        ReadBytes(fd, NeededBytes(image->format.kind->kind, fd, file_size), source, source.path,
                  &image->bytes, error);
    if (code != KORX_READER_OK)
        return code;
    image->file_size = std::max<uint64_t>(file_size, image->bytes.size);
    return KORX_READER_OK;
}

// A header file that can't be had is damage of the log, not a failure.
bool OpenHeader(const Source& source, UniqueFd* header) {
    if (source.header_path == nullptr)
        return false;
    int fd = -1;
    struct stat st;
    return OpenLog(source.header_path, -1, kReadFlags, header, &fd, &st, nullptr) == KORX_READER_OK;
}

korx_reader_code CopyHeader(const Source& source, int fd, LogImage* image,
                            korx_reader_error* error) {
    return ReadBytes(fd, kStartHeaderRoom, source, source.header_path, &image->header, error);
}

}  // namespace

korx_reader_code Refuse(korx_reader_error* error, korx_reader_code code, int system_error,
                        uint64_t offset, const char* format, ...) {
    if (error == nullptr)
        return code;
    error->code = code;
    error->system_error = system_error;
    error->offset = offset;
    va_list args;
    va_start(args, format);
    (void) vsnprintf_s(error->text, sizeof error->text, sizeof error->text - 1, format, args);
    va_end(args);
    return code;
}

bool LogLock::attempt(bool exclusive) const {
    if (kind_ == KORX_LOG_TEXT || kind_ == KORX_LOG_SPACE)
        return flock(fd_, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0;
    struct flock request = {};
    request.l_type = exclusive ? F_WRLCK : F_RDLCK;
    request.l_whence = SEEK_SET;
    return fcntl(fd_, F_OFD_SETLK, &request) == 0;
}

korx_reader_code LogLock::acquire(bool exclusive, uint32_t timeout_ms, const char* path,
                                  korx_reader_error* error) {
    const int64_t deadline = NowNs() + int64_t{timeout_ms} * kNanosPerMs;
    int64_t pause = kFirstPauseNs;
    while (!attempt(exclusive)) {
        const bool busy = errno == EAGAIN || errno == EACCES || errno == EINTR;
        if (!busy)
            return Refuse(error, KORX_READER_READ, errno, 0, "%.*s: locking failed: %s", kPathRoom,
                          path, strerror(errno));
        if (NowNs() >= deadline)
            return Refuse(error, KORX_READER_LOCKED, EAGAIN, 0,
                          "%.*s: another process has held the lock for %u ms", kPathRoom, path,
                          timeout_ms);
        Pause(pause);
        pause = std::min(pause * 2, kLongestPauseNs);
    }
    held_ = true;
    return KORX_READER_OK;
}

void LogLock::release() {
    if (!std::exchange(held_, false))
        return;
    const ErrnoSaver keep;
    if (kind_ == KORX_LOG_TEXT || kind_ == KORX_LOG_SPACE) {
        (void) flock(fd_, LOCK_UN);
        return;
    }
    struct flock request = {};
    request.l_type = F_UNLCK;
    request.l_whence = SEEK_SET;
    (void) fcntl(fd_, F_OFD_SETLK, &request);
}

korx_reader_code OpenLog(const char* path, int borrowed, int flags, UniqueFd* opened, int* fd,
                         struct stat* st, korx_reader_error* error) {
    if (borrowed < 0) {
        opened->reset(open(path, flags));
        if (!*opened)
            return Refuse(error, KORX_READER_OPEN, errno, 0, "%.*s: opening failed: %s", kPathRoom,
                          path, strerror(errno));
    }
    *fd = borrowed < 0 ? opened->get() : borrowed;
    if (fstat(*fd, st) < 0)
        return Refuse(error, KORX_READER_READ, errno, 0, "%.*s: examining failed: %s", kPathRoom,
                      path, strerror(errno));
    if (!S_ISREG(st->st_mode))
        return Refuse(error, KORX_READER_NOT_REGULAR, 0, 0, "%.*s: not a regular file", kPathRoom,
                      path);
    return KORX_READER_OK;
}

korx_reader_code TakeSnapshot(const Source& source, LogImage* image, struct stat* st,
                              korx_reader_error* error) {
    UniqueFd opened;
    int fd = -1;
    korx_reader_code code =
        OpenLog(source.path, source.borrowed, kReadFlags, &opened, &fd, st, error);
    if (code != KORX_READER_OK)
        return code;

    // The writers of the start log take the header's lock first.
    UniqueFd header;
    const bool has_header =
        image->format.kind->kind == KORX_LOG_START && OpenHeader(source, &header);
    LogLock header_lock(image->format.kind->kind, header.get());
    LogLock lock(image->format.kind->kind, fd);
    // The space-full log's writers know no lock.
    const bool locks = source.lock && image->format.kind->kind != KORX_LOG_SPACE;
    if (locks && has_header)
        code = header_lock.acquire(false, source.timeout_ms, source.header_path, error);
    if (code == KORX_READER_OK && locks)
        code = lock.acquire(false, source.timeout_ms, source.path, error);
    if (code == KORX_READER_OK)
        code = CopyLog(source, fd, image, st, error);
    if (code == KORX_READER_OK && has_header)
        code = CopyHeader(source, header.get(), image, error);
    return code;
}

korx_reader_code PeekKind(const Source& source, korx_log_kind* kind, korx_reader_error* error) {
    UniqueFd opened;
    int fd = -1;
    struct stat st;
    const korx_reader_code code =
        OpenLog(source.path, source.borrowed, kReadFlags, &opened, &fd, &st, error);
    if (code != KORX_READER_OK)
        return code;
    char beginning[kPeekSize];
    const ssize_t got = ReadUpTo(fd, beginning, sizeof beginning, 0);
    *kind = got < 0 ? KORX_LOG_AUTO : GuessKind({beginning, static_cast<size_t>(got)});
    if (*kind == KORX_LOG_AUTO)
        return Refuse(error, KORX_READER_UNKNOWN, 0, 0, "%.*s: not a log of any known kind",
                      kPathRoom, source.path);
    return KORX_READER_OK;
}

bool ReadExactly(int fd, void* buffer, size_t count, uint64_t offset) {
    errno = 0;
    return ReadUpTo(fd, static_cast<char*>(buffer), count, offset) == static_cast<ssize_t>(count);
}

}  // namespace korx
