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

uint32_t ComposeEntry(const char* directory, const char* name, FullPathText* path) {
    if (directory[0] == '\0') {
        if (!path->format("%s", name))
            return Fail(kFailed, "Print DirEntName unsuccessfully, DirEntName=%s", name);
    } else if (!path->format("%s/%s", directory, name)) {
        return Fail(kFailed, "Print RelFilePath unsuccessfully, RelFilePath=%s/%s", directory,
                    name);
    }
    return kOk;
}

uint32_t EnterDirectory(const Walk& walk, const char* path) {
    uint32_t descend = KORX_TRUE;
    if (walk.on_directory != nullptr) {
        const uint32_t result = walk.on_directory(walk.root, path, &descend, walk.context);
        if (result != kOk)
            return result;
    }
    if (descend == KORX_FALSE)
        return kOk;
    return KORX_WalkDirRecurInner(walk.root, path, walk.on_directory, walk.on_file, walk.context);
}

bool IsWalked(const struct dirent& entry) {
    return entry.d_type == DT_REG || entry.d_type == DT_LNK || entry.d_type == DT_DIR;
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
    FullPathText path;  // the directory, then each of its entries
    if (!path.format("%s/%s", root, relative_directory))
        return Fail(kFailed, "Print RootPath unsuccessfully, RootPath=%s/%s", root,
                    relative_directory);
    const UniqueDir directory(opendir(path.c_str()));
    if (!directory)
        return kFailed;

    const Walk walk = {root, on_directory, on_file, context};
    uint32_t stop = KORX_FALSE;
    Entries entries(directory.get());
    while (const dirent* const entry = entries.next()) {
        if (!IsWalked(*entry))
            continue;
        if (ComposeEntry(relative_directory, entry->d_name, &path) != kOk)
            return kFailed;
        const uint32_t result = entry->d_type == DT_DIR
                                    ? EnterDirectory(walk, path.c_str())
                                    : on_file(root, path.c_str(), &stop, context);
        if (result != kOk)
            return result;
        if (stop != KORX_FALSE)
            return kOk;
    }
    return kOk;
}
