#include "fs/mode.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "base/codes.h"
#include "base/report.h"
#include "korx/fs.h"

namespace korx {
namespace {

// What path resolves to, opened once: it may lead elsewhere at a second look.
uint32_t ChangeMode(const char* path, ModeChange change) {
    const MallocPtr<char> real(realpath(path, nullptr));
    if (!real)
        return kFailed;
    const UniqueFd fd(open(real.get(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return ChangeMode(fd, path, change);
}

}  // namespace

uint32_t ChangeMode(const UniqueFd& fd, const char* path, ModeChange change) {
    if (!fd)
        return Fail(kFailed, "Open file %s unsuccessfully. errno: %d", path, errno);
    struct stat st;
    if (fstat(fd.get(), &st) < 0)
        return Fail(kFailed, "fstat file %s unsuccessfully. errno: %d", path, errno);
    if (fchmod(fd.get(), (st.st_mode & change.kept) | change.added) < 0)
        return Warn(kFailed, "fchmod file %s unsuccessfully. errno: %d", path, errno);
    return kOk;
}

}  // namespace korx

using namespace korx;

uint32_t KORX_Fchmod(const char* path, uint32_t mode) {
    return ChangeMode(path, {0, mode});
}

uint32_t KORX_RmWriteRight(const char* path) {
    return ChangeMode(path, kTakeWriteRight);
}

uint32_t KORX_GiveWriteRight(const char* path) {
    return ChangeMode(path, kGiveWriteRight);
}
