// Files copied through a temporary name.
#include <sys/wait.h>
#include <syslog.h>

#include <filesystem>
#include <vector>

#include "floor.h"
#include "korx/fs.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

using Copy = void (*)(const std::string& from, const std::string& to);

void CopySafely(const std::string& from, const std::string& to) {
    MUST(KORXFS_CopyFile(from.c_str(), static_cast<uint32_t>(from.size()), to.c_str(),
                         ORXFS_OVERWRITE, static_cast<uint32_t>(to.size())) == 0);
}

// With the line that there was no destination yet: without a log of the component's own it goes to
// the system log.
void CopyFloor(const std::string& from, const std::string& to) {
    syslog(LOG_INFO, "File '%s' is not exist.", to.c_str());
    const std::string temporary = to + ".orxtmp";
    {
        const Descriptor source(from, O_RDONLY);
        struct stat status;
        MUST(fstat(source.get(), &status) == 0);
        const Descriptor target(temporary, O_WRONLY | O_CREAT | O_EXCL, status.st_mode);
        static std::vector<char> buffer(1 << 16);
        ssize_t got;
        while ((got = read(source.get(), buffer.data(), buffer.size())) > 0)
            MUST(write(target.get(), buffer.data(), static_cast<size_t>(got)) == got);
        MUST(got == 0);
    }
    MUST(rename(temporary.c_str(), to.c_str()) == 0);
}

void CopyWithFilesystem(const std::string& from, const std::string& to) {
    MUST(fs::copy_file(from, to, fs::copy_options::overwrite_existing));
}

void CopyWithCp(const std::string& from, const std::string& to) {
    const pid_t pid = vfork();
    if (pid == 0) {
        execlp("cp", "cp", "-T", from.c_str(), to.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    MUST(waitpid(pid, &status, 0) == pid && status == 0);
}

bool HasSize(const std::string& path, size_t size) {
    std::error_code error;
    return fs::file_size(path, error) == size && !error;
}

void Fill(const std::string& path, size_t size) {
    const Descriptor file(path, O_WRONLY | O_CREAT);
    std::vector<char> block(1 << 20, 'b');
    for (size_t done = 0; done < size; done += block.size())
        Put(file.get(), static_cast<off_t>(done), block.data(),
            std::min(block.size(), size - done));
}

// Each operation copies the next of the files.
Contest Copies(const char* name, const std::string& directory, size_t files, size_t size) {
    const std::string source = directory + "/source";
    fs::create_directories(source);
    for (size_t i = 0; i < files; ++i)
        Fill(source + "/" + std::to_string(i), size);
    Contest contest{.name = name, .operations = files, .contestants = {}};
    const auto add = [&](const char* who, Role role, Copy copy) {
        const std::string target = directory + "/" + who;
        const auto enter = [=]() -> Operation {
            return [=, i = size_t{0}]() mutable {
                const std::string file = std::to_string(i++);
                copy(source + '/' + file, target + '/' + file);
            };
        };
        const auto is_done = [=](size_t) {
            for (size_t i = 0; i < files; ++i) {
                if (!HasSize(target + "/" + std::to_string(i), size))
                    return false;
            }
            return true;
        };
        const auto lay_out = [=] {
            fs::remove_all(target);
            fs::create_directory(target);
        };
        contest.contestants.push_back({who, role, enter, is_done, lay_out});
    };
    add("korx", Role::kOurs, CopySafely);
    add("floor", Role::kFloor, CopyFloor);
    add("copy_file", Role::kPeer, CopyWithFilesystem);
    if (files == 1)  // the start of a process is no part of copying a small file
        add("cp", Role::kPeer, CopyWithCp);
    return contest;
}

void HoldAndClear(const Contest& contest, const std::string& directory) {
    Hold(contest);
    fs::remove_all(directory);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    const std::string memory = InMemory() + "/copies", disk = OnDisk() + "/copies";
    HoldAndClear(Copies("KORXFS_CopyFile 4 KiB, memory", memory, 2000, 4096), memory);
    HoldAndClear(Copies("KORXFS_CopyFile 512 MiB, memory", memory, 1, 512 << 20), memory);
    HoldAndClear(Copies("KORXFS_CopyFile 128 MiB, disk", disk, 1, 128 << 20), disk);
}
