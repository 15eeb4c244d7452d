// The disk-space record: the usage of every mounted file system, written to the small file that was
// reserved for it while there was room.
#include <mntent.h>
#include <stdio.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <time.h>

#include <memory>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "korx/fs.h"
#include "korx/path.h"

namespace korx {
namespace {

constexpr size_t kPathSize = 256;
constexpr size_t kEntrySize = 768;
constexpr long kReserved = 5120;  // a file that holds more is started anew
constexpr char kLogName[] = "orx_spacefull.log";
constexpr char kMountTable[] = "/proc/mounts";

using Path = FixedText<kPathSize>;
using UniqueMountTable = std::unique_ptr<FILE, Releaser<::endmntent>>;

// The log, or the standard output where the log cannot be opened.
class Stream {
  public:
    FILE* get() const { return file_ ? file_.get() : stdout; }
    bool is_log() const { return file_ != nullptr; }

    // Resolves path and opens it. False when it does not resolve.
    bool open(const char* path, const char* mode) {
        file_.reset();
        Path absolute;
        if (ORX_GetAbsolutePathAndFileName(path, absolute.data(), absolute.capacity()) != kOk)
            return Fail(
                false,
                "Get the abolute path and file name of file %s unsuccessfully when space is full.",
                path);
        file_.reset(fopen(absolute.c_str(), mode));
        return true;
    }

  private:
    UniqueFile file_;
};

void WriteRecord(FILE* stream, const struct timeval& now, const struct tm& local, const char* name,
                 uint32_t value) {
    (void) fprintf(stream, "[%04d%02d%02d-%02d:%02d:%02d.%06lu]%100s%10u\r\n", local.tm_year + 1900,
                   local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                   static_cast<unsigned long>(now.tv_usec), name, value);
    (void) fflush(stream);
}

// The share of the used blocks in those that ordinary users can use, to the nearest percent. Wide
// enough for any two block counts and their product with 100.
uint32_t UsedPercent(const struct statfs& fs) {
    using Wide = unsigned __int128;
    const Wide used = fs.f_blocks > fs.f_bfree ? fs.f_blocks - fs.f_bfree : 0;
    const Wide usable = used + fs.f_bavail;
    return usable == 0 ? 0 : static_cast<uint32_t>((used * 100 + usable / 2) / usable);
}

}  // namespace
}  // namespace korx

using namespace korx;

void ORX_SpaceFull(const char* name, uint32_t value) {
    struct timeval now = {};
    struct tm local = {};
    (void) gettimeofday(&now, nullptr);
    (void) localtime_r(&now.tv_sec, &local);

    Path directory;
    Path path;
    (void) KORX_GetLogPath(directory.data(), directory.capacity());
    if (!path.format("%s/%s", directory.c_str(), kLogName))
        return Log(kLevelErr, "Print LogDir unsuccessfully, LogDir=%s/%s", directory.c_str(),
                   kLogName);

    Stream stream;
    if (!stream.open(path.c_str(), "a+e") || fseek(stream.get(), 0, SEEK_END) != 0)
        return;
    if (stream.is_log() && ftell(stream.get()) > kReserved) {
        if (!stream.open(path.c_str(), "w+e"))
            return;
        (void) fputs("[orx_spacefull] start:\r\n]", stream.get());
    }
    WriteRecord(stream.get(), now, local, name == nullptr ? "" : name, value);
}

void ORX_GetAndSaveAllDfInfo() {
    const UniqueMountTable table(setmntent(kMountTable, "re"));
    if (!table)
        return;
    struct mntent entry;
    char text[kEntrySize];
    while (getmntent_r(table.get(), &entry, text, sizeof text) != nullptr) {
        struct statfs fs;
        if (entry.mnt_dir != nullptr && statfs(entry.mnt_dir, &fs) == 0 && fs.f_blocks != 0)
            ORX_SpaceFull(entry.mnt_dir, UsedPercent(fs));
    }
}
