// korx space: records the usage of the mounted file systems and shows it.
#include "space.h"

#include <errno.h>
#include <mntent.h>
#include <stdio.h>
#include <string.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "format/kinds.h"
#include "json.h"
#include "korx/fs.h"
#include "korx/path.h"
#include "output.h"
#include "text.h"

namespace korx::tool {
namespace {

// Where the log cannot be opened the library writes to standard output, which is ours.
void Record() {
    char directory_text[256] = {};
    if (KORX_GetLogPath(directory_text, sizeof directory_text) != 0)
        throw Failure{kInput, "not recorded: the log directory is unknown"};
    const std::string directory = directory_text;
    const std::string file = directory + "/" + kSpaceLogFile;
    const bool exists = access(file.c_str(), F_OK) == 0;
    if (access(exists ? file.c_str() : directory.c_str(), W_OK) < 0)
        throw Failure{kInput, "not recorded: " + SystemError(exists ? file : directory, errno)};
    ORX_GetAndSaveAllDfInfo();
}

}  // namespace

std::vector<Mount> MountedFileSystems() {
    const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/mounts", "re"), endmntent);
    std::vector<Mount> mounts;
    mntent entry;
    char strings[4096];
    while (table && getmntent_r(table.get(), &entry, strings, sizeof strings) != nullptr) {
        struct statfs fs;
        if (statfs(entry.mnt_dir, &fs) < 0 || fs.f_blocks == 0)
            continue;
        const auto block = static_cast<uint64_t>(fs.f_bsize);
        const uint64_t used = fs.f_blocks - fs.f_bfree;
        mounts.push_back({entry.mnt_dir, fs.f_blocks * block, used * block, fs.f_bavail * block,
                          UsedPercent(fs)});
    }
    return mounts;
}

int RunSpace(const Globals& globals, const SpaceOptions& options) {
    int status = kWell;
    if (options.record) {
        try {
            Record();
        } catch (const Failure& failure) {
            Complain(failure.text);
            status = failure.status;
        }
    }
    Output out;
    const size_t width = TerminalWidth(out.fd());
    if (!globals.json)
        out.write("  SIZE    USED    FREE  USE%  MOUNT\n");
    for (const Mount& mount : MountedFileSystems()) {
        if (globals.json) {
            out.write(JsonLine({{"mount", mount.directory},
                                {"size", mount.size},
                                {"used", mount.used},
                                {"available", mount.available},
                                {"percent", mount.percent}}));
            continue;
        }
        char numbers[64];
        snprintf(numbers, sizeof numbers, "%6s  %6s  %6s  %3u%%  ", HumanSize(mount.size).c_str(),
                 HumanSize(mount.used).c_str(), HumanSize(mount.available).c_str(), mount.percent);
        std::string directory;
        AppendPlain(directory, mount.directory, 0);
        out.write(TableRow(numbers, directory, "", width));
    }
    out.flush();
    return status;
}

}  // namespace korx::tool
