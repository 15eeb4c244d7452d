// Saving of profiles. The new version of F is written to F+, synced and renamed over F after the
// old one has been linked to F-, so that F is whole at any moment.
#include "korx/ini.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "base/codes.h"
#include "base/directory.h"
#include "base/errno_saver.h"
#include "base/file_id.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "ini/profile.h"
#include "korx/fs.h"

namespace korx {
namespace {

constexpr size_t kTemporarySize = 128;
constexpr int kOpenToSync = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kTemporaryMode = 0600;
constexpr mode_t kKeptModeBits = 0740;
constexpr int kCreateAttempts = 30;
constexpr useconds_t kCreatePauseUs = 100000;

using TemporaryName = FixedText<kTemporarySize>;

bool NameTemporary(const char* file, TemporaryName* name) {
    if (!name->format("%s+", file))
        return Fail(false, "[ORX]print file unsuccessfully, file=%s.", file);
    return true;
}

bool RemoveRemains(const char* path, const char* name) {
    Log(kLevelInfo, "[ORX]file '%s' remain! delete it!", name);
    if (unlink(path) < 0)
        return Fail(false, "[ORX] Delete file '%s' unsuccessfully! errno=%d.", name, errno);
    return true;
}

// Waits for another saver of the same file to be done with it.
UniqueFd CreateTemporary(const char* path) {
    for (int attempt = 0; attempt < kCreateAttempts; ++attempt) {
        UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kTemporaryMode));
        if (fd || errno != EEXIST)
            return fd;
        const ErrnoSaver keep;
        (void) usleep(kCreatePauseUs);
    }
    return UniqueFd();
}

bool LockOrReport(RecordLock* lock, const char* file) {
    if (!lock->acquire())
        return Fail(false, "[ORX]ORX_SaveProfile can't lock '%s'! errno %d!", file, errno);
    return true;
}

bool Empty(int fd, const char* temporary) {
    if (lseek(fd, 0, SEEK_SET) < 0)
        return Fail(false, "[ORX]ORX_SaveProfile can't lseek file '%s'! errno %d!", temporary,
                    errno);
    if (ftruncate(fd, 0) < 0)
        return Fail(false, "[ORX]ORX_SaveProfile clear file '%s' content unsuccessfully! errno %d!",
                    temporary, errno);
    return true;
}

// Best effort: a process that may not give the file away still stores the value. Returns which file
// the ownership is from, if that could be examined.
FileId TakeOverOwnership(int from, int to) {
    struct stat st;
    if (fstat(from, &st) < 0)
        return FileId();
    (void) fchmod(to, st.st_mode & kKeptModeBits);
    [[maybe_unused]] const int owned = fchown(to, st.st_uid, st.st_gid);
    return FileId::Of(st);
}

// A failed write stays in the stream's error indicator, where it is looked for.
void WriteText(FILE* out, const char* text, const char* end) {
    (void) fputs_unlocked(text, out);
    (void) fputs_unlocked(end, out);
}

void WriteProfile(FILE* out, const KORX_IniSection* profile) {
    for (const auto* section = profile; section != nullptr; section = section->pstNext) {
        if (section != profile)
            WriteText(out, "", "\n");
        WriteText(out, section->acName, "\n");
        for (const auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext) {
            WriteText(out, key->acKey, "=");
            WriteText(out, key->acValue, "\n");
        }
    }
}

bool ReachesDisk(FILE* out) {
    errno = 0;
    return ferror(out) == 0 && fflush(out) == 0 && fsync(fileno(out)) == 0;
}

// The new name is on disk only once its directory is.
void SyncDirectory(const char* path) {
    FullPathText directory;
    const std::string_view text = DirectoryOf(path);
    (void) directory.format("%.*s", static_cast<int>(text.size()), text.data());
    const UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) < 0)
        Log(kLevelErr, "[ORX] Sync directory '%s' unsuccessfully! errno=%d.", directory.c_str(),
            errno);
}

// One save. It holds the last two locks of a change: that on F+ until it is whole, and that on F,
// the old version, until the new one stands in its place. Everything is done by the path of F,
// which was resolved once; the messages speak of the names that the caller knows.
class Save {
  public:
    Save(const char* file, const char* path, int old, const TemporaryName& temporary)
        : file_(file), path_(path), old_(old), temporary_(temporary), old_lock_(old) {
        (void) temporary_path_.format("%s+", path);  // fits: a path has at most 255 characters
    }
    Save(const Save&) = delete;
    Save& operator=(const Save&) = delete;

    // Removes whatever stands at F+, a link that leads nowhere included: only for a saver who knows
    // that no other is at work.
    bool remove_remains() const {
        return !FileId::OfEntry(temporary_path_.c_str()).is_known() ||
               RemoveRemains(temporary_path_.c_str(), temporary_.c_str());
    }
    TryResult run(const KORX_IniSection* profile);

  private:
    bool create();
    void keep_backup() const;
    TryResult replace() const;
    TryResult give_up() const;

    bool is_written_file(const char* path) const {
        return new_id_.is_same_as(FileId::OfEntry(path));
    }
    // Whoever held the lock on F before may have put another version there, and a saver who knows
    // nothing of F.lock may have taken F+ away.
    bool is_undisturbed() const {
        return old_id_.is_same_as(FileId::At(path_)) && is_written_file(temporary_path_.c_str());
    }

    const char* const file_;
    const char* const path_;
    const int old_;
    const TemporaryName& temporary_;
    FullPathText temporary_path_;
    UniqueFd new_fd_;      // until it has become the stream
    char buffer_[BUFSIZ];  // of the stream
    UniqueFile new_;       // open until the end, so that no other file gets the inode of F+
    FileId old_id_;        // while they are open, they stay what they are
    FileId new_id_;
    RecordLock old_lock_;
    RecordLock new_lock_;
};

TryResult Save::run(const KORX_IniSection* profile) {
    if (!create())
        return kFailed;
    // A file system that grants no lock on F does not stop the change.
    (void) LockOrReport(&old_lock_, file_);
    if (!is_undisturbed())
        return give_up();
    WriteProfile(new_.get(), profile);
    if (!ReachesDisk(new_.get()))
        return Fail(kFailed, "[ORX]ORX_SaveProfile file operating unsuccessfully! errno:%d!",
                    errno);
    (void) new_lock_.release();
    if (!is_undisturbed())
        return give_up();
    keep_backup();
    return replace();
}

bool Save::create() {
    new_fd_ = CreateTemporary(temporary_path_.c_str());
    if (!new_fd_)
        return Fail(false, "[ORX]ORX_SaveProfile can't create '%s'! errno %d!", temporary_.c_str(),
                    errno);
    new_lock_.move_to(new_fd_.get());
    if (!LockOrReport(&new_lock_, temporary_.c_str()) || !Empty(new_fd_.get(), temporary_.c_str()))
        return false;
    old_id_ = TakeOverOwnership(old_, new_fd_.get());
    if (!old_id_.is_known())
        old_id_ = FileId::OfOpen(old_);
    new_id_ = FileId::OfOpen(new_fd_.get());
    errno = 0;
    new_.reset(fdopen(new_fd_.get(), "w"));
    if (!new_)
        return Fail(false, "[ORX]ORX_SaveProfile fdopen unsuccessfully! errno=%d!", errno);
    (void) new_fd_.release();
    (void) setvbuf(new_.get(), buffer_, _IOFBF, sizeof buffer_);
    return true;
}

void Save::keep_backup() const {
    TemporaryName name = temporary_;
    name.data()[strlen(name.c_str()) - 1] = '-';
    FullPathText backup;
    (void) backup.format("%s-", path_);
    const bool cleared = unlink(backup.c_str()) == 0 || errno == ENOENT;
    if (!cleared || link(path_, backup.c_str()) < 0)
        Log(kLevelWarning, "warning: can't create backup copy '%s'", name.c_str());
}

// F+ was last looked at before the rename, so what that has moved is looked at once more: another
// saver may have put its own there, half written. That one then finds no F+ to move, and both start
// over.
TryResult Save::replace() const {
    errno = 0;
    const bool renamed = rename(temporary_path_.c_str(), path_) == 0;
    if (!renamed && errno != ENOENT)
        return Fail(kFailed, "[ORX]rename file '%s' to '%s' unsuccessfully! errno = %d!",
                    temporary_.c_str(), file_, errno);
    if (!renamed || !is_written_file(path_))
        return std::nullopt;
    DirectoryText path;
    UniqueFd fd;
    if (OpenResolved(file_, kOpenToSync, 0, &path, &fd) != kOk)
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when init save file.",
                    file_);
    // The name may lead elsewhere by now.
    if (strcmp(path.c_str(), path_) != 0)
        fd = UniqueFd(open(path_, kOpenToSync));
    if (fd)
        (void) fsync(fd.get());
    SyncDirectory(path_);
    return kOk;
}

TryResult Save::give_up() const {
    if (is_written_file(temporary_path_.c_str()))
        (void) unlink(temporary_path_.c_str());
    return std::nullopt;
}

}  // namespace

TryResult SaveChange(const char* file, const char* path, int old, const KORX_IniSection* profile) {
    TemporaryName temporary;
    if (!NameTemporary(file, &temporary))
        return kFailed;
    Save save(file, path, old, temporary);
    return save.remove_remains() ? save.run(profile) : kFailed;
}

}  // namespace korx

using namespace korx;

uint32_t KORX_IniSaveFile(const char* file, const KORX_IniSection* profile) {
    const Uncancelled uncancelled;
    TemporaryName temporary;
    if (!NameTemporary(file, &temporary))
        return kFailed;
    if (KORX_IsFileExist(temporary.c_str()) == KORX_TRUE &&
        !RemoveRemains(temporary.c_str(), temporary.c_str()))
        return kFailed;
    DirectoryText path;
    const uint32_t code = ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity());
    if (code != kOk)
        return Fail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", file, code);

    for (int tries = 0; tries < kMaxTries; ++tries) {
        const UniqueFd old(open(path.c_str(), kOpenProfile));
        if (!old)
            return SysFail(kFailed, "[ORX] Can't open file '%s', errno=%d!", file, errno);
        const TryResult result = Save(file, path.c_str(), old.get(), temporary).run(profile);
        if (result)
            return *result;
    }
    return Fail(kFailed, "[ORX]ORX_SaveProfile can't lock '%s'! errno %d!", file, ESTALE);
}
