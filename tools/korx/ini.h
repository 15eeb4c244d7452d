// The commands below "korx ini".
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common.h"

namespace korx::tool {

struct IniOptions {
    std::string file;
    std::string other;  // diff: instead of the backup
    std::string section;
    std::string key;                      // set: or the first pair
    std::optional<std::string> value;     // set: or the second pair
    std::vector<std::string> more;        // set: pairs and sections; unset: keys
    std::optional<std::string> fallback;  // get: where there is no such key
    bool raw = false;                     // get: with the quotes
    bool existing = false;                // set: don't add
    bool keep_comments = false;           // set
};

int RunIniGet(const Globals& globals, const IniOptions& options);
int RunIniSet(const Globals& globals, const IniOptions& options);
int RunIniUnset(const Globals& globals, const IniOptions& options);
int RunIniRevert(const Globals& globals, const IniOptions& options);
int RunIniList(const Globals& globals, const IniOptions& options);
int RunIniCheck(const Globals& globals, const IniOptions& options);
int RunIniDiff(const Globals& globals, const IniOptions& options);

}  // namespace korx::tool
