// File copies.
//
// The safe copy writes to a temporary name beside the destination and renames. What it deletes on
// the way, the old destination and a stale temporary file, must never be the source under another
// name; that is settled before anything is deleted.
#include "korx/fs.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "base/alloc.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/directory.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "fs/entry.h"
#include "fs/mode.h"
#include "fs/protect.h"
#include "fs/resolve.h"

namespace korx {
namespace {

constexpr size_t kStepSize = 4096;
constexpr size_t kKernelStepSize = 16 << 20;
constexpr mode_t kDirectoryMode = 0750;

constexpr int kOpenSource = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
// For reading too, because the opening of a FIFO that has just appeared would wait for a reader.
constexpr int kOpenDestination = O_RDWR | O_CREAT | O_NOCTTY | O_CLOEXEC;
constexpr int kOpenTemporary = O_EXCL | O_NOFOLLOW;  // besides

constexpr char kTemporarySuffix[] = ".orxtmp";

constexpr unsigned kReadRetries = 30000;
constexpr useconds_t kReadPauseUs = 10000;

// Moves what the kernel moves by itself of a regular file's size, without a detour through our
// memory. What ends that is not looked at. Both positions stand behind what has arrived, so reading
// and writing go on from there: they find the end, also of files that have grown or whose size is
// told as 0, or meet the same failure and tell which of the two it was.
void MoveInKernel(int from, int to, off_t size) {
    for (off_t left = size; left > 0;) {
        const ssize_t moved = sendfile(to, from, nullptr, kKernelStepSize);
        if (moved <= 0)
            return;
        left -= moved;
    }
}

// Moves everything from one descriptor to the other through buffer, of kStepSize. source and
// destination are the names for the messages.
uint32_t MoveData(int from, int to, char* buffer, const char* source, const char* destination) {
    for (;;) {
        const ssize_t got = read(from, buffer, kStepSize);
        if (got == 0)
            return kOk;
        if (got < 0)
            return Fail(kFailed, "Read file [%s] unsuccessfully, errno:%d.", source, errno);
        const ssize_t written = WriteAll(to, buffer, static_cast<size_t>(got));
        if (written <= 0)
            return Fail(kFailed, "Write file [%s] unsuccessfully, writeCnt [%d].", destination,
                        static_cast<int>(written));
    }
}

// What is copied.
struct Source {
    const char* name;
    UniqueFd fd;
    struct stat st;
};

uint32_t OpenSource(Source* source) {
    BuildText resolved;
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(source->name, resolved.data(), resolved.capacity());
    if (code != kOk)
        return Fail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", source->name, code);
    source->fd.reset(open(resolved.c_str(), kOpenSource));
    if (!source->fd)
        return Warn(kFailed, "CopyFile:open file source path %s errno:%d!", source->name, errno);
    if (fstat(source->fd.get(), &source->st) < 0)
        return Fail(kFailed, "get file %s stat unsuccessfully, errno:%d.", resolved.c_str(), errno);
    return kOk;
}

// What a copy came to. A failed one has left something at the destination's name, or may have; a
// refused one has touched nothing.
enum class Copied { kDone, kFailed, kRefused };

// Reports what a copy must not be written to, nor deleted when it fails.
bool IsRefused(const struct stat& st, const Source& source, const char* destination) {
    if (IsSameFile(st, source.st))
        return Fail(true, "CopyFile:source path %s and destination path %s are the same file!",
                    source.name, destination);
    if (S_ISFIFO(st.st_mode))
        return Fail(true, "CopyFile:destination path %s is a FIFO!", destination);
    return false;
}

Copied FillOpened(const Source& source, const UniqueFd& to, const char* destination, char* buffer) {
    if (S_ISREG(source.st.st_mode))
        MoveInKernel(source.fd.get(), to.get(), source.st.st_size);
    const uint32_t code = MoveData(source.fd.get(), to.get(), buffer, source.name, destination);
    return code == kOk ? Copied::kDone : Copied::kFailed;
}

// Copies to the resolved name of the destination.
Copied CopyInto(const Source& source, const char* destination, const char* resolved, int flags,
                char* buffer) {
    struct stat st;
    if (stat(resolved, &st) == 0 && IsRefused(st, source, destination))
        return Copied::kRefused;
    // Truncated only when it is known what has been opened: the name may lead elsewhere by now.
    const UniqueFd to(
        open(resolved, kOpenDestination | flags, source.st.st_mode & kPermissionBits));
    const bool opened = to && fstat(to.get(), &st) == 0;
    if (opened && IsRefused(st, source, destination))
        return Copied::kRefused;
    if (!opened || (S_ISREG(st.st_mode) && ftruncate(to.get(), 0) < 0)) {
        Log(kLevelErr, "CopyFile:open file destination path %s errno:%d!", destination, errno);
        return Copied::kFailed;
    }
    return FillOpened(source, to, destination, buffer);
}

// Removes what a failed copy has left, unless the source has come to stand there meanwhile.
uint32_t Conclude(Copied copied, const DirectoryText& resolved, const Source& source) {
    if (copied == Copied::kDone)
        return kOk;
    struct stat st;
    const bool is_source = stat(resolved.c_str(), &st) == 0 && IsSameFile(st, source.st);
    if (copied == Copied::kFailed && !is_source)
        (void) KORX_DelFile(resolved.c_str(), resolved.capacity());
    return kFailed;
}

MallocPtr<char> MakeBuffer() {
    return MallocPtr<char>(static_cast<char*>(AllocateZeroed(kStepSize)));
}

// The raw copy; flags are added to the destination's open. The source may be open already.
uint32_t CopyFile(Source* source, const char* destination, int flags) {
    const MallocPtr<char> buffer = MakeBuffer();
    if (!buffer)
        return Fail(kFailed, "Malloc unsuccessfully.");
    const uint32_t opened = source->fd ? kOk : OpenSource(source);
    if (opened != kOk)
        return opened;

    DirectoryText resolved;
    Copied copied = Copied::kFailed;
    if (ORX_GetAbsolutePathAndFileName(destination, resolved.data(), resolved.capacity()) == kOk)
        copied = CopyInto(*source, destination, resolved.c_str(), flags, buffer.get());
    else
        Log(kLevelErr,
            "Get the abolute path and file name of file %s unsuccessfully when copy file.",
            destination);
    return Conclude(copied, resolved, *source);
}

uint32_t FailAsSame(const char* source, const char* destination) {
    return Fail(ORXFS_ERR_SAME_FILE, "[ORXFS-LOCAL] Src File '%s' is same to Dst File '%s'!",
                source, destination);
}

// Where the safe copy writes. Every length is settled here, before the old destination goes.
struct Target {
    uint32_t set(const char* destination) {
        const char* const last = NameOf(destination);
        has_directory = last != destination;
        if (has_directory) {
            const auto directory_length = static_cast<size_t>(last - 1 - destination);
            uint32_t code = copy_part({destination, directory_length}, &directory);
            if (code == kOk)
                code = copy_part(last, &name);
            if (code != kOk)
                return code;
        }
        const bool fits = strlen(destination) + sizeof kTemporarySuffix < temporary.capacity() &&
                          strlen(name.c_str()) + sizeof kTemporarySuffix < name.capacity();
        if (fits && !temporary.format("%s%s", destination, kTemporarySuffix))
            return Fail(kFailed, "Print pcDstFileName unsuccessfully, pcDstFileName=%s/%s",
                        destination, kTemporarySuffix);
        return kOk;
    }

    bool has_directory = false;
    DirectoryText directory;
    ComponentText name;
    DirectoryText temporary;  // empty when its name would be too long

  private:
    template <size_t N>
    static uint32_t copy_part(std::string_view part, FixedText<N>* text) {
        const int error = strncpy_s(text->data(), N, part.data(), part.size());
        if (error != 0)
            return Fail(kFailed,
                        "nRet=%d.Copy DstFileName unsuccessfully, DstFileName=%s, FileNameLen=%u.",
                        error, part.data(), static_cast<unsigned>(part.size()));
        return kOk;
    }
};

uint32_t FailedCopy(uint32_t code, const char* source, const char* destination) {
    return Fail(code, "[ORXFS-LOCAL] Copy File unsuccessfully! src: %s, dst: %s, return %u", source,
                destination, code);
}

uint32_t FinishTemporary(uint32_t code, const char* source, const char* temporary,
                         const char* destination) {
    if (code != kOk)
        return FailedCopy(code, source, temporary);
    if (rename(temporary, destination) < 0) {
        Log(kLevelErr, "[ORXFS-LOCAL] Rename %s to %s unsuccessfully, errno:%d.", temporary,
            destination, errno);
        (void) unlink(temporary);
    }
    return kOk;
}

// A file or link that stands at the temporary name is not written through: it goes, and if another
// takes its place at once, the copy fails.
uint32_t CopyThroughTemporary(Source* source, const char* temporary, const char* destination) {
    (void) unlink(temporary);
    return FinishTemporary(CopyFile(source, temporary, kOpenTemporary), source->name, temporary,
                           destination);
}

// The copy that there is most often: between paths that are their own resolutions, to a name where
// nothing stands. Nothing has to be deleted first then, so nothing has to be kept from being the
// source or on the way to it; and when the temporary file could be made, its name was free and its
// directory there. All that is found out by doing it, not by looking first.
class FreshCopy {
  public:
    // False when it is none of these: then nothing has been done or said, but source may be open.
    bool begin(Source* source, const char* destination) {
        const bool fits = strlen(destination) + sizeof kTemporarySuffix < temporary_.capacity() &&
                          strlen(NameOf(destination)) + sizeof kTemporarySuffix < kComponentSize &&
                          temporary_.format("%s%s", destination, kTemporarySuffix);
        struct stat st;
        if (!fits || lstat(destination, &st) == 0 || errno != ENOENT)
            return false;
        source->fd = OpenAsNamed(source->name, kOpenSource, 0);
        if (!source->fd || fstat(source->fd.get(), &source->st) < 0) {
            source->fd.reset();
            return false;
        }
        buffer_ = MakeBuffer();
        if (buffer_)
            to_ = OpenAsNamed(temporary_.c_str(), kOpenDestination | kOpenTemporary,
                              source->st.st_mode & kPermissionBits);
        return static_cast<bool>(to_);
    }

    uint32_t finish(const Source& source, const char* destination) {
        ReportMissing(destination);
        const char* const temporary = temporary_.c_str();
        const Copied copied = FillOpened(source, to_, temporary, buffer_.get());
        to_.reset();
        DirectoryText resolved;  // differs from temporary below the root, by a slash
        if (copied != Copied::kDone)
            (void) ORX_GetAbsolutePathAndFileName(temporary, resolved.data(), resolved.capacity());
        return FinishTemporary(Conclude(copied, resolved, source), source.name, temporary,
                               destination);
    }

  private:
    DirectoryText temporary_;
    MallocPtr<char> buffer_;
    UniqueFd to_;
};

uint32_t CheckNames(const char* source, uint32_t source_length, const char* destination,
                    uint32_t destination_length) {
    if (source == nullptr || destination == nullptr)
        return Fail(
            ORXFS_ERR_NULL_PARA,
            "[ORXFS-LOCAL] Check copy filename unsuccessfully, srcFile or dstFile is NULL!");

    uint32_t code = KORX_CheckFileName(source, source_length);
    if (code != ORXFS_OK)
        return Fail(code, "[ORXFS-LOCAL] Check filename: %s unsuccessfully!", source);
    code = KORX_CheckFileName(destination, destination_length);
    if (code != ORXFS_OK)
        return Fail(code, "[ORXFS-LOCAL] Check filename: %s unsuccessfully!", destination);
    return strcmp(source, destination) == 0 ? FailAsSame(source, destination) : ORXFS_OK;
}

uint32_t CheckExistence(const char* source) {
    if (KORX_IsFileExist(source) == KORX_FALSE)
        return Warn(ORXFS_ERR_NOT_EXIST, "[ORXFS-LOCAL] File '%s' is not exist!", source);
    return ORXFS_OK;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_CopyFile(const char* source, uint32_t, const char* destination, uint32_t) {
    Source from = {source, UniqueFd(), {}};
    return CopyFile(&from, destination, 0);
}

uint32_t KORXFS_CheckCopyFilePara(const char* source, uint32_t source_length,
                                  const char* destination, uint32_t destination_length) {
    const uint32_t code = CheckNames(source, source_length, destination, destination_length);
    return code == ORXFS_OK ? CheckExistence(source) : code;
}

uint32_t KORXFS_CopyFile(const char* source, uint32_t source_length, const char* destination,
                         uint32_t overwrite, uint32_t destination_length) {
    uint32_t code = CheckNames(source, source_length, destination, destination_length);
    if (code != ORXFS_OK)
        return code;
    Source from = {source, UniqueFd(), {}};
    FreshCopy fresh;
    if (fresh.begin(&from, destination))
        return fresh.finish(from, destination);
    code = CheckExistence(source);
    if (code != ORXFS_OK)
        return code;
    const bool exists = KORX_IsFileExist(destination) == KORX_TRUE;
    if (exists && overwrite == ORXFS_KEEP_EXISTING)
        return Fail(ORXFS_ERR_ALREADY_EXIST, "[ORXFS-LOCAL] File '%s' is already exist!",
                    destination);

    Target target;
    code = target.set(destination);
    if (code != kOk)
        return code;
    if (HoldsSource(destination, source) ||
        (!target.temporary.empty() && HoldsSource(target.temporary.c_str(), source)))
        return FailAsSame(source, destination);

    if (exists)
        (void) KORX_DelFile(destination, destination_length);
    if (KORX_IsFileProtected(destination) == KORX_TRUE)
        return Fail(ORXFS_ERR_PROTECTED, "[ORXFS-LOCAL] File '%s' is protected!", destination);
    if (target.has_directory && KORX_IsDirExist(target.directory.c_str()) == KORX_FALSE)
        (void) KORX_Mkdir(target.directory.c_str(), kDirectoryMode);

    if (!target.temporary.empty())
        return CopyThroughTemporary(&from, target.temporary.c_str(), destination);
    code = CopyFile(&from, destination, 0);
    return code == kOk ? kOk : FailedCopy(code, source, destination);
}

uint32_t ORXFS_Read(int fd, void* buffer, uint32_t length) {
    if (buffer == nullptr)
        return kAllBits;
    char* position = static_cast<char*>(buffer);
    uint32_t left = length;
    unsigned retries = kReadRetries;
    while (left != 0) {
        const ssize_t got = read(fd, position, left);
        if (got == 0)
            break;
        if (got > 0) {
            position += got;
            left -= static_cast<uint32_t>(got);
            continue;
        }
        if (errno != EAGAIN && errno != EINTR)
            return Fail(kAllBits, "[ORXFS-LOCAL] read fd %d unsuccessfully!, errno:%d.", fd, errno);
        if (retries == 0)
            return Fail(
                kAllBits,
                "[ORXFS-LOCAL] read fd %d unsuccessfully, buflen %d, left %d, retry too many times!",
                fd, static_cast<int>(length), static_cast<int>(left));
        (void) usleep(kReadPauseUs);
        --retries;
    }
    return length - left;
}
