// korx log show --list-boots: what boots the logs tell of.
#pragma once

#include <vector>

#include "record_print.h"
#include "sources.h"

namespace korx::tool {

// Prints a line for each boot of each log, oldest first. The exit status.
int ListBoots(const std::vector<Source>& sources, const Style& style);

}  // namespace korx::tool
