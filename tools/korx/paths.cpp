#include "paths.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "format/board.h"
#include "json.h"
#include "korx/path.h"
#include "korx/str.h"
#include "output.h"
#include "profile.h"

namespace korx::tool {
namespace {

// What the library makes of a configured value, or the default with the reason.
ConfiguredPath Configured(const KORX_IniSection* profile, const std::string& trouble,
                          const char* key, const char* name) {
    ConfiguredPath result;
    result.path = std::string(kBaseDir) + "/" + name;
    if (!trouble.empty()) {
        result.origin = "default: " + trouble;
        return result;
    }
    const KORX_IniKey* const found = FindKey(profile, kPathSection, key);
    if (found == nullptr) {
        result.origin = std::string("default: no key ") + key + " in section " + kPathSection;
        return result;
    }
    const auto value = LookupValue(*found);
    if (!value) {
        result.origin = std::string("default: ") + key + " has no closing quote";
        return result;
    }
    char buffer[258] = {};
    strncpy(buffer, value->c_str(), sizeof buffer - 1);
    (void) ORX_Trim(buffer, sizeof buffer);
    if (buffer[0] != '/') {
        result.origin = std::string("default: ") + key + " is not an absolute path";
        return result;
    }
    ORX_CutPathStr(buffer);
    result.path = buffer;
    result.origin = std::string("configured: ") + key + " in " + kConfFile;
    result.is_default = false;
    return result;
}

std::string Resolved(const std::string& path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) == nullptr ? std::string() : std::string(buffer);
}

std::string LinkContents(const std::string& path) {
    char buffer[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), buffer, sizeof buffer);
    return length < 0 ? std::string() : std::string(buffer, static_cast<size_t>(length));
}

}  // namespace

Paths ResolvePaths() {
    Profile profile;
    std::string trouble;
    if (access(kConfFile, F_OK) < 0) {
        trouble = SystemError(kConfFile, errno);
    } else {
        try {
            profile = LoadProfile(kConfFile);
            if (!profile)
                trouble = std::string(kConfFile) + " has no section or is refused by the loader";
        } catch (const Failure& failure) {
            trouble = failure.text;
        }
    }
    return {Configured(profile.get(), trouble, kLogPathKey, kLogDirName),
            Configured(profile.get(), trouble, kDataPathKey, kDataDirName)};
}

std::string StateOfPath(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) < 0)
        return errno == ENOENT ? "missing" : strerror(errno);
    std::string text;
    if (S_ISLNK(st.st_mode)) {
        text = "link to " + LinkContents(path);
        if (stat(path.c_str(), &st) < 0)
            return text + ", dangling";
        text += ", ";
    }
    return text + (S_ISDIR(st.st_mode)   ? "directory"
                   : S_ISREG(st.st_mode) ? "file"
                                         : "neither file nor directory");
}

LinkState StateOfLogDirectory(const ConfiguredPath& log) {
    LinkState state;
    state.text = StateOfPath(log.path);
    struct stat st;
    state.is_link = lstat(log.path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
    state.well = stat(log.path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    if (log.is_default && state.is_link && LinkContents(log.path) != kLogLinkTarget) {
        state.well = false;
        state.text += std::string(", should be a link to ") + kLogLinkTarget;
    }
    return state;
}

int RunPaths(const Globals& globals) {
    struct Row {
        const char* name;
        std::string path;
        std::string origin;
        std::string state;
    };
    char temporary[256] = {};
    char local_data[256] = {};
    (void) KORX_GetCommTmpPath(temporary, sizeof temporary);
    (void) KORX_GetLocalDataFileFullPath(local_data, sizeof local_data);
    const Paths paths = ResolvePaths();
    const std::vector<Row> rows = {
        {"config", kConfFile, "fixed", StateOfPath(kConfFile)},
        {"log", paths.log.path, paths.log.origin, StateOfLogDirectory(paths.log).text},
        {"data", paths.data.path, paths.data.origin, StateOfPath(paths.data.path)},
        {"tmp", temporary, "fixed", StateOfPath(temporary)},
        {"local-data", local_data, "fixed", StateOfPath(local_data)},
    };
    Output out;
    for (const Row& row : rows) {
        if (globals.json) {
            out.write(JsonLine({{"name", row.name},
                                {"path", row.path},
                                {"origin", row.origin},
                                {"state", row.state},
                                {"resolved", Resolved(row.path)}}));
            continue;
        }
        std::string line = row.name;
        line.append(12 - line.size(), ' ');
        line += row.path + "\n            " + row.origin + "\n            " + row.state + "\n";
        out.write(line);
    }
    out.flush();
    return kWell;
}

}  // namespace korx::tool
