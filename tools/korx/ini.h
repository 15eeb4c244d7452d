// The commands below "korx ini".
#pragma once

#include <string>

#include "common.h"

namespace korx::tool {

struct IniOptions {
    std::string file;
    std::string section;
    std::string key;
    std::string value;
    bool raw = false;            // get: with the quotes
    bool existing = false;       // set: don't add
    bool keep_comments = false;  // set
};

int RunIniGet(const Globals& globals, const IniOptions& options);
int RunIniSet(const Globals& globals, const IniOptions& options);
int RunIniList(const Globals& globals, const IniOptions& options);
int RunIniCheck(const Globals& globals, const IniOptions& options);

}  // namespace korx::tool
