// One key changed by the library: every other section and key is read as before, and a change that
// is refused leaves every byte. The input is the section's name, the key, the value and the file,
// with NULs between.
#include "changed_profile.h"

using namespace korx::fuzz;

namespace {

bool HasBareEnds(const std::string& text) {
    return text.empty() || (std::string_view(" \t").find(text.front()) == std::string_view::npos &&
                            std::string_view(" \t\r").find(text.back()) == std::string_view::npos);
}

// What the contract promises to read back.
bool IsReadBack(const std::string& section, const std::string& key, const std::string& value) {
    return section.size() >= 2 && section.size() < 64 && section.front() == '[' &&
           section.back() == ']' && !key.empty() && key.size() < 64 &&
           std::string_view(";#[").find(key.front()) == std::string_view::npos &&
           value.size() < 256 && (key + value).find('=') == std::string::npos && HasBareEnds(key) &&
           HasBareEnds(value);
}

// A save does not keep the blanks behind a key, which only a line without "=" can have.
Profile WithoutBlanks(Profile profile) {
    for (Section& section : profile)
        for (auto& [key, value] : section.keys)
            key.resize(key.find_last_not_of(" \t") + 1);
    return profile;
}

// What a lookup finds; a key that is not there is as good as an empty one.
std::string ValueOf(const Profile& profile, const std::string& section, const std::string& key) {
    for (const Section& candidate : profile) {
        if (candidate.name != section)
            continue;
        for (const auto& [name, value] : candidate.keys) {
            if (name == key)
                return value;
        }
        break;
    }
    return "";
}

void RequireOthersKept(const Profile& before, const Profile& after, const std::string& section,
                       const std::string& key) {
    for (const Section& candidate : before) {
        for (const auto& [name, value] : candidate.keys)
            Require((candidate.name == section && name == key) ||
                    ValueOf(before, candidate.name, name) == ValueOf(after, candidate.name, name));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const std::string section = TakeText(&rest);
    const std::string key = TakeText(&rest);
    const std::string value = TakeText(&rest);
    static const std::string path = PathBelowScratch("profile.ini");
    WriteFile(path, rest);
    const Profile before = Load(path);

    const bool is_read_back = IsReadBack(section, key, value);
    if (KORX_IniSetOrAddValue(path.c_str(), section.c_str(), key.c_str(), value.c_str()) == 0) {
        const Profile after = Load(path);
        if (is_read_back) {
            Require(after == WithoutBlanks(Changed(before, section, key, value, Top::kOfFileToo)));
            RequireOthersKept(before, after, section, key);
        }
        Require(ReadFile(path + "-") == rest);
    } else {
        Require(ReadFile(path) == rest);
    }
    return 0;
}
