// A ring with a damaged head is lost to its writers: the protected ones refuse every record, for
// good. Nothing tells any more which records were taken, so all that can be found are handed out,
// and the file is kept as it was.
//
// All of it happens under the writers' lock, and in an order in which every step may be the last:
// the copy is durable before anything else, the records are kept by the caller before the ring is
// emptied, and that is one call. An empty file already is a sound ring, and the head that follows
// only makes it look like one.
#include "reader/repair.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/sync_directory.h"
#include "base/text.h"
#include "base/write_all.h"
#include "reader/laps.h"
#include "reader/unread.h"

namespace korx {
namespace {

constexpr int kMaxCopies = 1000;

// The copy of the damaged file, removed again unless it is released.
class DamagedCopy {
  public:
    using Path = FixedText<sizeof korx_reader_repaired::copy>;

    DamagedCopy() = default;
    ~DamagedCopy() {
        if (!path_.empty())
            (void) unlink(path_.c_str());
    }
    DamagedCopy(const DamagedCopy&) = delete;
    DamagedCopy& operator=(const DamagedCopy&) = delete;

    // Beside the log, under a name that was free, with the log's owner and mode.
    SystemResult make(const char* log, int log_fd, std::string_view bytes) {
        const UniqueFd fd = create(log);
        if (!fd)
            return SystemResult::Failed();
        LikeLog(log_fd, fd.get());
        const auto length = static_cast<ssize_t>(bytes.size());
        if (WriteAll(fd.get(), bytes.data(), bytes.size()) != length || fsync(fd.get()) < 0)
            return SystemResult::Failed();
        return SyncDirectoryOf(path_.c_str());
    }
    Path release() { return std::exchange(path_, {}); }

  private:
    UniqueFd create(const char* log) {
        for (int i = 1; i <= kMaxCopies; ++i) {
            Path path;
            if (!path.format("%s.damaged.%d", log, i)) {
                errno = ENAMETOOLONG;
                break;
            }
            UniqueFd fd(
                open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
            if (fd)
                path_ = path;
            if (fd || errno != EEXIST)
                return fd;
        }
        return UniqueFd();
    }

    Path path_;
};

korx_reader_code ReadAll(const LogFile& file, uint64_t most, const Refusal& error,
                         LogImage* image) {
    if (file.size() > most)
        return error.refuse(KORX_READER_TOO_LARGE, 0, "more bytes than may be read");
    const auto size = static_cast<size_t>(file.size());
    image->bytes.data.reset(static_cast<char*>(malloc(std::max<size_t>(size, 1))));
    if (!image->bytes.data)
        return error.refuse(KORX_READER_NO_MEMORY, ENOMEM, "no memory for %zu bytes", size);
    const ReadResult got = ReadUpTo(file.fd(), image->bytes.data.get(), size, 0);
    if (got.error != 0 || got.count != size)
        return error.refuse(KORX_READER_READ, got.error, "reading failed: %s", strerror(got.error));
    image->bytes.size = size;
    image->file_size = size;
    return KORX_READER_OK;
}

// By the head where it is only wrong about the reader, else by the records alone. False: out of
// memory.
bool FindRecords(LogImage* image) {
    if (!image->analyse())
        return false;
    if (image->head_sound)
        return true;
    image->entries.truncate(0);
    (void) ReadUnmarkedLaps(
        {.begin = kRingHeadSize, .end = image->bytes.size, .usual_size = image->format.kind->limit},
        image);
    return !image->entries.out_of_memory() && !image->damage.out_of_memory();
}

korx_reader_code HandOver(const Keeper& keeper, const Refusal& error, korx_reader* reader,
                          korx_reader_repaired* repaired) {
    korx_record record;
    bool kept = true;
    while (kept && korx_reader_next(reader, &record) == 1) {
        if ((record.flags & KORX_RECORD_DAMAGED) != 0)
            continue;
        kept = keeper.keep(keeper.context, reader, &record) == 0;
        ++repaired->records;
    }
    if (kept && keeper.keep(keeper.context, reader, nullptr) == 0)
        return KORX_READER_OK;
    return error.refuse(KORX_READER_REFUSED, 0, "not repaired: the records were not kept");
}

korx_reader_code Empty(int fd, const Refusal& error, DamagedCopy* copy,
                       korx_reader_repaired* repaired) {
    if (ftruncate(fd, 0) < 0)
        return error.refuse(KORX_READER_WRITE, errno, "not repaired: emptying failed: %s",
                            strerror(errno));
    memcpy(repaired->copy, copy->release().c_str(), sizeof repaired->copy);
    constexpr LOG_HEAD_S kEmpty = {};
    if (pwrite(fd, &kEmpty, sizeof kEmpty, 0) != ssize_t{sizeof kEmpty} || fsync(fd) < 0)
        return error.refuse(KORX_READER_UNSURE, errno,
                            "repaired, but whether that lasts is not known: %s", strerror(errno));
    return KORX_READER_OK;
}

}  // namespace

korx_reader_code Repair(const Keeper& keeper, const Refusal& error, korx_reader* reader,
                        korx_reader_repaired* repaired) {
    const Source& source = reader->source;
    LogImage& image = reader->image;
    LogFile file;
    korx_reader_code code = file.open(source.path, source.borrowed, Access::kChange, error);
    if (code != KORX_READER_OK)
        return code;
    LogLock lock(image.format.kind->lock, file);
    code = lock.acquire(Access::kChange, source.timeout_ms, error);
    if (code == KORX_READER_OK)
        code = file.examine(error);
    if (code == KORX_READER_OK)
        code = ReadAll(file, source.max_bytes, error, &image);
    if (code != KORX_READER_OK)
        return code;
    if (!FindRecords(&image))
        return error.refuse(KORX_READER_NO_MEMORY, ENOMEM, "out of memory");
    if (image.dump_sound)
        return error.refuse(KORX_READER_SOUND, 0, "not repaired: the head is sound");

    DamagedCopy copy;
    const SystemResult kept = copy.make(source.path, file.fd(), image.bytes.view());
    if (!kept.ok())
        return error.refuse(KORX_READER_WRITE, kept.error, "not repaired: copying failed: %s",
                            strerror(kept.error));
    reader->doubts = MarkUnread(&image, nullptr, &reader->info);
    code = HandOver(keeper, error, reader, repaired);
    if (code != KORX_READER_OK)
        return code;
    code = Empty(file.fd(), error, &copy, repaired);
    // It says nothing about the new ring. One that stays doesn't fit the head and is not followed.
    if (repaired->copy[0] != '\0' && reader->has_cursor())
        (void) unlink(reader->names.cursor.get());
    return code;
}

}  // namespace korx
