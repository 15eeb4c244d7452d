// The same steps as the library's save, because both kinds of writer may meet at one file; but the
// library writes what it has parsed, and comments are not in that. The new text is written to F+,
// synced and renamed over F after the old one has been linked to F-.
//
// Lock order: F.lock, the library's mutex, F+, F.
#include "ini_save.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_id.h"
#include "common.h"
#include "files.h"
#include "korx/fs.h"
#include "korx/ini.h"
#include "profile.h"

namespace korx::tool {
namespace {

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
    throw Failure{kUnchanged, what + " failed: " + SystemError(path, errno)};
}

UniqueFd Open(const std::string& path, int flags) {
    UniqueFd fd(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0640));
    if (!fd)
        Fail("opening", path);
    return fd;
}

void Lock(const UniqueFd& fd, const std::string& path) {
    if (KORX_LockFile(fd.get()) != 0)
        Fail("locking", path);
}

// Whether the name still leads to what was opened under it: it may have been removed or replaced
// while a lock was waited for.
bool IsCurrent(const UniqueFd& fd, const std::string& path) {
    return FileId::OfOpen(fd.get()).is_same_as(FileId::OfEntry(path.c_str()));
}

// Nobody else changes the profile while it lasts.
class ChangeLock {
  public:
    explicit ChangeLock(const std::string& file)
        : name_(file + ".lock"), fd_(Open(name_, O_WRONLY | O_CREAT)) {
        Lock(fd_, name_);
        pthread_mutex_lock(&g_unKorxIniWriteLock);
    }
    ~ChangeLock() { pthread_mutex_unlock(&g_unKorxIniWriteLock); }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;

    bool is_current() const { return IsCurrent(fd_, name_); }

  private:
    const std::string name_;
    const UniqueFd fd_;
};

UniqueFd CreateTemporary(const std::string& path) {
    (void) unlink(path.c_str());  // left by a save that failed
    UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd)
        Fail("creating", path);
    return fd;
}

// The owner and the mode bits that the library keeps, too.
void TakeOver(const UniqueFd& from, const UniqueFd& to) {
    struct stat st;
    if (fstat(from.get(), &st) < 0)
        return;
    (void) fchmod(to.get(), st.st_mode & 0740);
    (void) !fchown(to.get(), st.st_uid, st.st_gid);
}

void Store(const UniqueFd& fd, const std::string& path, const std::string& text) {
    try {
        if (!WriteAll(fd.get(), text))
            Fail("writing", path);
        if (fsync(fd.get()) < 0)
            Fail("syncing", path);
    } catch (...) {
        (void) unlink(path.c_str());
        throw;
    }
}

void KeepBackup(const std::string& file) {
    const std::string backup = file + "-";
    const bool cleared = unlink(backup.c_str()) == 0 || errno == ENOENT;
    if (!cleared || link(file.c_str(), backup.c_str()) < 0)
        Complain("no backup: " + SystemError(backup, errno));
}

// The file in the directory that its name leads to now: a link on the way may lead elsewhere before
// the change is done, and what is loaded there must not be saved here.
std::string Resolved(const std::string& file) {
    const std::string directory(DirectoryOf(file));
    char real[PATH_MAX];
    if (realpath(directory.c_str(), real) == nullptr)
        Fail("opening", directory);
    return std::string(real) + "/" + NameOf(file.c_str());
}

// False when one of the files was replaced meanwhile: nothing has been changed then.
bool TryToRewrite(const std::string& file, const Edit& edit) {
    const ChangeLock change(file);
    if (!change.is_current())
        return false;
    // Read first: closing another descriptor of the file would drop the lock on it.
    const std::string text = edit(ProfileText(file));
    const UniqueFd old = Open(file, O_RDWR);
    const std::string temporary = file + "+";
    const UniqueFd fd = CreateTemporary(temporary);
    Lock(fd, temporary);
    TakeOver(old, fd);
    Lock(old, file);
    const bool is_own = IsCurrent(fd, temporary);
    if (!is_own || !FileId::OfOpen(old.get()).is_same_as(FileId::At(file.c_str()))) {
        if (is_own)
            (void) unlink(temporary.c_str());
        return false;
    }
    Store(fd, temporary, text);
    KeepBackup(file);
    if (rename(temporary.c_str(), file.c_str()) < 0)
        Fail("replacing", file);
    if (!SyncDirectoryOf(file))
        Complain("the change may not be on disk yet: " +
                 SystemError(std::string(DirectoryOf(file)), errno));
    return true;
}

}  // namespace

void RewriteProfile(const std::string& file, const Edit& edit) {
    constexpr int kMaxTries = 16;
    const std::string resolved = Resolved(file);
    for (int tries = 0; tries < kMaxTries; ++tries) {
        if (TryToRewrite(resolved, edit))
            return;
    }
    throw Failure{kUnchanged, file + ": it is replaced again and again"};
}

}  // namespace korx::tool
