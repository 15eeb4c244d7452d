// Rewriting of profiles. The new version of F is written to F+, synced and renamed over F after the
// old one has been linked to F-, so that F is whole at any moment.
//
// Lock order: the mutex of this process's changes, the lock file F.lock, g_unKorxIniWriteLock.
// Record locks belong to the process, and closing any descriptor of F.lock drops them: without the
// outermost mutex a second thread would end the first one's lock. Every lock is released before its
// descriptor is closed, so each is declared after the descriptor's owner.
#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/alloc.h"
#include "base/codes.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "ini/profile.h"
#include "korx/fs.h"
#include "korx/ini.h"

constinit pthread_mutex_t g_unKorxIniWriteLock = PTHREAD_MUTEX_INITIALIZER;

namespace korx {
namespace {

constexpr size_t kTemporarySize = 128;
constexpr size_t kPathSize = 256;
constexpr mode_t kTemporaryMode = 0600;
constexpr mode_t kKeptModeBits = 0740;
constexpr mode_t kLockFileMode = 0640;
constexpr int kCreateAttempts = 30;
constexpr useconds_t kCreatePauseUs = 100000;

constexpr size_t kMaxFileName = 255;
constexpr size_t kMaxName = 63;
constexpr size_t kMaxSetValue = 255;

using PathText = FixedText<kPathSize>;
using TemporaryName = FixedText<kTemporarySize>;

constinit pthread_mutex_t change_mutex = PTHREAD_MUTEX_INITIALIZER;

// --- Saving ---

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

// Writes the new version next to the profile, whose stream the caller holds locked.
bool WriteTemporary(const char* temporary, const char* file, FILE* old, RecordLock* old_lock,
                    const KORX_IniSection* profile) {
    UniqueFd fd = CreateTemporary(temporary);
    if (!fd)
        return Fail(false, "[ORX]ORX_SaveProfile can't create '%s'! errno %d!", temporary, errno);
    UniqueFile out;
    RecordLock lock(fd.get());
    if (!lock.acquire())
        return Fail(false, "[ORX]ORX_SaveProfile can't lock '%s'! errno %d!", temporary, errno);
    if (!Empty(fd.get(), temporary))
        return false;
    TakeOverOwnership(fileno(old), fd.get());

    errno = 0;
    out.reset(fdopen(fd.get(), "w"));
    if (!out)
        return Fail(false, "[ORX]ORX_SaveProfile fdopen unsuccessfully! errno=%d!", errno);
    (void) fd.release();
    if (!old_lock->acquire())
        Log(kLevelErr, "[ORX]ORX_SaveProfile can't lock '%s'! errno %d!", file, errno);
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
void SyncDirectory(PathText path) {
    const char* const directory = dirname(path.data());
    const UniqueFd fd(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) < 0)
        Log(kLevelErr, "[ORX] Sync directory '%s' unsuccessfully! errno=%d.", directory, errno);
}

// --- Changing ---

bool HoldsLineEnd(const char* text) {
    return strpbrk(text, "\r\n") != nullptr;
}

// A line end inside a name or value would add lines of the caller's making to the profile.
bool HasOnlyLines(const char* section, const char* key, const char* value) {
    if (HoldsLineEnd(section) || HoldsLineEnd(key) || HoldsLineEnd(value))
        return Fail(false, "[ORX] Section, key or value holds a line end.");
    return true;
}

uint32_t OpenLockFile(const char* file, PathText* name, UniqueFd* fd) {
    if (!name->format("%s.lock", file))
        return Fail(kFailed, "Print fileIn unsuccessfully, fileIn=%s.lock.", file);
    PathText path;
    const uint32_t code =
        ORX_GetAbsolutePathAndFileName(name->c_str(), path.data(), path.capacity());
    if (code != kOk)
        return Fail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", name->c_str(), code);
    *fd = UniqueFd(
        open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kLockFileMode));
    if (!*fd)
        return Fail(kFailed, "Can't create or open %s. errno:%d", name->c_str(), errno);
    return kOk;
}

// Runs a change, given the lock file's name, while no other thread or process changes the profile.
template <typename Change>
uint32_t UnderLockFile(const char* file, Change change) {
    const MutexGuard threads(change_mutex);
    if (threads.error() != 0)
        return Fail(kFailed, "Can't pthread lock ret:%d, errno: %d.", threads.error(), errno);
    PathText name;
    UniqueFd fd;
    const uint32_t opened = OpenLockFile(file, &name, &fd);
    if (opened != kOk)
        return opened;
    RecordLock lock(fd.get());
    if (!lock.acquire())
        return Fail(kFailed, "Can't lock %s.", name.c_str());

    const uint32_t result = change(name.c_str());
    if (!lock.release())
        Log(kLevelErr, "Unlock %s unsuccessfully.", name.c_str());
    return result;
}

// Copies a text that the loader would read back whole; a longer one leaves the field empty.
template <size_t N>
void StoreText(char (&field)[N], const char* text, size_t longest) {
    (void) memset_s(field, N, 0, N);
    if (strlen(text) <= longest)
        (void) strncpy_s(field, N, text, longest);
}

void StoreValue(KORX_IniKey* key, const char* value) {
    StoreText(key->acValue, value, kMaxValue);
}

KORX_IniKey* InsertKey(KORX_IniSection* section, const char* name, const char* value) {
    auto* const key = static_cast<KORX_IniKey*>(AllocateZeroed(sizeof(KORX_IniKey)));
    if (key == nullptr)
        return nullptr;
    StoreText(key->acKey, name, kKeySize - 1);
    StoreValue(key, value);
    key->pstNext = std::exchange(section->pstFirstKey, key);
    return key;
}

// A new section goes to the top of the file; it is linked in only with its key.
bool InsertSection(Profile* profile, const char* name, const char* key, const char* value) {
    Profile section(static_cast<KORX_IniSection*>(AllocateZeroed(sizeof(KORX_IniSection))));
    if (!section)
        return false;
    StoreText(section->acName, name, kSectionSize - 1);
    if (InsertKey(section.get(), key, value) == nullptr)
        return false;
    section->pstNext = profile->release();
    *profile = std::move(section);
    return true;
}

bool SetOrAdd(Profile* profile, const char* section_name, const char* key_name, const char* value) {
    KORX_IniSection* const section = FindSection(profile->get(), section_name);
    if (section == nullptr)
        return InsertSection(profile, section_name, key_name, value);
    KORX_IniKey* const key = FindKey(section, key_name);
    if (key == nullptr)
        return InsertKey(section, key_name, value) != nullptr;
    StoreValue(key, value);
    return true;
}

uint32_t ChangeExisting(const char* file, const char* path, const char* section_name,
                        const char* key_name, const char* value) {
    const MutexGuard profiles(g_unKorxIniWriteLock);
    if (profiles.error() != 0)
        return Fail(kFailed, "Can't pthread lock ret:%d, errno: %d.", profiles.error(), errno);
    UniqueFile stream = OpenProfile(path);
    if (!stream)
        return Fail(kFailed, "Can't Read File %s, errno: %d.", file, errno);
    Profile profile;
    (void) LoadProfile(std::move(stream), &profile);
    if (!profile)
        return Fail(KORX_INI_ERR_LOAD, "[ORX] Load file %s unsuccessfully.", file);

    KORX_IniSection* const section = FindSection(profile.get(), section_name);
    if (section == nullptr)
        return Fail(KORX_INI_ERR_NOT_FOUND, "[ORX] Section %s is not exist in file %s.",
                    section_name, file);
    KORX_IniKey* const key = FindKey(section, key_name);
    if (key == nullptr)
        return Fail(KORX_INI_ERR_NOT_FOUND,
                    "[ORX] Key %s is not exist in file %s under %s section.", key_name, file,
                    section_name);
    StoreValue(key, value);
    return KORX_IniSaveFile(file, profile.get());
}

uint32_t ChangeOrAdd(const char* file, const char* section, const char* key, const char* value) {
    PathText path;
    if (ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity()) != kOk)
        return Fail(kFailed,
                    "Get the abolute path of file %s unsuccessfully when set or add value.", file);
    UniqueFile stream = OpenProfile(path.c_str());
    if (!stream)
        return Fail(kFailed, "Can't Read File %s, errno: %d.", file, errno);
    Profile profile;
    const LoadStatus status = LoadProfile(std::move(stream), &profile);
    if (status != LoadStatus::kLoaded)
        return Fail(status == LoadStatus::kOutOfMemory ? KORX_INI_ERR_NO_MEMORY : kFailed,
                    "[ORX] Load file %s unsuccessfully.", file);
    if (!SetOrAdd(&profile, section, key, value))
        return KORX_INI_ERR_NO_MEMORY;
    return KORX_IniSaveFile(file, profile.get());
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
    PathText path;
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

uint32_t KORX_IniSetValue(const char* file, const char* section, const char* key,
                          const char* value) {
    const uint32_t checked = KORX_CheckIniValuePara(file, section, key, value);
    if (checked != kOk)
        return Fail(kFailed,
                    "check input para unsuccessfully when korx init set value, retCode:%u.",
                    checked);
    if (!HasOnlyLines(section, key, value))
        return kFailed;
    PathText path;
    if (ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity()) != kOk)
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when init set value.",
                    file);
    return UnderLockFile(
        file, [&](const char*) { return ChangeExisting(file, path.c_str(), section, key, value); });
}

uint32_t KORX_IniSetOrAddValue(const char* file, const char* section, const char* key,
                               const char* value) {
    if (file == nullptr || section == nullptr || key == nullptr || value == nullptr)
        return Fail(KORX_INI_ERR_NULL_PARA, "Input para is invalid.");
    if (!HasOnlyLines(section, key, value))
        return kFailed;
    return UnderLockFile(file, [&](const char* lock_file) {
        MutexGuard profiles(g_unKorxIniWriteLock);
        if (profiles.error() != 0)
            return Fail(kFailed, "Can't pthread lock %s, errno: %d.", lock_file, errno);
        const uint32_t result = ChangeOrAdd(file, section, key, value);
        if (profiles.release() != 0)
            Log(kLevelErr, "Pthread unlock %s unsuccessfully, errno: %d.", lock_file, errno);
        return result;
    });
}

uint32_t KORX_CheckIniValuePara(const char* file, const char* section, const char* key,
                                const char* value) {
    if (strlen(file) > kMaxFileName || strlen(section) > kMaxName || strlen(key) > kMaxName ||
        strlen(value) > kMaxSetValue)
        return Fail(KORX_INI_ERR_TOO_LONG, "Input para is invalid length of para is invalid.");
    return kOk;
}
