// The space-full log: a small file that is reserved while there is room, and the usage of every
// mounted file system, written to it when there is none.
#include "korx/log.h"

#include <errno.h>
#include <mntent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/time.h>
#include <time.h>

#include <memory>

#include "base/codes.h"
#include "base/local_time.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "format/kinds.h"
#include "format/space.h"
#include "korx/fs.h"
#include "korx/path.h"

namespace korx {
namespace {

constexpr size_t kEntrySize = 768;
constexpr mode_t kReserveMode = 0640;
constexpr char kMountTable[] = "/proc/mounts";

using UniqueMountTable = std::unique_ptr<FILE, Releaser<::endmntent>>;

// The log, or the standard output where the log cannot be opened.
class Stream {
  public:
    FILE* get() const { return file_ ? file_.get() : stdout; }
    bool is_log() const { return file_ != nullptr; }

    // Resolves path and opens it. False when it does not resolve.
    bool open(const char* path, const char* mode) {
        file_.reset();
        DirectoryText absolute;
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
    (void) fprintf(stream, kSpaceFormat, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   local.tm_hour, local.tm_min, local.tm_sec,
                   static_cast<unsigned long>(now.tv_usec), name, value);
    (void) fflush(stream);
}

}  // namespace
}  // namespace korx

using namespace korx;

void ORX_SpaceFullLogInit(void) {
    DirectoryText directory;
    (void) KORX_GetLogPath(directory.data(), directory.capacity());

    const MallocPtr<char> blanks(static_cast<char*>(malloc(kSpaceReserve)));
    if (!blanks)
        return Log(kLevelErr, "spacefull malloc unsuccessfully.");
    memset(blanks.get(), ' ', kSpaceReserve);

    DirectoryText path;
    if (!path.format("%s/%s", directory.c_str(), kSpaceLogFile))
        return SysLog("Print LogSpacefullDir unsuccessfully.LogSpacefullDir=%s/%s",
                      directory.c_str(), kSpaceLogFile);
    DirectoryText absolute;
    if (ORX_GetAbsolutePathAndFileName(path.c_str(), absolute.data(), absolute.capacity()) != kOk)
        return Log(kLevelErr,
                   "Get abolute path and file name of file %s unsuccessfully when space full init.",
                   path.c_str());

    const UniqueFile file(fopen(absolute.c_str(), "w+e"));
    if (!file)
        return Log(kLevelErr, "spacefull fopen unsuccessfully, errno=%d.", errno);
    // Unbuffered, so that a full disk shows in the count and not, unseen, in fclose.
    (void) setvbuf(file.get(), nullptr, _IONBF, 0);
    const size_t written = fwrite(blanks.get(), 1, kSpaceReserve, file.get());
    if (written != kSpaceReserve)
        Log(kLevelErr, "Spacefulllog init fwrite unsuccessfully, retCode=%d, ferror=%d.",
            static_cast<int>(written), ferror(file.get()));
    (void) fchmod(fileno(file.get()), kReserveMode);
}

void ORX_SpaceFull(const char* name, uint32_t value) {
    const LocalNow now;

    DirectoryText directory;
    DirectoryText path;
    (void) KORX_GetLogPath(directory.data(), directory.capacity());
    if (!path.format("%s/%s", directory.c_str(), kSpaceLogFile))
        return Log(kLevelErr, "Print LogDir unsuccessfully, LogDir=%s/%s", directory.c_str(),
                   kSpaceLogFile);

    Stream stream;
    if (!stream.open(path.c_str(), "a+e") || fseek(stream.get(), 0, SEEK_END) != 0)
        return;
    if (stream.is_log() && ftell(stream.get()) > long{kSpaceReserve}) {
        if (!stream.open(path.c_str(), "w+e"))
            return;
        (void) fputs(kSpaceHeader, stream.get());
    }
    WriteRecord(stream.get(), now.now, now.local, name == nullptr ? "" : name, value);
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
