#include "fs/entry.h"

#include <errno.h>
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

// Where the first symbolic link in path ends, wherever in it that stands, and what it leads to; 0
// without one. target comes empty.
size_t FirstLink(const PathText& path, PathText* target) {
    const char* const text = path.c_str();
    for (size_t end = 0; text[end] != '\0';) {
        end += strspn(text + end, "/");
        end += strcspn(text + end, "/");
        PathText prefix;
        (void) prefix.format("%.*s", static_cast<int>(end), text);
        if (readlink(prefix.c_str(), target->data(), target->capacity() - 1) >= 0)
            return end;
    }
    return 0;
}

// The path that goes on from a link to its target and then as rest says.
PathText FollowLink(const PathText& link, const PathText& target, const char* rest) {
    PathText path;
    const std::string_view parent = DirectoryOf(link.c_str());
    if (target.c_str()[0] == '/')
        (void) path.format("%s%s", target.c_str(), rest);
    else
        (void) path.format("%.*s/%s%s", static_cast<int>(parent.size()), parent.data(),
                           target.c_str(), rest);
    return path;
}

}  // namespace

bool HoldsSource(const char* path, const char* source) {
    struct stat removed;
    if (lstat(path, &removed) < 0 && errno == ENOENT)
        return false;  // there is nothing to delete
    if (IsDirectoryOfSource(path, source))
        return true;
    const Entry entry(path);
    PathText way;
    (void) way.format("%s", source);
    for (unsigned links = 0; links <= kMaxLinks; ++links) {
        PathText target;
        const size_t end = FirstLink(way, &target);
        const size_t length = end == 0 ? strlen(way.c_str()) : end;
        PathText step;  // the link, or what all links have led to
        (void) step.format("%.*s", static_cast<int>(length), way.c_str());
        if (entry == Entry(step.c_str()))
            return true;
        if (end == 0)
            return false;
        way = FollowLink(step, target, way.c_str() + end);
    }
    return false;
}

}  // namespace korx
