// Resolution of names, and comparing and cutting them as texts. Those that build a new name leave
// their output empty when they fail, so that no caller goes on with a cut or stale one; the
// canonical ones, which work in place, leave the caller's path.
#include "fs/resolve.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "korx/fs.h"
#include "korx/str.h"

namespace korx {
namespace {

constexpr size_t kNoSlash = SIZE_MAX;

// Set once the kernel has turned out not to know openat2.
constinit std::atomic<bool> lacks_openat2 = false;

// Whether no component of an absolute name stands for another place, and the split into directory
// and name takes place at a slash and fits.
bool IsCleanName(std::string_view name) {
    if (name.empty() || name[0] != '/' || name.find('\\') != name.npos)
        return false;
    const size_t last = name.rfind('/') + 1;
    if (last >= kDirectorySize || name.size() - last >= kComponentSize)
        return false;
    for (size_t begin = 1; begin <= name.size();) {
        const size_t end = std::min(name.find('/', begin), name.size());
        const std::string_view component = name.substr(begin, end - begin);
        if (component.empty() || component == "." || component == "..")
            return false;
        begin = end + 1;
    }
    return true;
}

uint32_t Refuse(char* out, size_t size, uint32_t code) {
    if (out != nullptr && size > 0)
        out[0] = '\0';
    return code;
}

// A name split at its last separator; the directory part keeps it.
struct SplitName {
    DirectoryText directory;
    ComponentText name;

    bool split(const char* path) {
        return ORX_SplitPathFileName(path, directory.data(), directory.capacity(), name.data(),
                                     name.capacity()) == KORX_TRUE;
    }
};

// The slash before the last component, which may itself end in one.
size_t ParentSlash(const char* path, size_t length) {
    size_t end = length > 0 && path[length - 1] == '/' ? length - 1 : length;
    while (end > 0) {
        if (path[--end] == '/')
            return end;
    }
    return kNoSlash;
}

uint32_t StartPath(const char* path, char* buffer, uint32_t size) {
    if (path[0] != '/') {
        errno = EINVAL;  // getcwd would allocate a buffer of its own for a null one
        if (buffer == nullptr || getcwd(buffer, size) == nullptr)
            return Fail(kFailed, "return of getcwd is null when get current path, errno=%d.",
                        errno);
        return kOk;
    }
    const int copied = strncpy_s(buffer, size, "/", 1);
    if (copied != 0)
        return Fail(kFailed, "return of strncpy_s is error, file = %s, uiBufLen = %u. ret = %d",
                    path, size, copied);
    return kOk;
}

uint32_t ApplyComponents(const char* path, char* buffer, uint32_t size) {
    for (const char* rest = path; *rest != '\0';) {
        const size_t length = strcspn(rest, "/");
        if (length >= kComponentSize)
            return Fail(kFailed, "file name too long, file = %s.", rest);
        ComponentText component;
        if (strncpy_s(component.data(), kComponentSize, rest, length) != 0)
            return kFailed;
        if (length > 0 && ORX_PathCat(component.c_str(), buffer, size) != kOk)
            return kFailed;
        rest += length;
        if (*rest == '/')
            ++rest;
    }
    return kOk;
}

uint32_t ResolveMissing(const char* path, FullPathText* resolved) {
    SplitName parts;
    if (!parts.split(path))
        return kFailed;
    if (KORX_Trans2CanonicalFilepath(parts.directory.c_str(), parts.directory.data(),
                                     kDirectorySize) != kOk)
        return Fail(kFailed, "Get the abolute path unsuccessfully, path : %s", path);
    if (!resolved->format("%s/%s", parts.directory.c_str(), parts.name.c_str()))
        return Fail(
            kFailed,
            "Get the abolute path and file name of file %s unsuccessfully when file is no exist",
            path);
    return kOk;
}

}  // namespace
}  // namespace korx

namespace korx {

UniqueFd OpenAsNamed(const char* name, int flags, mode_t mode) {
    if (lacks_openat2.load(std::memory_order_relaxed) || !IsCleanName(name))
        return UniqueFd();
    struct open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.mode = mode;
    how.resolve = RESOLVE_NO_SYMLINKS;
    UniqueFd fd(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, name, &how, sizeof how)));
    if (!fd && errno == ENOSYS)
        lacks_openat2.store(true, std::memory_order_relaxed);
    return fd;
}

}  // namespace korx

using namespace korx;

uint32_t ORX_GetAbsolutePathAndFileName(const char* name, char* out, uint32_t size) {
    if (size == 0)
        return Fail(kInvalidParam, "Input invalid. BufLen = %u", size);
    SplitName parts;
    if (!parts.split(name))
        return Refuse(out, size, kFailed);
    const MallocPtr<char> directory(realpath(parts.directory.c_str(), nullptr));
    if (!directory)
        return Refuse(
            out, size,
            Fail(kFailed, "return of realpath is null when get the abolute path, errno=%d.",
                 errno));
    if (snprintf_s(out, size, size - 1, "%s/%s", directory.get(), parts.name.c_str()) < 0)
        return Fail(kFailed,
                    "Get the abolute path and file name of file %s unsuccessfully. RetCode=%d. ",
                    name, 0);
    out[size - 1] = '\0';
    return kOk;
}

uint32_t KORX_Trans2AbsolutePath(const char* path, char* buffer, uint32_t size) {
    if (StartPath(path, buffer, size) != kOk || ApplyComponents(path, buffer, size) != kOk)
        return Refuse(buffer, size, kFailed);
    return kOk;
}

uint32_t ORX_PathCat(const char* component, char* path, uint32_t size) {
    if (ORX_IsStringEqual(component, "..") == KORX_TRUE)
        return ORX_PathCatDoubleDot(path);
    if (ORX_IsStringEqual(component, ".") == KORX_TRUE)
        return kOk;

    const size_t length = path == nullptr ? 0 : strlen(path);
    if (path == nullptr || length >= size)
        return Fail(kFailed, "Input invalid. pathLen = %u", static_cast<uint32_t>(length));
    const bool needs_slash = length == 0 || path[length - 1] != '/';
    const size_t added = strlen(component);
    if (length + (needs_slash ? 1 : 0) + added >= size)
        return kFailed;
    const size_t end = needs_slash ? length + 1 : length;
    if (needs_slash)
        path[length] = '/';
    return strncpy_s(path + end, size - end, component, added) == 0 ? kOk : kFailed;
}

uint32_t ORX_PathCatDoubleDot(char* path) {
    const size_t length = path == nullptr ? 0 : strlen(path);
    if (length == 0)
        return Fail(kFailed, "Input invalid. pathLen = %u", 0u);
    const size_t slash = ParentSlash(path, length);
    if (slash == kNoSlash)
        return kFailed;
    path[slash + 1] = '\0';
    return kOk;
}

uint32_t ORX_GetDirectory(const char* source, char* destination, uint32_t size) {
    const size_t length = strcspn(source, "/");
    if (length >= size)
        return Refuse(destination, size, Fail(kFailed, "file name too long, file = %s.", source));
    return strncpy_s(destination, size, source, length) == 0 ? kOk : kFailed;
}

uint32_t KORX_Trans2CanonicalFilepath(const char* path, char* out, uint32_t size) {
    if (path == nullptr || out == nullptr)
        return Fail(kFailed, "Parameter error");
    errno = 0;
    const MallocPtr<char> real(realpath(path, nullptr));
    if (!real)
        return Fail(kFailed, "Get file real path failed, filepath: %s, errno = %d.", path, errno);
    const size_t length = strlen(real.get());
    if (length >= size || memset_s(out, size, 0, size) != 0)
        return kFailed;
    return strncpy_s(out, size, real.get(), length) == 0 ? kOk : kFailed;
}

uint32_t KORX_GetCanonicalFilepath(const char* path, char* out, uint32_t size) {
    if (path == nullptr || out == nullptr)
        return Fail(kFailed, "Parameter error");
    FullPathText resolved;
    if (KORX_IsFileExist(path) == KORX_TRUE) {
        if (KORX_Trans2CanonicalFilepath(path, resolved.data(), kFullPathSize) != kOk)
            return Fail(kFailed,
                        "Get the abolute path unsuccessfully when file is exist, file : %s", path);
    } else if (ResolveMissing(path, &resolved) != kOk) {
        return kFailed;
    }

    if (strlen(resolved.c_str()) >= size)
        return Fail(kFailed, "CanopathLen(%u) is not enougth", size);
    if (memset_s(out, size, 0, size) != 0 ||
        snprintf_s(out, size, size - 1, "%s", resolved.c_str()) < 0)
        return Fail(kFailed, "Get the abolute path and file name of file %s unsuccessfully",
                    resolved.c_str());
    return kOk;
}

char* ORX_DelSlashInPathEnd(char* path, uint32_t) {
    const size_t length = strlen(path);
    if (length > 0 && path[length - 1] == '/')
        path[length - 1] = '\0';
    return path;
}

int ORX_CmpLinuxDirStr(const char* a, const char* b) {
    constexpr int kDiffers = 1;
    if (a == nullptr || b == nullptr || strlen(a) >= kDirectorySize || strlen(b) >= kDirectorySize)
        return Fail(kDiffers, "[ORXFS-LOCAL] ORX_CmpLinuxDirStr:%s or %s is too long!",
                    a == nullptr ? "(null)" : a, b == nullptr ? "(null)" : b);
    DirectoryText first;
    int copied = strncpy_s(first.data(), kDirectorySize, a, strlen(a));
    if (copied != 0)
        return Fail(kDiffers, "nRet=%d.Copy pcName1 unsuccessfully. pcName1=%s", copied, a);
    DirectoryText second;
    copied = strncpy_s(second.data(), kDirectorySize, b, strlen(b));
    if (copied != 0)
        return Fail(kDiffers, "nRet=%d.Copy pcName2 unsuccessfully. pcName2=%s", copied, b);
    return strcmp(ORX_DelSlashInPathEnd(first.data(), 0), ORX_DelSlashInPathEnd(second.data(), 0));
}

uint32_t KORX_GetParentDir(const char* path, char* parent) {
    if (path == nullptr || parent == nullptr)
        return Fail(kFailed, "[ORXFS-LOCAL]Get parent dir input null");
    const size_t length = strlen(path);
    if (length <= 1)
        return Fail(kFailed, "[ORXFS-LOCAL]Get parent dir path len is 0!");
    const size_t held = strlen(parent);
    if (held >= kDirectorySize)
        return Fail(kFailed, "[ORXFS-LOCAL]Get parent dir parent path is too long, %d!",
                    static_cast<int>(held));

    const size_t slash = ParentSlash(path, length);
    if (slash == kNoSlash)
        return Fail(kFailed,
                    "[ORXFS-LOCAL]Get parent dir parent find pre slash: %d, parent path len: %u!",
                    0, 0u);
    const size_t kept = slash + 1;
    if (slash >= kDirectorySize - 2)
        return Fail(kFailed,
                    "[ORXFS-LOCAL]Get parent dir parent find pre slash: %d, parent path len: %u!",
                    1, static_cast<uint32_t>(kept));
    if (parent == path) {
        parent[kept] = '\0';
        return kOk;
    }
    const int copied = strncpy_s(parent, kDirectorySize, path, kept);
    if (copied != 0)
        return Fail(kFailed, "nRet=%d.Copy pcPath unsuccessfully. pcPath=%s,pcPathLen=%u", copied,
                    path, static_cast<uint32_t>(kept));
    return kOk;
}
