#include "support.h"

#include <stdarg.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/report.h"

namespace korx {

namespace fuzz {
std::string reports;
}

// The log is not part of this: its end is here.
void LogV(uint32_t, const char* format, va_list args) {
    if (fuzz::reports.size() > 1 << 20)
        fuzz::reports.clear();  // of a target that never looks
    char text[1024];
    const int length = vsnprintf(text, sizeof text, format, args);
    fuzz::reports.append(text, std::min(static_cast<size_t>(length), sizeof text - 1));
    fuzz::reports += '\n';
}

void SysLogV(const char* format, va_list args) {
    LogV(kLevelErr, format, args);
}

namespace fuzz {

std::string FileOf(std::string_view bytes) {
    static const int file = memfd_create("input", MFD_CLOEXEC);
    Require(ftruncate(file, 0) == 0 &&
            pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return "/proc/self/fd/" + std::to_string(file);
}

namespace {

class Scratch {
  public:
    Scratch() { Require(mkdtemp(path_) != nullptr); }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const char* path() const { return path_; }

  private:
    char path_[sizeof "/dev/shm/korx_fuzz.XXXXXX"] = "/dev/shm/korx_fuzz.XXXXXX";
};

}  // namespace

std::string PathBelowScratch(const char* name) {
    static const Scratch scratch;
    return std::string(scratch.path()) + "/" + name;
}

void WriteFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    Require(bool(file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()));
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Profile Load(const std::string& path) {
    KORX_IniSection* const loaded = KORX_IniLoadProfile(fopen(path.c_str(), "re"));
    Profile profile;
    for (const auto* section = loaded; section != nullptr; section = section->pstNext) {
        profile.push_back({section->acName, {}});
        for (const auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            profile.back().keys.emplace_back(key->acKey, key->acValue);
    }
    KORX_FreeProfile(loaded);
    return profile;
}

}  // namespace fuzz
}  // namespace korx
