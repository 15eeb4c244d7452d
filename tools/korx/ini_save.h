// Replacing a profile while the component's processes may change it, too.
#pragma once

#include <functional>
#include <string>

namespace korx::tool {

// The file that a profile's name leads to, also through links; its lock file, its new version and
// its backup stand beside it. Throws Failure.
std::string ResolvedProfile(const std::string& file);

// Makes a profile's new text of the old one. May be asked again, when the profile was replaced in
// between.
using Edit = std::function<std::string(const std::string& text)>;

// Puts what edit makes of the profile's text in its place, under the library's locks. Throws what
// edit throws, and Failure; the file is then as it was.
void RewriteProfile(const std::string& file, const Edit& edit);

// Exchanges a profile and its backup in one step, under the same locks. Throws Failure; both are
// then as they were.
void RevertProfile(const std::string& file);

}  // namespace korx::tool
