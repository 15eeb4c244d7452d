#include "fs/tree.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "base/bounded.h"
#include "base/directory.h"

namespace korx {
namespace {

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

UniqueDir ReadDirectory(UniqueFd fd) {
    if (!fd)
        return nullptr;
    UniqueDir directory(fdopendir(fd.get()));
    if (directory)
        (void) fd.release();
    return directory;
}

// The entries that every directory has.
bool IsDotName(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

}  // namespace

const dirent* Entries::next() {
    const dirent* entry;
    do {
        errno = 0;  // readdir leaves it alone at the end
        entry = readdir(directory_);
        error_ = entry == nullptr ? errno : 0;
    } while (entry != nullptr && IsDotName(entry->d_name));
    return entry;
}

UniqueDir OpenSubdirectory(DIR* directory, const char* name) {
    return ReadDirectory(UniqueFd(openat(dirfd(directory), name, kOpenDirectory | O_NOFOLLOW)));
}

bool Tree::begin(const char* start) {
    start_length_ = strlen(start);
    return start_.format("%s", start);
}

UniqueDir Tree::open_directory(const char* path) {
    return ReadDirectory(enter(path));
}

int Tree::remove_directory(const char* path) {
    if (path[start_length_] == '\0')
        return rmdir(path) == 0 ? 0 : errno;
    const UniqueFd parent = enter(DirectoryOf(path));
    const bool removed = parent && unlinkat(parent.get(), NameOf(path), AT_REMOVEDIR) == 0;
    return removed ? 0 : errno;
}

// The start directory is opened once, by its name, which may be a link: that is the caller's
// choice.
UniqueFd Tree::enter(std::string_view path) {
    if (!root_)
        root_.reset(open(start_.c_str(), kOpenDirectory));
    if (!root_)
        return UniqueFd();

    path.remove_prefix(start_length_);
    DirectoryText below;
    (void) strncpy_s(below.data(), below.capacity(), path.data(), path.size());
    UniqueFd directory = enter_start();
    char* rest = nullptr;
    for (const char* name = strtok_r(below.data(), "/", &rest); directory && name != nullptr;
         name = strtok_r(nullptr, "/", &rest))
        directory.reset(openat(directory.get(), name, kOpenDirectory | O_NOFOLLOW));
    return directory;
}

// Not by opening "." anew: that needs the right to search the directory, and a directory that may
// only be read can still be listed, and removed when it is empty.
UniqueFd Tree::enter_start() {
    UniqueFd start(fcntl(root_.get(), F_DUPFD_CLOEXEC, 0));
    (void) lseek(start.get(), 0, SEEK_SET);  // or it would go on where the last reading ended
    return start;
}

}  // namespace korx
