// Opens and creations of files whose directory is resolved first.
#include "korx/fs.h"

#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "korx/str.h"

namespace korx {
namespace {

constexpr size_t kMaxOpenName = kFullPathSize;
constexpr mode_t kNewDirMode = 0750;
constexpr mode_t kNewFileMode = 0666;

}  // namespace
}  // namespace korx

using namespace korx;

int ZUVA_CanonicalOpenUseMode(const char* name, int flags, uint32_t mode) {
    const size_t length = strlen(name);
    if (length == 0 || length > kMaxOpenName)
        return Fail(-1, "Name length(%u) is illegal, name: %s.", static_cast<uint32_t>(length),
                    name);
    const MallocPtr<char> for_directory(strdup(name));
    if (!for_directory)
        return Fail(-1, "strdup file dir failed, name: %s, error: %d.", name, errno);
    const MallocPtr<char> for_base(strdup(name));
    if (!for_base)
        return Fail(-1, "strdup file name failed, name: %s, error: %d.", name, errno);
    const char* const directory = dirname(for_directory.get());
    if (directory == nullptr)
        return Fail(-1, "get dirname failed, name: %s, error: %d.", name, errno);
    const char* const base = basename(for_base.get());
    if (base == nullptr)
        return Fail(-1, "get basename failed, name: %s, error: %d.", name, errno);

    const MallocPtr<char> real(realpath(directory, nullptr));
    if (!real)
        return Fail(-1, "Failed to transform files %s into canonical form. error: %d.", directory,
                    errno);
    FullPathText path;
    if (!path.format("%s/%s", real.get(), base))
        return Fail(-1,
                    "snprintf_s failed in ZUVA_CanonicalOpenUseMode, tempPath:%s, baseFileName:%s",
                    real.get(), base);
    return open(path.c_str(), flags | O_CLOEXEC, mode);
}

int ZUVA_CanonicalOpen(const char* name, int flags) {
    return ZUVA_CanonicalOpenUseMode(name, flags, 0);
}

int ZUVA_CanonicalClose(int fd) {
    return fd < 1 ? -1 : close(fd);
}

uint32_t ORX_CreateDirByFile(const char* file) {
    BuildText absolute;
    if (KORX_Trans2AbsolutePath(file, absolute.data(), absolute.capacity()) != kOk)
        return Fail(kFailed, "ORX_Trans2AbsolutePath failed, file:%s", file);
    BuildText directory;
    if (ORX_SplitPathFileName(absolute.c_str(), directory.data(), directory.capacity(), nullptr,
                              0) != KORX_TRUE)
        return kFailed;
    if (KORX_IsDirExist(directory.c_str()) == KORX_TRUE)
        return kOk;
    return KORX_Mkdir(directory.c_str(), kNewDirMode) == kOk ? kOk : kFailed;
}

uint32_t KORX_CreateFile(const char* file) {
    if (KORX_IsFileExist(file) == KORX_TRUE)
        return kOk;
    FullPathText absolute;
    if (ORX_GetAbsolutePathAndFileName(file, absolute.data(), absolute.capacity()) != kOk)
        return Fail(kFailed, "get absolute path and file name failed, fullRpgFilelistInfo:%s",
                    file);
    // Without O_TRUNC: a file that has appeared since keeps what it holds.
    const UniqueFd fd(
        open(absolute.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kNewFileMode));
    if (!fd)
        return Fail(kFailed, "Create file (%s) unsuccessfully, errno=%d.", file, errno);
    return kOk;
}
