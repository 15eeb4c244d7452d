// The options of korx log show.
#pragma once

#include <CLI/CLI.hpp>

#include "log_commands.h"

namespace korx::tool {

// options outlives the command.
void AddShowOptions(CLI::App* show, ShowOptions& options);

}  // namespace korx::tool
