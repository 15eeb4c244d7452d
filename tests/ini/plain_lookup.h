// What a lookup must answer, found the plain way: the whole profile is loaded, then searched.
#pragma once

#include <stdio.h>
#include <string.h>

#include <string>

#include "korx/ini.h"

namespace korx::test {

// A result of KORX_IniReadProfile with the value that it left.
struct Answer {
    uint32_t result;
    std::string value;
    bool operator==(const Answer&) const = default;
};

inline Answer LoadAndLookUp(FILE* stream, const char* section, const char* key) {
    KORX_IniSection* const profile = KORX_IniLoadProfile(stream);
    if (profile == nullptr)
        return {KORX_INI_NOT_LOADED, ""};
    Answer answer = {KORX_INI_READ, "\"\""};
    const auto* at = profile;
    while (at != nullptr && strcmp(at->acName, section) != 0)
        at = at->pstNext;
    const auto* found = at == nullptr ? nullptr : at->pstFirstKey;
    while (found != nullptr && strcmp(found->acKey, key) != 0)
        found = found->pstNext;
    if (found != nullptr)
        answer.value = found->acValue;
    KORX_FreeProfile(profile);
    return answer;
}

inline Answer LookUp(const char* file, const char* section, const char* key) {
    char value[300] = "";
    const uint32_t result = KORX_IniReadProfile(file, section, key, value, sizeof value);
    return {result, value};
}

}  // namespace korx::test
