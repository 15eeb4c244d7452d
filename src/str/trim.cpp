// Trimming. Two notions of space live here and must not be merged: the blank trimmers take blanks
// and double quotes but no tabs, ORX_StringTrim takes what isspace takes and no quotes.
#include "korx/str.h"

#include <ctype.h>
#include <string.h>

#include <string_view>

#include "base/codes.h"
#include "str/line_end.h"

namespace korx {
namespace {

std::string_view WithoutLeading(std::string_view text, char c) {
    size_t count = 0;
    while (count < text.size() && text[count] == c)
        ++count;
    text.remove_prefix(count);  // substr, where it is not inlined, brings its exception along
    return text;
}

std::string_view WithoutTrailing(std::string_view text, char c) {
    size_t length = text.size();
    while (length > 0 && text[length - 1] == c)
        --length;
    return {text.data(), length};
}

std::string_view WithoutStart(std::string_view text) {
    return WithoutLeading(WithoutLeading(text, ' '), '"');
}

std::string_view WithoutEnd(std::string_view text) {
    return WithoutTrailing(WithoutTrailing(text, '"'), ' ');
}

// Leaves only what of a text is kept; the rest of its bytes become zero.
uint32_t Keep(char* text, size_t length, std::string_view kept) {
    memmove(text, kept.data(), kept.size());
    memset(text + kept.size(), 0, length - kept.size());
    return kOk;
}

bool IsSpace(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_Strtrimr(char* text) {
    const size_t length = strlen(text);
    return Keep(text, length, WithoutStart({text, length}));
}

uint32_t ORX_Strtriml(char* text) {
    const size_t length = strlen(text);
    return Keep(text, length, WithoutEnd({text, length}));
}

uint32_t ORX_Trim(char* text, uint32_t /*size*/) {
    const size_t length = strlen(text);
    return Keep(text, length, WithoutStart(WithoutEnd({text, length})));
}

void ORX_RemoveLastRn(char* text, uint32_t /*size*/) {
    if (text == nullptr)
        return;
    const size_t length = strlen(text);
    const size_t end = LineEndLength({text, length});
    memset(text + length - end, 0, end);
}

uint32_t ORX_IsSpaceString(const char* text) {
    if (text == nullptr)
        return KORX_TRUE;
    while (IsSpace(*text))
        ++text;
    return *text == '\0' ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_StringTrim(char* text) {
    if (text == nullptr)
        return kFailed;
    const char* first = text;
    while (IsSpace(*first))
        ++first;
    const char* end = first + strlen(first);
    while (end > first && IsSpace(end[-1]))
        --end;

    const auto length = static_cast<size_t>(end - first);
    memmove(text, first, length);
    text[length] = '\0';
    return kOk;
}
