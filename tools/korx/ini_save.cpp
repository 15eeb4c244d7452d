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
#include <stdio.h>
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

// F as it was opened. Record locks end with any close of the file in this process, so nothing else
// opens it until the change is done.
class OldVersion {
  public:
    // name is the caller's, path what it led to.
    OldVersion(const std::string& name, const std::string& path)
        : name_(name), path_(path), fd_(Open(path, O_RDWR)) {}

    const UniqueFd& fd() const { return fd_; }
    void lock() const { Lock(fd_, path_); }
    // Others may have put another version there, or have pointed a link on the way elsewhere.
    bool is_current() const {
        return IsCurrent(fd_, path_) &&
               FileId::OfOpen(fd_.get()).is_same_as(FileId::At(name_.c_str()));
    }

  private:
    const std::string& name_;
    const std::string& path_;
    const UniqueFd fd_;
};

// F+, which is taken away again unless it has become F.
class NewVersion {
  public:
    explicit NewVersion(const std::string& file) : path_(file + "+") {
        (void) unlink(path_.c_str());  // left by a save that failed
        fd_.reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!fd_)
            Fail("creating", path_);
        id_ = FileId::OfOpen(fd_.get());
    }
    ~NewVersion() {
        if (is_current())
            (void) unlink(path_.c_str());
    }
    NewVersion(const NewVersion&) = delete;
    NewVersion& operator=(const NewVersion&) = delete;

    void lock() const { Lock(fd_, path_); }
    // A saver who knows nothing of F.lock may have put its own there.
    bool is_current() const { return id_.is_same_as(FileId::OfEntry(path_.c_str())); }
    // The owner and the mode bits that the library keeps, too.
    void take_over(const UniqueFd& from) const {
        struct stat st;
        if (fstat(from.get(), &st) < 0)
            return;
        (void) fchmod(fd_.get(), st.st_mode & 0740);
        (void) !fchown(fd_.get(), st.st_uid, st.st_gid);
    }
    void store(const std::string& text) const {
        if (!WriteAll(fd_.get(), text))
            Fail("writing", path_);
        if (fsync(fd_.get()) < 0)
            Fail("syncing", path_);
    }
    // False when F+ was taken away meanwhile, or what has moved was another one.
    bool replace(const std::string& file) const {
        if (rename(path_.c_str(), file.c_str()) < 0) {
            if (errno != ENOENT)
                Fail("replacing", file);
            return false;
        }
        const FileId moved = FileId::OfEntry(file.c_str());
        return !moved.is_known() || id_.is_same_as(moved);
    }

  private:
    const std::string path_;
    UniqueFd fd_;
    FileId id_;
};

void KeepBackup(const std::string& file) {
    const std::string backup = file + "-";
    const bool cleared = unlink(backup.c_str()) == 0 || errno == ENOENT;
    if (!cleared || link(file.c_str(), backup.c_str()) < 0)
        Complain("no backup: " + SystemError(backup, errno));
}

void SyncNames(const std::string& file) {
    if (!SyncDirectoryOf(file))
        Complain("the change may not be on disk yet: " +
                 SystemError(std::string(DirectoryOf(file)), errno));
}

// Like everything that is tried below: false when one of the files was replaced meanwhile, and then
// nothing has been changed.
bool TryToRewrite(const std::string& name, const std::string& file, const Edit& edit) {
    const OldVersion old(name, file);
    const std::string text = edit(OpenProfileText(old.fd(), file));
    const NewVersion changed(file);
    changed.lock();
    changed.take_over(old.fd());
    old.lock();
    const auto is_undisturbed = [&] { return old.is_current() && changed.is_current(); };
    if (!is_undisturbed())
        return false;
    changed.store(text);
    if (!is_undisturbed())
        return false;
    KeepBackup(file);
    if (!changed.replace(file))
        return false;
    SyncNames(file);
    return true;
}

bool TryToRevert(const std::string& name, const std::string& file) {
    const std::string path = file + "-";
    const UniqueFd backup = OpenRegular(path);
    const std::string text = OpenProfileText(backup, path);
    RefuseUnloadable(path, text);
    const OldVersion old(name, file);
    if (FileId::OfOpen(old.fd().get()).is_same_as(FileId::OfOpen(backup.get())))
        throw Failure{kFinding, path + ": the profile as it is; there is nothing to bring back"};
    old.lock();
    if (!old.is_current() || !IsCurrent(backup, path))
        return false;
    if (fsync(backup.get()) < 0)
        Fail("syncing", path);
    if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, file.c_str(), RENAME_EXCHANGE) < 0) {
        if (errno != EINVAL)
            Fail("exchanging", path);
        // Not every flash file system can. Then it is a change like others, whose text a kill
        // between the backup and the rename would leave in F+ alone.
        return TryToRewrite(name, file, [&](const std::string&) { return text; });
    }
    SyncNames(file);
    return true;
}

// Tries while nobody else changes the profile, as often as it takes. What the name leads to is
// found out each time: what is loaded in one place must not be saved in another.
void UnderChangeLock(const std::string& name,
                     const std::function<bool(const std::string& file)>& change) {
    constexpr int kMaxTries = 16;
    for (int tries = 0; tries < kMaxTries; ++tries) {
        const std::string file = ResolvedProfile(name);
        (void) OpenRegular(file);
        if (access(file.c_str(), R_OK | W_OK) < 0) {
            const int error = errno;
            throw Failure{kInput, SystemError(name, error) +
                                      (error == EPERM ? " (it is protected: immutable)" : "")};
        }
        const ChangeLock lock(file);
        if (lock.is_current() && change(file))
            return;
    }
    throw Failure{kUnchanged, name + ": it is replaced again and again"};
}

}  // namespace

std::string ResolvedProfile(const std::string& file) {
    char real[PATH_MAX];
    if (realpath(file.c_str(), real) != nullptr)
        return real;
    const int error = errno;
    if (error == ENOENT && FileId::OfEntry(file.c_str()).is_known())
        throw Failure{kInput, file + ": a link that leads nowhere"};
    throw Failure{kInput, SystemError(file, error)};
}

void RewriteProfile(const std::string& file, const Edit& edit) {
    UnderChangeLock(file, [&](const std::string& path) { return TryToRewrite(file, path, edit); });
}

void RevertProfile(const std::string& file) {
    UnderChangeLock(file, [&](const std::string& path) { return TryToRevert(file, path); });
}

}  // namespace korx::tool
