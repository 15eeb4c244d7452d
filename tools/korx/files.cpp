#include "files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common.h"

namespace korx::tool {

UniqueFd OpenRegular(const std::string& file) {
    UniqueFd fd(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        throw Failure{kInput, SystemError(file, errno)};
    struct stat st;
    if (fstat(fd.get(), &st) < 0)
        throw Failure{kInput, SystemError(file, errno)};
    if (!S_ISREG(st.st_mode))
        throw Failure{kInput, file + ": not a regular file"};
    return fd;
}

std::string ReadWholeFile(const UniqueFd& fd, const std::string& file, size_t limit) {
    std::string content;
    char piece[16384];
    ssize_t count = 0;
    while (content.size() <= limit && (count = read(fd.get(), piece, sizeof piece)) > 0)
        content.append(piece, static_cast<size_t>(count));
    if (count < 0)
        throw Failure{kInput, SystemError(file, errno)};
    if (content.size() > limit)
        throw Failure{kInput, file + ": more than " + std::to_string(limit) + " bytes"};
    return content;
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

bool SyncDirectoryOf(const std::string& path) {
    const UniqueFd fd(
        open(std::string(DirectoryOf(path)).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && fsync(fd.get()) == 0;
}

}  // namespace korx::tool
