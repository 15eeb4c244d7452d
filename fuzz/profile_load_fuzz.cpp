// The library's loader against what the command takes the lines for.
#include "ini_lines.h"
#include "support.h"

using namespace korx::fuzz;
using korx::tool::IniLine;

namespace {

Profile Expected(std::string_view text) {
    Profile profile;
    for (const IniLine& line : korx::tool::SplitLines(text)) {
        if (line.is_refused)
            return {};
        if (line.kind == IniLine::kSection)
            profile.push_back({line.name, {}});
        else if (line.kind == IniLine::kKey)
            profile.back().keys.emplace_back(line.name, line.value);
    }
    return profile;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text = View(data, size);
    Require(Load(FileOf(text)) == Expected(text));
    (void) korx::tool::CheckProfile(text);
    return 0;
}
