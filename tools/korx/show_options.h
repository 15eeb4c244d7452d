// The options of korx log show.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "log_commands.h"

namespace korx::tool {

// options outlives the command.
void AddShowOptions(CLI::App* show, ShowOptions& options);

// The words of a command line, where -b takes the next one only if that is a number: in
// "show -b diag" the KIND is diag. The parser would take any.
std::vector<std::string> WithBoots(int count, const char* const* words);

}  // namespace korx::tool
