// Saving of profiles. The new version of F is written to F+, synced and renamed over F after the
// old one has been linked to F-, so that F is whole at any moment.
#include "korx/ini.h"

#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/errno_saver.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "ini/profile.h"
#include "korx/fs.h"

namespace korx {
namespace {

constexpr size_t kTemporarySize = 128;
constexpr mode_t kTemporaryMode = 0600;
constexpr mode_t kKeptModeBits = 0740;
constexpr int kCreateAttempts = 30;
constexpr useconds_t kCreatePauseUs = 100000;

using TemporaryName = FixedText<kTemporarySize>;

bool RemoveRemains(const char* temporary) {
    if (KORX_IsFileExist(temporary) == KORX_FALSE)
        return true;
    Log(kLevelInfo, "[ORX]file '%s' remain! delete it!", temporary);
    if (unlink(temporary) < 0)
        return Fail(false, "[ORX] Delete file '%s' unsuccessfully! errno=%d.", temporary, errno);
    return true;
}

// Waits for another saver of the same file to be done with it.
UniqueFd CreateTemporary(const char* temporary) {
    for (int attempt = 0; attempt < kCreateAttempts; ++attempt) {
        UniqueFd fd(open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kTemporaryMode));
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

// Best effort: a process that may not give the file away still stores the value.
void TakeOverOwnership(int from, int to) {
    struct stat st;
    if (fstat(from, &st) < 0)
        return;
    (void) fchmod(to, st.st_mode & kKeptModeBits);
    [[maybe_unused]] const int owned = fchown(to, st.st_uid, st.st_gid);
}

// A failed write stays in the stream's error indicator, where it is looked for.
void WriteProfile(FILE* out, const KORX_IniSection* profile) {
    for (const auto* section = profile; section != nullptr; section = section->pstNext) {
        if (section != profile)
            (void) fprintf(out, "\n");
        (void) fprintf(out, "%s\n", section->acName);
        for (const auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            (void) fprintf(out, "%s=%s\n", key->acKey, key->acValue);
    }
}

bool ReachesDisk(FILE* out) {
    errno = 0;
    return ferror(out) == 0 && fflush(out) == 0 && fsync(fileno(out)) == 0;
}

// Writes the new version next to the profile, under the last two locks of a change: F+ until it is
// whole, and F, still the old version, until the new one stands in its place. A file system that
// grants no lock on F does not stop the change.
bool WriteTemporary(const char* temporary, const char* file, FILE* old, RecordLock* old_lock,
                    const KORX_IniSection* profile) {
    UniqueFd fd = CreateTemporary(temporary);
    if (!fd)
        return Fail(false, "[ORX]ORX_SaveProfile can't create '%s'! errno %d!", temporary, errno);
    UniqueFile out;
    RecordLock lock(fd.get());
    if (!LockOrReport(&lock, temporary) || !Empty(fd.get(), temporary))
        return false;
    TakeOverOwnership(fileno(old), fd.get());

    errno = 0;
    out.reset(fdopen(fd.get(), "w"));
    if (!out)
        return Fail(false, "[ORX]ORX_SaveProfile fdopen unsuccessfully! errno=%d!", errno);
    (void) fd.release();
    (void) LockOrReport(old_lock, file);
    WriteProfile(out.get(), profile);
    if (!ReachesDisk(out.get()))
        return Fail(false, "[ORX]ORX_SaveProfile file operating unsuccessfully! errno:%d!", errno);
    return true;
}

void KeepBackup(const char* file, TemporaryName backup) {
    backup.data()[strlen(backup.c_str()) - 1] = '-';
    const bool cleared = unlink(backup.c_str()) == 0 || errno == ENOENT;
    if (!cleared || link(file, backup.c_str()) < 0)
        Log(kLevelWarning, "warning: can't create backup copy '%s'", backup.c_str());
}

void SyncFile(const char* path) {
    const UniqueFd fd(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd)
        (void) fsync(fd.get());
}

// The new name is on disk only once its directory is.
void SyncDirectory(DirectoryText path) {
    const char* const directory = dirname(path.data());
    const UniqueFd fd(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) < 0)
        Log(kLevelErr, "[ORX] Sync directory '%s' unsuccessfully! errno=%d.", directory, errno);
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_IniSaveFile(const char* file, const KORX_IniSection* profile) {
    TemporaryName temporary;
    if (!temporary.format("%s+", file))
        return Fail(kFailed, "[ORX]print file unsuccessfully, file=%s.", file);
    if (!RemoveRemains(temporary.c_str()))
        return kFailed;
    DirectoryText path;
    const uint32_t code = ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity());
    if (code != kOk)
        return Fail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", file, code);
    const UniqueFile old = OpenProfile(path.c_str());
    if (!old)
        return SysFail(kFailed, "[ORX] Can't open file '%s', errno=%d!", file, errno);

    RecordLock old_lock(fileno(old.get()));
    if (!WriteTemporary(temporary.c_str(), file, old.get(), &old_lock, profile))
        return kFailed;
    KeepBackup(file, temporary);
    errno = 0;
    if (rename(temporary.c_str(), file) < 0)
        return Fail(kFailed, "[ORX]rename file '%s' to '%s' unsuccessfully! errno = %d!",
                    temporary.c_str(), file, errno);

    if (ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity()) != kOk)
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when init save file.",
                    file);
    SyncFile(path.c_str());
    SyncDirectory(path);
    return kOk;
}
