// Trees of files removed and walked.
#include <dirent.h>
#include <fts.h>
#include <ftw.h>
#include <string.h>
#include <sys/wait.h>

#include <filesystem>
#include <memory>

#include "floor.h"
#include "korx/fs.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

void MakeTree(const std::string& root, size_t directories, size_t files) {
    for (size_t d = 0; d < directories; ++d) {
        const std::string directory = root + "/d" + std::to_string(d);
        fs::create_directories(directory);
        for (size_t f = 0; f < files; ++f)
            Descriptor(directory + "/f" + std::to_string(f), O_CREAT | O_WRONLY);
    }
}

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

Directory Open(int parent, const char* name) {
    const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    MUST(fd >= 0);
    return {fdopendir(fd), closedir};
}

// Calls visit for each entry with its directory's descriptor, and enters directories before.
template <typename Visit>
void Descend(int parent, const char* name, const Visit& visit) {
    const Directory directory = Open(parent, name);
    const int fd = dirfd(directory.get());
    while (const dirent* const entry = readdir(directory.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
            continue;
        if (entry->d_type == DT_DIR)
            Descend(fd, entry->d_name, visit);
        visit(fd, *entry);
    }
}

// --- Removal ---

using Remove = void (*)(const std::string& root);

void RemoveFloor(const std::string& root) {
    Descend(AT_FDCWD, root.c_str(), [](int fd, const dirent& entry) {
        MUST(unlinkat(fd, entry.d_name, entry.d_type == DT_DIR ? AT_REMOVEDIR : 0) == 0);
    });
    MUST(rmdir(root.c_str()) == 0);
}

void RemoveWithNftw(const std::string& root) {
    const auto visit = [](const char* path, const struct stat*, int, FTW*) { return remove(path); };
    MUST(nftw(root.c_str(), visit, 16, FTW_DEPTH | FTW_PHYS) == 0);
}

void RemoveWithRm(const std::string& root) {
    const pid_t pid = vfork();
    if (pid == 0) {
        execlp("rm", "rm", "-rf", root.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    MUST(waitpid(pid, &status, 0) == pid && status == 0);
}

Contest Removals(size_t directories, size_t files) {
    Contest contest{
        .name = "ORX_RmParentDir, files", .size = directories * files, .contestants = {}};
    const auto add = [&](const char* name, Role role, Remove remove_tree) {
        const std::string root = InMemory() + "/" + name;
        contest.contestants.push_back({.name = name,
                                       .role = role,
                                       .enter = [=] { return [=] { remove_tree(root); }; },
                                       .is_done = [=](size_t) { return !fs::exists(root); },
                                       .lay_out = [=] { MakeTree(root, directories, files); }});
    };
    add("korx", Role::kOurs,
        [](const std::string& root) { MUST(ORX_RmParentDir(root.c_str(), ORX_RM_ALL) == 0); });
    add("floor", Role::kFloor, RemoveFloor);
    add("remove_all", Role::kPeer, [](const std::string& root) { fs::remove_all(root); });
    add("nftw", Role::kPeer, RemoveWithNftw);
    add("rm", Role::kPeer, RemoveWithRm);
    return contest;
}

// --- Walking ---

size_t g_count;

using Walk = void (*)(const std::string& root);

uint32_t CountEntry(const char*, const char*, uint32_t*, void*) {
    ++g_count;
    return 0;
}

void WalkWithFts(const std::string& root) {
    std::string name = root;
    char* const roots[] = {name.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS*)> walk(
        fts_open(roots, FTS_PHYSICAL | FTS_NOSTAT | FTS_NOCHDIR, nullptr), fts_close);
    while (const FTSENT* const entry = fts_read(walk.get()))
        g_count += entry->fts_info != FTS_DP && entry->fts_level > 0 ? 1 : 0;
}

void WalkWithNftw(const std::string& root) {
    const auto visit = [](const char*, const struct stat*, int, FTW* place) {
        g_count += place->level > 0 ? 1 : 0;
        return 0;
    };
    MUST(nftw(root.c_str(), visit, 16, FTW_PHYS) == 0);
}

Contest Walks(size_t directories, size_t files) {
    const std::string root = InMemory() + "/walk" + std::to_string(directories);
    MakeTree(root, directories, files);
    const size_t entries = directories * (files + 1);
    const auto walking = [=](const char* name, Role role, Walk walk) {
        return Contestant{name, role, [=] {
                              return [=] {
                                  g_count = 0;
                                  walk(root);
                                  MUST(g_count == entries);
                              };
                          }};
    };
    return {.name = "ORX_WalkDirRecur, entries",
            .size = entries,
            .contestants = {walking("korx", Role::kOurs,
                                    [](const std::string& from) {
                                        MUST(ORX_WalkDirRecur(from.c_str(), nullptr, CountEntry,
                                                              CountEntry, nullptr) == 0);
                                    }),
                            walking("floor", Role::kFloor,
                                    [](const std::string& from) {
                                        Descend(AT_FDCWD, from.c_str(),
                                                [](int, const dirent&) { ++g_count; });
                                    }),
                            walking("fts", Role::kPeer, WalkWithFts),
                            walking("nftw", Role::kPeer, WalkWithNftw),
                            walking("std::filesystem", Role::kPeer, [](const std::string& from) {
                                for (const auto& entry : fs::recursive_directory_iterator(from)) {
                                    Keep(entry);
                                    ++g_count;
                                }
                            })}};
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    for (const size_t directories : {20, 200})
        Hold(Removals(directories, 100));
    for (const size_t directories : {50, 500})
        Hold(Walks(directories, 99));
}
