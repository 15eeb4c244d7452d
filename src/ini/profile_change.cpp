// Changes of profiles: a value set, or a key and its section added, and the whole file saved.
#include "korx/ini.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>

#include <utility>

#include "base/alloc.h"
#include "base/codes.h"
#include "base/file_id.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "ini/profile.h"
#include "korx/fs.h"

constinit pthread_mutex_t g_unKorxIniWriteLock = PTHREAD_MUTEX_INITIALIZER;

namespace korx {
namespace {

constexpr int kOpenLockFile = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kLockFileMode = 0640;

constexpr size_t kMaxFileName = kDirectorySize - 1;
constexpr size_t kMaxName = 63;
constexpr size_t kMaxSetValue = 255;

constinit pthread_mutex_t change_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit ForkMutex change_fork_mutex(&change_mutex);
constinit ForkMutex profiles_fork_mutex(&g_unKorxIniWriteLock);

bool HoldsLineEnd(const char* text) {
    return strpbrk(text, "\r\n") != nullptr;
}

// A line end inside a name or value would add lines of the caller's making to the profile, and a
// key line that reads as a section would take the keys below it away from theirs.
bool StaysOneLine(const char* section, const char* key, const char* value) {
    if (HoldsLineEnd(section) || HoldsLineEnd(key) || HoldsLineEnd(value))
        return Fail(false, "[ORX] Section, key or value holds a line end.");
    if (ReadsAsSection(key, value))
        return Fail(false, "[ORX] Key and value would be read as a section.");
    return true;
}

bool IsHeld(const MutexGuard& mutex) {
    if (mutex.error() != 0)
        return Fail(false, "Can't pthread lock ret:%d, errno: %d.", mutex.error(), errno);
    return true;
}

// F.lock, and the proof that under the lock it still is the file that others will lock.
class LockFile {
  public:
    uint32_t open_for(const char* file);
    [[nodiscard]] bool acquire() { return lock_.acquire(); }
    [[nodiscard]] bool release() { return lock_.release(); }
    bool is_current() const {
        return FileId::OfOpen(fd_.get()).is_same_as(FileId::At(path_.c_str()));
    }
    // Whether it stands beside the profile at path: the caller's name may lead to another directory
    // by now.
    bool is_for(const DirectoryText& path) const {
        DirectoryText expected;
        return expected.format("%s.lock", path.c_str()) &&
               strcmp(expected.c_str(), path_.c_str()) == 0;
    }
    const char* name() const { return name_.c_str(); }

  private:
    DirectoryText name_;
    DirectoryText path_;
    UniqueFd fd_;
    RecordLock lock_;
};

uint32_t LockFile::open_for(const char* file) {
    if (!name_.format("%s.lock", file))
        return Fail(kFailed, "Print fileIn unsuccessfully, fileIn=%s.lock.", file);
    const uint32_t code = OpenResolved(name(), kOpenLockFile, kLockFileMode, &path_, &fd_);
    if (code != kOk)
        return Fail(kFailed, "get absolutepath %s unsuccessfully, uiret=%u.", name(), code);
    if (!fd_)
        return Fail(kFailed, "Can't create or open %s. errno:%d", name(), errno);
    lock_.move_to(fd_.get());
    return kOk;
}

// Runs a change, given the lock file, while no other thread or process changes the profile.
//
// Five locks, in this order, and given back in the opposite one. A record lock is given back before
// its descriptor is closed, so it is declared behind the descriptor's owner.
//
// 1. change_mutex, one for all profiles. Record locks belong to the process: without it a second
//    thread would be let into F.lock as well, and its close would end the first one's lock.
// 2. F.lock, against other processes. It is a file of its own, because F is replaced: a lock on F
//    would stay with the old version, and the next process would lock the new one.
// 3. g_unKorxIniWriteLock, which is published: a caller who holds it keeps this process's changes
//    away. Behind F.lock, so that he does not wait for the changes of other processes, too.
// 4. F+ and 5. F, both by the saver, against programs that lock what they work on and know nothing
//    of F.lock.
//
// A change has no result yet if a file of the profile was replaced while it waited for one of them:
// then all locks but the first are given back, and it starts over with what the name leads to now.
template <typename Change>
uint32_t UnderLockFile(const char* file, Change change) {
    const Uncancelled uncancelled;
    const MutexGuard threads(change_fork_mutex);
    if (!IsHeld(threads))
        return kFailed;
    for (int tries = 0; tries < kMaxTries; ++tries) {
        LockFile lock;
        const uint32_t opened = lock.open_for(file);
        if (opened != kOk)
            return opened;
        if (!lock.acquire())
            return Fail(kFailed, "Can't lock %s.", lock.name());
        const TryResult result = lock.is_current() ? change(lock) : std::nullopt;
        if (!lock.release())
            Log(kLevelErr, "Unlock %s unsuccessfully.", lock.name());
        if (result)
            return *result;
    }
    return Fail(kFailed, "Can't lock %s.lock.", file);
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

// A profile that is to be changed, from the file that stays open until it is saved.
struct Loaded {
    DirectoryText path;
    UniqueFd fd;
    Profile profile;
    LoadStatus status = LoadStatus::kReadError;

    [[nodiscard]] bool resolve(const char* file) {
        return OpenResolved(file, kOpenProfile, 0, &path, &fd) == kOk;
    }
    // If what the name leads to could be opened.
    uint32_t load(const char* file);
};

uint32_t Loaded::load(const char* file) {
    if (!fd)
        return Fail(kFailed, "Can't Read File %s, errno: %d.", file, errno);
    status = LoadProfile(fd.get(), &profile);
    if (status == LoadStatus::kLoadedInPart)
        Log(kLevelErr, "[ORX] File %s holds a line that a change would cut or reinterpret.", file);
    return kOk;
}

TryResult ChangeExisting(const LockFile& lock, const char* file, const char* section_name,
                         const char* key_name, const char* value) {
    const MutexGuard profiles(profiles_fork_mutex);
    if (!IsHeld(profiles))
        return kFailed;
    Loaded loaded;
    if (!loaded.resolve(file))
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when init set value.",
                    file);
    if (!lock.is_for(loaded.path))
        return std::nullopt;
    const uint32_t opened = loaded.load(file);
    if (opened != kOk)
        return opened;
    if (loaded.status != LoadStatus::kLoaded || !loaded.profile)
        return Fail(KORX_INI_ERR_LOAD, "[ORX] Load file %s unsuccessfully.", file);

    KORX_IniSection* const section = FindSection(loaded.profile.get(), section_name);
    if (section == nullptr)
        return Fail(KORX_INI_ERR_NOT_FOUND, "[ORX] Section %s is not exist in file %s.",
                    section_name, file);
    KORX_IniKey* const key = FindKey(section, key_name);
    if (key == nullptr)
        return Fail(KORX_INI_ERR_NOT_FOUND,
                    "[ORX] Key %s is not exist in file %s under %s section.", key_name, file,
                    section_name);
    StoreValue(key, value);
    return SaveChange(file, loaded.path.c_str(), loaded.fd.get(), loaded.profile.get());
}

TryResult ChangeOrAdd(const LockFile& lock, const char* file, const char* section, const char* key,
                      const char* value) {
    Loaded loaded;
    if (!loaded.resolve(file))
        return Fail(kFailed,
                    "Get the abolute path of file %s unsuccessfully when set or add value.", file);
    if (!lock.is_for(loaded.path))
        return std::nullopt;
    const uint32_t opened = loaded.load(file);
    if (opened != kOk)
        return opened;
    if (loaded.status != LoadStatus::kLoaded)
        return Fail(loaded.status == LoadStatus::kOutOfMemory ? KORX_INI_ERR_NO_MEMORY : kFailed,
                    "[ORX] Load file %s unsuccessfully.", file);
    if (!SetOrAdd(&loaded.profile, section, key, value))
        return KORX_INI_ERR_NO_MEMORY;
    return SaveChange(file, loaded.path.c_str(), loaded.fd.get(), loaded.profile.get());
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_IniSetValue(const char* file, const char* section, const char* key,
                          const char* value) {
    const uint32_t checked = KORX_CheckIniValuePara(file, section, key, value);
    if (checked != kOk)
        return Fail(kFailed,
                    "check input para unsuccessfully when korx init set value, retCode:%u.",
                    checked);
    if (!StaysOneLine(section, key, value))
        return kFailed;
    // Only for the message: whoever has to wait finds out under the locks what the name leads to.
    DirectoryText path;
    if (ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity()) != kOk)
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when init set value.",
                    file);
    return UnderLockFile(file, [&](const LockFile& lock) {
        return ChangeExisting(lock, file, section, key, value);
    });
}

uint32_t KORX_IniSetOrAddValue(const char* file, const char* section, const char* key,
                               const char* value) {
    if (file == nullptr || section == nullptr || key == nullptr || value == nullptr)
        return Fail(KORX_INI_ERR_NULL_PARA, "Input para is invalid.");
    if (!StaysOneLine(section, key, value))
        return kFailed;
    return UnderLockFile(file, [&](const LockFile& lock) -> TryResult {
        MutexGuard profiles(profiles_fork_mutex);
        if (profiles.error() != 0)
            return Fail(kFailed, "Can't pthread lock %s, errno: %d.", lock.name(), errno);
        const TryResult result = ChangeOrAdd(lock, file, section, key, value);
        if (profiles.release() != 0)
            Log(kLevelErr, "Pthread unlock %s unsuccessfully, errno: %d.", lock.name(), errno);
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
