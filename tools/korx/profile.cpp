#include "profile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common.h"

namespace korx::tool {
namespace {

// A regular file opened for reading. Throws Failure.
int OpenRegular(const std::string& file, struct stat* st) {
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        throw Failure{kInput, SystemError(file, errno)};
    if (fstat(fd, st) < 0 || !S_ISREG(st->st_mode)) {
        close(fd);
        throw Failure{kInput, file + ": not a regular file"};
    }
    return fd;
}

}  // namespace

Profile LoadProfile(const std::string& file) {
    struct stat st;
    const int fd = OpenRegular(file, &st);
    FILE* const stream = fdopen(fd, "r");
    if (stream == nullptr) {
        close(fd);
        throw Failure{kInput, SystemError(file, errno)};
    }
    return Profile(KORX_IniLoadProfile(stream));
}

const KORX_IniKey* FindKey(const KORX_IniSection* profile, const std::string& section,
                           const std::string& key) {
    while (profile != nullptr && section != profile->acName)
        profile = profile->pstNext;
    const KORX_IniKey* found = profile == nullptr ? nullptr : profile->pstFirstKey;
    while (found != nullptr && key != found->acKey)
        found = found->pstNext;
    return found;
}

std::optional<std::string> LookupValue(const KORX_IniKey& key) {
    // The library's lookups see at most this much of a value.
    std::string value(key.acValue, strnlen(key.acValue, 255));
    if (value.empty() || value[0] != '"')
        return value;
    const size_t end = value.find('"', 1);
    if (end == std::string::npos)
        return std::nullopt;
    return value.substr(1, end - 1);
}

std::string Bracketed(const std::string& section) {
    const bool has_brackets =
        section.size() >= 2 && section.front() == '[' && section.back() == ']';
    return has_brackets ? section : "[" + section + "]";
}

std::string WithDirectory(const std::string& file) {
    return file.find('/') == std::string::npos ? "./" + file : file;
}

std::string ReadWholeFile(const std::string& file, size_t limit) {
    struct stat st;
    const int fd = OpenRegular(file, &st);
    std::string content;
    char piece[16384];
    ssize_t count = 0;
    while (content.size() <= limit && (count = read(fd, piece, sizeof piece)) > 0)
        content.append(piece, static_cast<size_t>(count));
    const int error = errno;
    close(fd);
    if (count < 0)
        throw Failure{kInput, SystemError(file, error)};
    if (content.size() > limit)
        throw Failure{kInput, file + ": more than " + std::to_string(limit) + " bytes"};
    return content;
}

}  // namespace korx::tool
