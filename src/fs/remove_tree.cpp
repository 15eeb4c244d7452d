// Removal of directory trees, without recursion.
//
// The directories to be handled wait on a stack as path strings. The strings are for bookkeeping
// and messages: the tree is entered by its own rules, and a directory's entries are examined and
// deleted relative to its descriptor, so nothing outside the tree is touched. However large the
// tree, four descriptors are enough.
#include "korx/fs.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "fs/protect.h"
#include "fs/tree.h"
#include "korx/container.h"

namespace korx {
namespace {

using UniqueStack = std::unique_ptr<ORX_StackNode, Releaser<ORX_DestroyStack>>;

enum class Directories { kRemoved, kKept };

// What handling the entries of a directory came to. A directory is empty only when no other one was
// met in it.
enum class Handled { kFailed, kWithoutDirectory, kWithDirectory };

// One removal. The two variants differ in what becomes of directories and in their wording.
class Removal {
  public:
    explicit Removal(Directories directories) : directories_(directories) {}

    uint32_t run(const char* path) {
        const uint32_t result = begin(path);
        if (result != kOk)
            return result;
        return keeps() ? clear_directories() : remove_directories();
    }

  private:
    bool keeps() const { return directories_ == Directories::kKept; }
    uint32_t begin(const char* path);
    uint32_t remove_directories();
    uint32_t clear_directories();
    Handled handle_entries(DIR* directory, const char* path);
    Handled handle_entry(int directory, const dirent& entry, const char* path);
    uint32_t push_directory(const char* path);
    int try_file(int directory, const char* name, const char* path);
    uint32_t retry_file(int directory, const char* name, const char* path, const struct stat& st,
                        int refusal);

    const Directories directories_;
    Tree tree_;
    UniqueStack stack_;
};

uint32_t Removal::begin(const char* path) {
    const size_t length = path == nullptr ? 0 : strlen(path);
    if (length >= kDirectorySize && keeps())
        return Fail(kFailed, "Remove Diretory %s unsuccessfully, Path is Too Long. PathLen = %zu!",
                    path, length);
    if (length >= kDirectorySize)
        return Fail(kFailed, "Remove Diretory %s unsuccessfully, Path is Too Long. PathLen = %d!",
                    path, static_cast<int>(length));

    MallocPtr<char> copy(static_cast<char*>(malloc(length + 1)));
    if (!copy)
        return Fail(kFailed, "Malloc Memory for Directory %s unsuccessfully.",
                    path == nullptr ? "" : path);
    if (const int error = strncpy_s(copy.get(), length + 1, path, length); error != 0)
        return Fail(kFailed,
                    keeps() ? "nRet=%d.Copy pcDirPath unsuccessfully, pcDirPath=%s."
                            : "errCode=%d.Copy dirPath unsuccessfully, dirPath=%s.",
                    error, path == nullptr ? "" : path);
    if (length >= 2 && copy.get()[length - 1] == '/')
        copy.get()[length - 1] = '\0';
    (void) tree_.begin(copy.get());

    stack_.reset(ORX_CreateStack());
    if (!stack_)
        return Fail(kFailed, "Create Directory %s Stack unsuccessfully!", copy.get());
    if (ORX_PushStack(stack_.get(), copy.get()) != kOk)
        return Fail(kFailed, "Push Top Directory Into Stack unsuccessfully!");
    (void) copy.release();
    return kOk;
}

// Post-order by reading again: a directory stays on the stack below its subdirectories, and is
// removed when a reading meets none.
uint32_t Removal::remove_directories() {
    while (ORX_IsStackEmpty(stack_.get()) == KORX_FALSE) {
        void* top = nullptr;
        if (ORX_GetStackTopElement(stack_.get(), &top) != kOk)
            return Fail(kFailed, "Get Top Directory %s unsuccessfully!", tree_.start());
        const char* const path = static_cast<const char*>(top);

        UniqueDir directory = tree_.open_directory(path);
        if (!directory)
            return Fail(kOk, "Dir:%s open unsuccessfully, errno:%d!", path, errno);
        const Handled handled = handle_entries(directory.get(), path);
        directory.reset();
        if (handled == Handled::kFailed)
            return kFailed;
        if (handled == Handled::kWithDirectory)
            continue;

        if (const int error = tree_.remove_directory(path); error != 0)
            return Fail(kFailed, "[ORX-LIB] Delete the Directory %s unsuccessfully, because %d!",
                        path, error);
        if (ORX_PopStack(stack_.get(), &top) != kOk)
            return Fail(kFailed, "[ORX-LIB] Pop Top Directory %s Out Of Stack unsuccessfully!",
                        path);
        free(top);
    }
    return kOk;
}

// Pre-order: each directory is read once, and all of them stay.
uint32_t Removal::clear_directories() {
    while (ORX_IsStackEmpty(stack_.get()) == KORX_FALSE) {
        void* top = nullptr;
        (void) ORX_PopStack(stack_.get(), &top);
        MallocPtr<char> popped(static_cast<char*>(top));
        if (!popped)
            return Fail(kFailed, "pcTopDir is null!");
        DirectoryText path;
        if (const int error =
                strncpy_s(path.data(), path.capacity(), popped.get(), strlen(popped.get()));
            error != 0)
            return Fail(kFailed, "nRet=%d.Copy pcTopDir unsuccessfully, pcTopDir=%s.", error,
                        popped.get());
        popped.reset();

        const UniqueDir directory = tree_.open_directory(path.c_str());
        if (!directory)
            return Fail(kFailed, "Dir:%s not Exist, errno:%d!", path.c_str(), errno);
        if (handle_entries(directory.get(), path.c_str()) == Handled::kFailed)
            return kFailed;
    }
    return kOk;
}

// Deletes everything in a directory but its subdirectories: they go onto the stack.
Handled Removal::handle_entries(DIR* directory, const char* path) {
    Handled handled = Handled::kWithoutDirectory;
    Entries entries(directory);
    EntryPaths<kDirectorySize> paths(path);
    while (const dirent* const entry = entries.next()) {
        const char* const full = paths.of(entry->d_name);
        if (full == nullptr)
            return Fail(
                Handled::kFailed,
                keeps()
                    ? "print acTmpTopDir, d_name unsuccessfully, acTmpTopDir=%s, acTmpTopDir=%s."
                    : "print Diretory unsuccessfully, Diretory=%s/%s",
                path, entry->d_name);
        const Handled one = handle_entry(dirfd(directory), *entry, full);
        if (one == Handled::kFailed)
            return one;
        if (one == Handled::kWithDirectory)
            handled = one;
    }
    // What could not be read keeps its directory from being removed, but a kept directory would
    // pass for cleared.
    if (entries.error() != 0 && keeps())
        return Fail(Handled::kFailed, "Dir:%s not Exist, errno:%d!", path, entries.error());
    return handled;
}

// What is listed as anything but a directory is deleted without a look at it: unlinkat takes no
// directory, if one stands there by now. Only what cannot be deleted is looked at, and whatever the
// look tells is reported as if it had come first. A directory is always looked at, since one that
// has gone meanwhile is skipped here, but ends everything where it cannot be opened.
Handled Removal::handle_entry(int directory, const dirent& entry, const char* path) {
    const bool is_listed_as_file = entry.d_type != DT_DIR && entry.d_type != DT_UNKNOWN;
    int refusal = is_listed_as_file ? try_file(directory, entry.d_name, path) : 0;
    if (is_listed_as_file && refusal == 0)
        return Handled::kWithoutDirectory;

    struct stat st;
    if (fstatat(directory, entry.d_name, &st, AT_SYMLINK_NOFOLLOW) < 0) {
        Log(kLevelWarning, "lstat Diretory %s unsuccessfully, errno:%d.", path, errno);
        return Handled::kWithoutDirectory;
    }
    if (S_ISDIR(st.st_mode))
        return push_directory(path) == kOk ? Handled::kWithDirectory : Handled::kFailed;
    if (!is_listed_as_file)
        refusal = try_file(directory, entry.d_name, path);
    if (refusal != 0 && retry_file(directory, entry.d_name, path, st, refusal) != kOk)
        return Handled::kFailed;
    return Handled::kWithoutDirectory;
}

uint32_t Removal::push_directory(const char* path) {
    const size_t length = strlen(path);
    MallocPtr<char> copy(static_cast<char*>(malloc(length + 1)));
    if (!copy && keeps())
        return Fail(kFailed,
                    "Malloc Memory for Directory String unsuccessfully, acTmpDirPath = %s.", path);
    if (!copy)
        return Fail(kFailed, "Malloc Memory for Directory String unsuccessfully.");
    if (const int error = strncpy_s(copy.get(), length + 1, path, length); error != 0)
        return Fail(kFailed,
                    keeps() ? "nRet=%d.Copy acTmpDirPath unsuccessfully, acTmpDirPath=%s."
                            : "errCode=%d.Copy tmpDirPath unsuccessfully, tmpDirPath=%s.",
                    error, path);
    const bool fits = ORX_PushStack(stack_.get(), copy.get()) == kOk;
    if (!fits && keeps())
        return Fail(kFailed, "Push SubDirectory Into Stack unsuccessfully, pcTmpDirPath = %s.",
                    path);
    if (!fits)
        return Fail(kFailed, "[ORX-LIB] Push SubDirectory Into Stack unsuccessfully!");
    (void) copy.release();
    return kOk;
}

// Only a regular file is opened to lift its protection: opening a link would reach another file,
// and opening a device may do something. So the entry is taken hold of first, which opens nothing,
// and what has been looked at is what gets opened, whatever bears its name by then.
void Unprotect(int directory, const char* name, const char* path) {
    UniqueFd fd(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (fd && (fstat(fd.get(), &st) < 0 || !S_ISREG(st.st_mode)))
        return;
    FixedText<32> held;
    if (fd && held.format("/proc/self/fd/%d", fd.get()))
        fd.reset(open(held.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    (void) UndoProtectOpened(fd, path);
}

// Returns 0 or the errno of the failure, which is not reported.
int Removal::try_file(int directory, const char* name, const char* path) {
    if (unlinkat(directory, name, 0) < 0)
        return errno;
    if (keeps())
        Log(kLevelInfo, "Delete the file %s Successfully.", path);
    return 0;
}

uint32_t Removal::retry_file(int directory, const char* name, const char* path,
                             const struct stat& st, int refusal) {
    if (keeps())
        Log(kLevelErr, "Delete the file %s unsuccessfully, because %d, unprotect and try it again,",
            path, refusal);
    else
        Log(kLevelInfo,
            "Delete the file %s unsuccessfully, because %d, unprotect and try it again.", path,
            refusal);
    if (S_ISREG(st.st_mode))
        Unprotect(directory, name, path);

    if (unlinkat(directory, name, 0) < 0)
        return Fail(kFailed, "Delete the file %s unsuccessfully again, because %d.", path, errno);
    Log(kLevelInfo,
        keeps() ? "Delete the file %s Successfully, after undo protectl."
                : "Delete the file %s ok, after undo protectl.",
        path);
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_RmParentDir(const char* path, int32_t mode) {
    if (mode == ORX_RM_ALL)
        return ORX_RmParentDirNotReserveDir(path);
    if (mode == ORX_RM_KEEP_DIRECTORIES)
        return ORX_RmParentDirReserveDir(path);
    return kFailed;
}

uint32_t ORX_RmParentDirNotReserveDir(const char* path) {
    return Removal(Directories::kRemoved).run(path);
}

uint32_t ORX_RmParentDirReserveDir(const char* path) {
    return Removal(Directories::kKept).run(path);
}
