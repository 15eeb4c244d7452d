#include "profile.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "common.h"
#include "ini_lines.h"

namespace korx::tool {

std::string OpenProfileText(const UniqueFd& fd, const std::string& file) {
    constexpr size_t kMost = 16 << 20;
    return ReadWholeFile(fd, file, kMost);
}

std::string ProfileText(const std::string& file) {
    return OpenProfileText(OpenRegular(file), file);
}

void RefuseUnloadable(const std::string& file, std::string_view text) {
    for (const IniLine& line : SplitLines(text))
        if (line.is_refused)
            throw Failure{kInput, file + ":" + std::to_string(line.number) +
                                      ": key or value is too long: the whole file is refused"};
}

Profile LoadProfile(const std::string& file) {
    UniqueFd fd = OpenRegular(file);
    FILE* const stream = fdopen(fd.get(), "r");
    if (stream == nullptr)
        throw Failure{kInput, SystemError(file, errno)};
    (void) fd.release();  // it is the stream's now, and the loader closes that
    return Profile(KORX_IniLoadProfile(stream));
}

Profile LoadWholeProfile(const std::string& file) {
    Profile profile = LoadProfile(file);
    if (profile)
        return profile;
    const std::string text = ProfileText(file);
    RefuseUnloadable(file, text);
    // Without a section there is nothing to load. With one, it was not the file that was wrong, and
    // nobody may be told that there is no such key.
    for (const IniLine& line : SplitLines(text))
        if (line.kind == IniLine::kSection)
            throw Failure{kInput, file + ": loading failed"};
    return profile;
}

const KORX_IniKey* FindKey(const KORX_IniSection* profile, const std::string& section,
                           const std::string& key) {
    while (profile != nullptr && section != profile->acName)
        profile = profile->pstNext;
    const KORX_IniKey* found = profile == nullptr ? nullptr : profile->pstFirstKey;
    while (found != nullptr && key != found->acKey)
        found = found->pstNext;
    return found;
}

std::optional<std::string> LookupValue(const KORX_IniKey& key) {
    // The library's lookups see at most this much of a value.
    std::string value(key.acValue, strnlen(key.acValue, 255));
    if (value.empty() || value[0] != '"')
        return value;
    const size_t end = value.find('"', 1);
    if (end == std::string::npos)
        return std::nullopt;
    return value.substr(1, end - 1);
}

std::string Bracketed(const std::string& section) {
    const bool has_brackets =
        section.size() >= 2 && section.front() == '[' && section.back() == ']';
    return has_brackets ? section : "[" + section + "]";
}

}  // namespace korx::tool
