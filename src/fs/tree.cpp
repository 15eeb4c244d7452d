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
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
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
    if (!open_root())
        return nullptr;
    const char* const below = path + start_length_;
    return ReadDirectory(*below == '\0' ? enter_start() : enter(below));
}

int Tree::remove_directory(const char* path) {
    if (path[start_length_] == '\0')
        return rmdir(path) == 0 ? 0 : errno;
    if (!open_root())
        return errno;
    const std::string_view above = DirectoryOf(path + start_length_);
    const bool is_in_start = above.size() <= 1;  // "/" alone, the slash behind the start path
    const UniqueFd parent = is_in_start ? UniqueFd() : enter(above);
    const int fd = is_in_start ? root_.get() : parent.get();
    const bool removed = fd >= 0 && unlinkat(fd, NameOf(path), AT_REMOVEDIR) == 0;
    return removed ? 0 : errno;
}

// The start directory is opened once, by its name, which may be a link: that is the caller's
// choice.
bool Tree::open_root() {
    if (!root_)
        root_.reset(open(start_.c_str(), kOpenDirectory));
    return static_cast<bool>(root_);
}

// A directory below the start directory.
UniqueFd Tree::enter(std::string_view below) {
    DirectoryText text;
    (void) strncpy_s(text.data(), text.capacity(), below.data(), below.size());
    char* rest = nullptr;
    UniqueFd directory;
    int parent = root_.get();
    for (const char* name = strtok_r(text.data(), "/", &rest); parent >= 0 && name != nullptr;
         name = strtok_r(nullptr, "/", &rest)) {
        directory.reset(openat(parent, name, kOpenDirectory | O_NOFOLLOW));
        parent = directory.get();
    }
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
