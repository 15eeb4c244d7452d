// Trimming. Two notions of space live here and must not be merged: the blank trimmers take blanks
// and double quotes but no tabs, ORX_StringTrim takes what isspace takes and no quotes.
#include "korx/str.h"

#include <ctype.h>
#include <string.h>

#include <string_view>

#include "base/alloc.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/unique.h"
#include "str/line_end.h"

namespace korx {
namespace {

constexpr char kBlank = ' ';
constexpr char kQuote = '"';

size_t CountLeading(const char* text, char c) {
    size_t count = 0;
    while (text[count] == c)
        ++count;
    return count;
}

size_t CountTrailing(std::string_view text, char c) {
    size_t count = 0;
    for (; !text.empty() && text.back() == c; text.remove_suffix(1))
        ++count;
    return count;
}

MallocPtr<char> ZeroedCopyBuffer(size_t length) {
    return MallocPtr<char>(static_cast<char*>(AllocateZeroed(length + 1)));
}

uint32_t Number(size_t length) {
    return static_cast<uint32_t>(length);
}

bool IsSpace(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_Strtrimr(char* text) {
    const size_t length = strlen(text);
    const MallocPtr<char> copy = ZeroedCopyBuffer(length);
    if (!copy)
        return kNoMemory;

    const size_t blanks = CountLeading(text, kBlank);
    const char* const rest = text + blanks;
    if (const int code = strncpy_s(copy.get(), length + 1, rest, length - blanks); code != 0)
        return Fail(kFailed,
                    "nRet=%d.Failed to copy buffer when Strtrimr, buffer=%s, loop=%u, len=%u.",
                    code, rest, Number(blanks), Number(length));

    const size_t quotes = CountLeading(copy.get(), kQuote);
    const char* const remainder = copy.get() + quotes;
    (void) memset_s(text, length + 1, 0, length + 1);
    if (const int code = strncpy_s(text, length + 1, remainder, length); code != 0)
        return Fail(
            kFailed,
            "nRet=%d.Copy buffer when Strtrimr unsuccessfully, buffer=%s, loop=%u, len=%u, templen=%u.",
            code, remainder, Number(quotes), Number(length), Number(strlen(remainder)));
    return kOk;
}

uint32_t ORX_Strtriml(char* text) {
    const size_t length = strlen(text);
    if (length == 0)
        return kOk;
    const MallocPtr<char> copy = ZeroedCopyBuffer(length);
    if (!copy)
        return kNoMemory;

    const size_t quotes = CountTrailing({text, length}, kQuote);
    const size_t unquoted = length - quotes;
    if (const int code = strncpy_s(copy.get(), length + 1, text, unquoted); code != 0)
        return Fail(kFailed,
                    "nRet=%d.Copy pcbuf when Strtriml unsuccessfully, buf=%s, loop=%u, len=%u.",
                    code, text, Number(quotes), Number(length));

    // Quotes only or blanks only leave nothing to copy back: the zeroed text is the result.
    const size_t blanks = CountTrailing({copy.get(), unquoted}, kBlank);
    (void) memset_s(text, length, 0, length);
    if (const int code = strncpy_s(text, length + 1, copy.get(), unquoted - blanks); code != 0)
        return Fail(
            kFailed,
            "nRet=%d.Copy pctmp when Strtriml unsuccessfully, tmp=%s, tmpLen=%u, loop=%u, len=%u.",
            code, copy.get(), Number(unquoted), Number(blanks), Number(length));
    return kOk;
}

uint32_t ORX_Trim(char* text, uint32_t /*size*/) {
    const uint32_t code = ORX_Strtriml(text);
    return code != kOk ? code : ORX_Strtrimr(text);
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
