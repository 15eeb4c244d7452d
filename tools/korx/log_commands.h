// The commands below "korx log".
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common.h"
#include "filter.h"

namespace korx::tool {

struct ShowOptions {
    std::vector<std::string> what;
    FilterOptions filter;
    std::string form;    // the word of -o; empty: not given
    std::string fields;  // a list; empty: all
    bool utc = false;
    std::optional<uint64_t> newest;
    std::string boot;  // empty: all
    bool list_boots = false;
    bool reverse = false;
    bool follow = false;
    std::string after_cursor;
    bool show_cursor = false;
    bool fail_empty = false;
    std::string wait_for;           // empty: for nothing
    std::optional<double> timeout;  // of wait_for, in seconds
    bool pager = true;
};
int RunLogShow(const Globals& globals, const ShowOptions& options);

struct TakeOptions {
    std::string what;
    std::string output;          // empty or "-": standard output
    std::string command;         // gets the batches instead
    std::optional<int> answers;  // where the reader of standard output says what it has kept
    bool follow = false;
};
int RunLogTake(const Globals& globals, const TakeOptions& options);
// Of the options only what and output.
int RunLogRepair(const Globals& globals, const TakeOptions& options);

int RunLogList(const Globals& globals);
int RunLogVerify(const Globals& globals, const std::vector<std::string>& what);

}  // namespace korx::tool
