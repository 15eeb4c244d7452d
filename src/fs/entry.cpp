#include "fs/entry.h"

#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "base/directory.h"
#include "base/text.h"

namespace korx {
namespace {

constexpr unsigned kMaxLinks = 40;  // the kernel follows no more either

using PathText = FixedText<PATH_MAX>;  // what a link leads to may be any path

// The directory entry that a path names: the same directory and name by whatever path.
struct Entry {
    explicit Entry(const char* path) : name(NameOf(path)) {
        const std::string_view parent = DirectoryOf(path);
        PathText text;
        known = text.format("%.*s", static_cast<int>(parent.size()), parent.data()) &&
                stat(text.c_str(), &directory) == 0;
    }
    bool operator==(const Entry& other) const {
        return known && other.known && IsSameFile(directory, other.directory) &&
               strcmp(name, other.name) == 0;
    }

    struct stat directory = {};
    const char* name;
    bool known;
};

// A directory has no other entries than its own, whatever path ends in it: "d", "d/" and "d/.".
bool IsDirectoryOfSource(const char* path, const char* source) {
    struct stat removed;
    struct stat kept;
    return lstat(path, &removed) == 0 && S_ISDIR(removed.st_mode) && stat(source, &kept) == 0 &&
           IsSameFile(removed, kept);
}

// Replaces the path of a symbolic link by the path that it leads to. False for anything else.
bool FollowLink(PathText* path) {
    PathText target;
    if (readlink(path->c_str(), target.data(), target.capacity() - 1) < 0)
        return false;
    if (target.c_str()[0] == '/') {
        *path = target;
        return true;
    }
    const std::string_view parent = DirectoryOf(path->c_str());
    PathText next;
    (void) next.format("%.*s/%s", static_cast<int>(parent.size()), parent.data(), target.c_str());
    *path = next;
    return true;
}

}  // namespace

bool HoldsSource(const char* path, const char* source) {
    if (IsDirectoryOfSource(path, source))
        return true;
    const Entry entry(path);
    PathText step;
    (void) step.format("%s", source);
    for (unsigned links = 0; links <= kMaxLinks; ++links) {
        if (entry == Entry(step.c_str()))
            return true;
        if (!FollowLink(&step))
            return false;
    }
    return false;
}

}  // namespace korx
