// Replacing a profile while the component's processes may change it, too.
#pragma once

#include <functional>
#include <string>

namespace korx::tool {

// Puts what edit makes of the profile's text in its place, under the library's locks. Throws what
// edit throws, and Failure; the file is then as it was.
void RewriteProfile(const std::string& file,
                    const std::function<std::string(const std::string& text)>& edit);

}  // namespace korx::tool
