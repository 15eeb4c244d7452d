// Where the component's directories are, found without touching anything: the library's own getters
// repair the default log directory's link on the way.
#pragma once

#include <string>

#include "common.h"

namespace korx::tool {

struct ConfiguredPath {
    std::string path;    // as the library hands it out
    std::string origin;  // "configured" or why it is the default
    bool is_default = true;
};

struct Paths {
    ConfiguredPath log;
    ConfiguredPath data;
};

Paths ResolvePaths();

// "directory", "link to X", "missing" and so on.
struct LinkState {
    std::string text;
    bool is_link = false;
    bool well = false;  // leads to a directory, and to the right one where it is the default
};
LinkState StateOfLogDirectory(const ConfiguredPath& log);
std::string StateOfPath(const std::string& path);

int RunPaths(const Globals& globals);

}  // namespace korx::tool
