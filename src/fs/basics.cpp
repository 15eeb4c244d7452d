// The small file and directory operations on which the other rooms stand.
#include "korx/fs.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/directory.h"
#include "base/lock.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "fs/mode.h"
#include "fs/tree.h"
#include "korx/str.h"
#include "str/directories.h"

namespace korx {
namespace {

constexpr size_t kMaxFileName = kFullPathSize - 2;
constexpr size_t kMaxDirName = kDirectorySize - 2;
constexpr size_t kAccountTextSize = 128;

uint32_t LockWhole(int fd, short type) {
    if (fd < 0)
        return kFailed;
    const int result = SetRecordLock(fd, F_SETLKW, type, 0, SEEK_SET, 0, OnDeadlock::kFail);
    return result < 0 ? kFailed : kOk;
}

// A user's or a group's entry with the texts that it points to. They hold a password, or its hash,
// and are wiped.
template <typename Entry>
class Account {
  public:
    Account() = default;
    ~Account() {
        explicit_bzero(&entry_, sizeof entry_);
        explicit_bzero(texts_, sizeof texts_);
    }
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    // Looks an entry up with getpwnam_r or getgrnam_r. Returns its errno value.
    template <typename Find>
    int find(Find by_name, const char* name) {
        return by_name(name, &entry_, texts_, sizeof texts_, &found_);
    }
    // Null when the name is unknown.
    const Entry* entry() const { return found_; }

  private:
    Entry entry_ = {};
    Entry* found_ = nullptr;
    char texts_[kAccountTextSize] = {};
};

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_IsFileExist(const char* path) {
    struct stat st;
    return path != nullptr && stat(path, &st) == 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_IsDirExist(const char* path) {
    struct stat st;
    return path != nullptr && stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_IsSymLink(const char* path, uint32_t) {
    struct stat st;
    return path != nullptr && lstat(path, &st) == 0 && S_ISLNK(st.st_mode) ? KORX_TRUE : KORX_FALSE;
}

void KORX_RemoveLastRn(char* text) {
    ORX_RemoveLastRn(text, 0);
}

uint32_t KORX_Mkdir(const char* path, uint32_t mode) {
    const size_t length = strlen(path);
    if (length >= kFullPathSize)
        return Fail(kInvalidParam, "The path name length of %s is %u and is invalid. ", path,
                    static_cast<uint32_t>(length));
    if (path[0] != '/')
        return Fail(kInvalidParam, "The path name %s is invalid,it should be full path. ", path);
    FullPathText text;
    if (!text.format("%s", path))
        return Fail(kFailed, "print pcPathname unsuccessfully, pcPathname=%s", path);
    // The umask has taken bits away from what mkdir made. Nothing else gets them, if something else
    // stands there by now.
    const auto give_mode = [mode](const char* made) {
        const UniqueFd fd(open(made, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        (void) ChangeMode(fd, made, {0, mode});
    };
    if (!MakeDirectories(text.data(), mode, give_mode))
        return Fail(kCreateDirFailed, "Create %s directory unsuccessfully as %d. ", path, errno);
    return kOk;
}

uint32_t KORX_LockFile(int fd) {
    return LockWhole(fd, F_WRLCK);
}

uint32_t KORX_UnLockFile(int fd) {
    return LockWhole(fd, F_UNLCK);
}

uint32_t KORX_IsPostfixMatch(const char* text, const char* suffix) {
    const size_t length = strlen(text);
    const size_t suffix_length = strlen(suffix);
    if (length <= suffix_length)
        return KORX_FALSE;
    return strcasecmp(text + length - suffix_length, suffix) == 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_IsPrefixMatch(const char* text, const char* prefix) {
    if (ORX_IsSpaceString(text) == KORX_TRUE || ORX_IsSpaceString(prefix) == KORX_TRUE)
        return KORX_FALSE;
    return strncmp(text, prefix, strlen(prefix)) == 0 ? KORX_TRUE : KORX_FALSE;
}

char* KORX_GetFileName(char* path) {
    return const_cast<char*>(NameOf(path));
}

uint32_t KORX_GetUidByName(const char* name, uint32_t* uid) {
    if (name == nullptr || uid == nullptr)
        return Fail(kFailed, "param error");
    Account<struct passwd> user;
    if (const int error = user.find(getpwnam_r, name); error != 0)
        return Fail(kFailed, "getpwnam failed, errno:%d", error);
    if (user.entry() == nullptr)
        return kFailed;
    *uid = user.entry()->pw_uid;
    return kOk;
}

uint32_t KORX_GetGidByName(const char* name, uint32_t* gid) {
    if (name == nullptr || gid == nullptr)
        return Fail(kFailed, "param error");
    Account<struct group> group;
    if (const int error = group.find(getgrnam_r, name); error != 0)
        return Fail(kFailed, "getgrnam failed, errno:%d", error);
    if (group.entry() == nullptr)
        return kFailed;
    *gid = group.entry()->gr_gid;
    return kOk;
}

int32_t KORX_Write(int fd, const void* data, int32_t length) {
    if (data == nullptr)
        return -1;
    if (length < 1)
        return length;
    return static_cast<int32_t>(WriteAll(fd, data, static_cast<size_t>(length)));
}

uint32_t KORX_DelFile(const char* path, uint32_t) {
    if (path == nullptr)
        return ORXFS_ERR_NULL_PARA;
    if (remove(path) < 0)
        return Warn(ORXFS_ERR_REMOVE, "[ORXFS-LOCAL] Remove %s unsuccessfully! errno=%d.", path,
                    errno);
    Log(kLevelInfo, "[ORXFS-LOCAL] Success to remove %s.", path);
    return ORXFS_OK;
}

uint32_t KORX_CheckFileName(const char* name, uint32_t) {
    if (name == nullptr)
        return ORXFS_ERR_NULL_PARA;
    const size_t length = strlen(name);
    if (length == 0)
        return Fail(ORXFS_ERR_NAME_EMPTY, "[ORXFS-LOCAL] filename length is zero!");
    if (length > kMaxFileName)
        return Fail(ORXFS_ERR_NAME_TOO_LONG, "[ORXFS-LOCAL] filename %s length is too long!", name);
    if (name[length - 1] == '/')
        return Fail(ORXFS_ERR_NAME_END_SLASH, "[ORXFS-LOCAL] filename %s is end by '/'!", name);
    return ORXFS_OK;
}

uint32_t KORX_CheckDirName(const char* name) {
    if (name == nullptr)
        return ORXFS_ERR_NULL_PARA;
    const size_t length = strlen(name);
    if (length == 0)
        return Fail(ORXFS_ERR_DIR_NAME_EMPTY, "[ORXFS-LOCAL] dirname length is zero!");
    if (length > kMaxDirName)
        return Fail(ORXFS_ERR_DIR_NAME_TOO_LONG, "[ORXFS-LOCAL] dirname %s length is too long!",
                    name);
    return ORXFS_OK;
}

uint32_t KORX_IsDirEmpty(const char* path) {
    struct stat st;
    if (path == nullptr || lstat(path, &st) < 0)
        return KORX_TRUE;
    const UniqueDir directory(opendir(path));
    if (!directory)
        return Fail(ORXFS_ERR_DIR_OPEN, "Path:%s not Exist, errno:%d.", path, errno);
    return Entries(directory.get()).next() == nullptr ? KORX_TRUE : KORX_FALSE;
}
