// The depth-first walk of a directory tree with the caller's callbacks.
#include "korx/fs.h"

#include <dirent.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "fs/tree.h"

namespace korx {
namespace {

struct Walk {
    const char* root;
    ORX_WalkCallback on_directory;
    ORX_WalkCallback on_file;
    void* context;
};

// The path of a directory with its root: what is too long together is not entered.
uint32_t ComposeDirectory(const char* root, const char* directory, FullPathText* path) {
    if (!path->format("%s/%s", root, directory))
        return Fail(kFailed, "Print RootPath unsuccessfully, RootPath=%s/%s", root, directory);
    return kOk;
}

uint32_t RefuseEntry(const char* directory, const char* name) {
    if (directory[0] == '\0')
        return Fail(kFailed, "Print DirEntName unsuccessfully, DirEntName=%s", name);
    return Fail(kFailed, "Print RelFilePath unsuccessfully, RelFilePath=%s/%s", directory, name);
}

uint32_t WalkEntries(const Walk& walk, const char* directory_path, DIR* directory);

// A link that has taken the directory's place since it was listed is not entered: the walk fails.
uint32_t EnterDirectory(const Walk& walk, DIR* parent, const char* name, const char* path) {
    uint32_t descend = KORX_TRUE;
    if (walk.on_directory != nullptr) {
        const uint32_t result = walk.on_directory(walk.root, path, &descend, walk.context);
        if (result != kOk)
            return result;
    }
    if (descend == KORX_FALSE)
        return kOk;
    FullPathText whole;
    const uint32_t composed = ComposeDirectory(walk.root, path, &whole);
    if (composed != kOk)
        return composed;
    const UniqueDir directory = OpenSubdirectory(parent, name);
    return directory ? WalkEntries(walk, path, directory.get()) : kFailed;
}

bool IsWalked(const struct dirent& entry) {
    return entry.d_type == DT_REG || entry.d_type == DT_LNK || entry.d_type == DT_DIR;
}

uint32_t WalkEntries(const Walk& walk, const char* directory_path, DIR* directory) {
    uint32_t stop = KORX_FALSE;
    Entries entries(directory);
    EntryPaths<kFullPathSize> paths(directory_path);
    while (const dirent* const entry = entries.next()) {
        if (!IsWalked(*entry))
            continue;
        const char* const path = paths.of(entry->d_name);
        if (path == nullptr)
            return RefuseEntry(directory_path, entry->d_name);
        const uint32_t result = entry->d_type == DT_DIR
                                    ? EnterDirectory(walk, directory, entry->d_name, path)
                                    : walk.on_file(walk.root, path, &stop, walk.context);
        if (result != kOk)
            return result;
        if (stop != KORX_FALSE)
            return kOk;
    }
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_WalkDirRecur(const char* root, const char*, ORX_WalkCallback on_directory,
                          ORX_WalkCallback on_file, void* context) {
    if (root == nullptr || on_file == nullptr)
        return Fail(kFailed, "[ORXFS-LOCAL]In walk dir recur input null param");
    return KORX_WalkDirRecurInner(root, "", on_directory, on_file, context);
}

uint32_t KORX_WalkDirRecurInner(const char* root, const char* relative_directory,
                                ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                void* context) {
    FullPathText path;
    const uint32_t composed = ComposeDirectory(root, relative_directory, &path);
    if (composed != kOk)
        return composed;
    const UniqueDir directory(opendir(path.c_str()));
    if (!directory)
        return kFailed;
    const Walk walk = {root, on_directory, on_file, context};
    return WalkEntries(walk, relative_directory, directory.get());
}
