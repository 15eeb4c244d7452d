#include "reader/snapshot.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "reader/ring.h"

namespace korx {
namespace {

constexpr size_t kPeekSize = 8192;         // no kind is told by anything further on
constexpr size_t kStartHeaderRoom = 4096;  // more of a header file is not looked at

korx_reader_code ReadBytes(int fd, uint64_t count, const Source& source, const Refusal& error,
                           Bytes* bytes) {
    if (count > source.max_bytes)
        return error.at(source.max_bytes)
            .refuse(KORX_READER_TOO_LARGE, 0,
                    "%llu bytes would have to be read, more than the limit of %llu",
                    static_cast<unsigned long long>(count),
                    static_cast<unsigned long long>(source.max_bytes));
    const auto size = static_cast<size_t>(count);
    // At least a byte: malloc may have nothing for 0, and an empty log is not out of memory.
    bytes->data.reset(static_cast<char*>(malloc(std::max<size_t>(size, 1))));
    if (!bytes->data)
        return error.refuse(KORX_READER_NO_MEMORY, ENOMEM, "no memory for %zu bytes", size);
    const ReadResult got = ReadUpTo(fd, bytes->data.get(), size, 0);
    if (got.error != 0)
        return error.refuse(KORX_READER_READ, got.error, "reading failed: %s", strerror(got.error));
    bytes->size = got.count;
    return KORX_READER_OK;
}

// A huge file behind a small ring is none of our business.
uint64_t NeededBytes(const LogImage& image, const LogFile& file) {
    LOG_HEAD_S head;
    if (!image.is_ring() || !ReadExactly(file.fd(), &head, sizeof head, 0))
        return file.size();
    return NeededOfRing(head, file.size());
}

// A header file that can't be had is damage of the log, not a failure.
bool OpenHeader(const Source& source, LogFile* header) {
    return source.header_path != nullptr &&
           header->open(source.header_path, -1, Access::kRead, Refusal(nullptr)) == KORX_READER_OK;
}

}  // namespace

korx_reader_code LockedLog::open(const Refusal& error) {
    korx_reader_code code = file_.open(source_.path, source_.borrowed, Access::kRead, error);
    if (code != KORX_READER_OK)
        return code;
    const bool locks = source_.locking == Locking::kWait && kind_.lock != LogLockKind::kNone;
    has_header_ = kind_.shape == Shape::kStart && OpenHeader(source_, &header_);
    // The writers of the start log take the header's lock first.
    if (locks && has_header_)
        code = header_lock_.acquire(Access::kRead, source_.timeout_ms,
                                    error.about(source_.header_path));
    if (code == KORX_READER_OK && locks)
        code = lock_.acquire(Access::kRead, source_.timeout_ms, error);
    return code == KORX_READER_OK ? file_.examine(error) : code;
}

korx_reader_code LockedLog::copy(const Refusal& error, LogImage* image) const {
    korx_reader_code code =
        ReadBytes(file_.fd(), NeededBytes(*image, file_), source_, error, &image->bytes);
    if (code != KORX_READER_OK)
        return code;
    // A file may grow while it is copied without lock.
    image->file_size = std::max<uint64_t>(file_.size(), image->bytes.size);
    if (!has_header_)
        return KORX_READER_OK;
    return ReadBytes(header_.fd(), kStartHeaderRoom, source_, error.about(source_.header_path),
                     &image->header);
}

korx_reader_code PeekKind(const Source& source, const Refusal& error, korx_log_kind* kind) {
    LogFile file;
    const korx_reader_code code = file.open(source.path, source.borrowed, Access::kRead, error);
    if (code != KORX_READER_OK)
        return code;
    char beginning[kPeekSize];
    const ReadResult got = ReadUpTo(file.fd(), beginning, sizeof beginning, 0);
    *kind = got.error != 0 ? KORX_LOG_AUTO : GuessKind({beginning, got.count});
    if (*kind == KORX_LOG_AUTO)
        return error.refuse(KORX_READER_UNKNOWN, 0, "not a log of any known kind");
    return KORX_READER_OK;
}

}  // namespace korx
