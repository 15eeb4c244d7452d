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

korx_reader_code CopyLog(const Source& source, const Refusal& error, LogFile* file,
                         LogImage* image) {
    korx_reader_code code = file->examine(error);
    if (code != KORX_READER_OK)
        return code;
    code = ReadBytes(file->fd(), NeededBytes(*image, *file), source, error, &image->bytes);
    if (code != KORX_READER_OK)
        return code;
    // A file may grow while it is copied without lock.
    image->file_size = std::max<uint64_t>(file->size(), image->bytes.size);
    return KORX_READER_OK;
}

// A header file that can't be had is damage of the log, not a failure.
bool OpenHeader(const Source& source, LogFile* header) {
    return source.header_path != nullptr &&
           header->open(source.header_path, -1, Access::kRead, Refusal(nullptr)) == KORX_READER_OK;
}

}  // namespace

korx_reader_code TakeSnapshot(const Source& source, const Refusal& error, LogImage* image,
                              FileId* id) {
    LogFile file;
    korx_reader_code code = file.open(source.path, source.borrowed, Access::kRead, error);
    if (code != KORX_READER_OK)
        return code;

    const LogKind& kind = *image->format.kind;
    const bool locks = source.locking == Locking::kWait && kind.lock != LogLockKind::kNone;
    const Refusal header_error = error.about(source.header_path);
    LogFile header;
    const bool has_header = kind.shape == Shape::kStart && OpenHeader(source, &header);
    // The writers of the start log take the header's lock first.
    LogLock header_lock(kind.lock, header.fd());
    LogLock lock(kind.lock, file.fd());
    if (locks && has_header)
        code = header_lock.acquire(Access::kRead, source.timeout_ms, header_error);
    if (code == KORX_READER_OK && locks)
        code = lock.acquire(Access::kRead, source.timeout_ms, error);
    if (code == KORX_READER_OK)
        code = CopyLog(source, error, &file, image);
    if (code == KORX_READER_OK && has_header)
        code = ReadBytes(header.fd(), kStartHeaderRoom, source, header_error, &image->header);
    *id = file.id();
    return code;
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
