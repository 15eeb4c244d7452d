// A command line that is wrong, in our own words.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace korx::tool {

// Refuses the empty text. Given to every option that takes text where an empty one would count as
// none: --since "$START" with an unset variable must not show everything.
extern const CLI::Validator kNotEmpty;
// Refuses what is no number from 0 on; "-1" would otherwise become a very large one.
extern const CLI::Validator kCount;

// One sentence on what the parser did not like, and where help is.
std::string UsageComplaint(const CLI::ParseError& error, const CLI::App& app);

}  // namespace korx::tool
