// "<file>=<mark>,<file>=<mark>:<check>". A mark is its bytes in hexadecimal without the zeros at
// their end; file names are escaped as in URLs; the check is a hash of all before its colon, so
// that half a token is not taken for another place.
#include "cursor_token.h"

#include <ctype.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

#include "common.h"

namespace korx::tool {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

void AppendHex(std::string& out, unsigned char byte) {
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
}

// Takes two digits; -1 where there are none.
int TakeHex(std::string_view& text) {
    if (text.size() < 2)
        return -1;
    const auto digit = [](char c) {
        const char* const at = c == '\0' ? nullptr : strchr(kDigits, c);
        return at == nullptr ? -1 : static_cast<int>(at - kDigits);
    };
    const int high = digit(text[0]);
    const int low = digit(text[1]);
    text.remove_prefix(2);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

std::string Check(std::string_view text) {
    uint32_t hash = 2166136261u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    std::string check;
    for (int shift = 24; shift >= 0; shift -= 8)
        AppendHex(check, static_cast<unsigned char>(hash >> shift));
    return check;
}

bool TakeMark(std::string_view& text, korx_mark* mark) {
    unsigned char bytes[sizeof *mark] = {};
    size_t count = 0;
    while (!text.empty() && text[0] != ',') {
        const int byte = TakeHex(text);
        if (byte < 0 || count == sizeof bytes)
            return false;
        bytes[count++] = static_cast<unsigned char>(byte);
    }
    memcpy(mark, bytes, sizeof *mark);
    return true;
}

bool TakeFile(std::string_view& text, std::string* file) {
    while (!text.empty() && text[0] != '=') {
        const char c = text[0];
        text.remove_prefix(1);
        const int byte = c == '%' ? TakeHex(text) : c;
        if (byte < 0)
            return false;
        *file += static_cast<char>(byte);
    }
    if (text.empty())
        return false;
    text.remove_prefix(1);
    return true;
}

}  // namespace

std::string CursorToken(const std::vector<NamedMark>& marks) {
    std::string token;
    for (const NamedMark& named : marks) {
        token += token.empty() ? "" : ",";
        for (const char c : named.file) {
            if (isalnum(static_cast<unsigned char>(c)) || strchr("._-/", c) != nullptr) {
                token += c;
                continue;
            }
            token += '%';
            AppendHex(token, static_cast<unsigned char>(c));
        }
        token += '=';
        unsigned char bytes[sizeof named.mark];
        memcpy(bytes, &named.mark, sizeof bytes);
        size_t count = sizeof bytes;
        while (count > 0 && bytes[count - 1] == 0)
            --count;
        for (size_t i = 0; i < count; ++i)
            AppendHex(token, bytes[i]);
    }
    return token + ":" + Check(token);
}

std::vector<NamedMark> ParseCursorToken(const std::string& token) {
    const Failure failure{kUsage,
                          "--after-cursor: '" + token + "' is none that --show-cursor gave"};
    const size_t colon = token.rfind(':');
    if (colon == std::string::npos || Check(token.substr(0, colon)) != token.substr(colon + 1))
        throw failure;
    std::vector<NamedMark> marks;
    std::string_view rest = std::string_view(token).substr(0, colon);
    while (!rest.empty()) {
        NamedMark named{};
        if (!TakeFile(rest, &named.file) || !TakeMark(rest, &named.mark))
            throw failure;
        marks.push_back(std::move(named));
        if (!rest.empty())
            rest.remove_prefix(1);
    }
    return marks;
}

}  // namespace korx::tool
