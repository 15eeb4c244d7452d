// The commands below "korx log".
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common.h"
#include "filter.h"

namespace korx::tool {

struct ShowOptions {
    std::string what;
    FilterOptions filter;
    std::optional<uint64_t> newest;
    bool follow = false;
};
int RunLogShow(const Globals& globals, const ShowOptions& options);

struct TakeOptions {
    std::string what;
    std::string output;  // empty: standard output
    bool follow = false;
};
int RunLogTake(const Globals& globals, const TakeOptions& options);

int RunLogList(const Globals& globals);
int RunLogVerify(const Globals& globals, const std::vector<std::string>& what);

}  // namespace korx::tool
