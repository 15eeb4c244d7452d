#include "text.h"

#include <sys/ioctl.h>

#include <array>
#include <sstream>

namespace korx::tool {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// Characters that AppendJsonString copies without a look, and AppendPlain.
constexpr std::array<bool, 256> kJsonSafe = [] {
    std::array<bool, 256> safe{};
    for (int c = 0x20; c < 0x7f; ++c)
        safe[static_cast<size_t>(c)] = c != '"' && c != '\\';
    return safe;
}();
constexpr std::array<bool, 256> kPlainSafe = [] {
    std::array<bool, 256> safe{};
    for (int c = 0x20; c < 0x7f; ++c)
        safe[static_cast<size_t>(c)] = true;
    safe['\t'] = true;
    return safe;
}();

size_t SafeLength(std::string_view text, const std::array<bool, 256>& safe) {
    size_t length = 0;
    while (length < text.size() && safe[static_cast<unsigned char>(text[length])])
        ++length;
    return length;
}

// The length of the UTF-8 sequence that text begins with, or 0. No surrogates, nothing overlong.
size_t Utf8Length(std::string_view text) {
    const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    if (first < 0x80)
        return 1;
    const size_t length = first >= 0xc2 && first <= 0xdf   ? 2
                          : first >= 0xe0 && first <= 0xef ? 3
                          : first >= 0xf0 && first <= 0xf4 ? 4
                                                           : 0;
    if (length == 0 || text.size() < length)
        return 0;
    const unsigned char low = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char high = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    if (at(1) < low || at(1) > high)
        return 0;
    for (size_t i = 2; i < length; ++i)
        if ((at(i) & 0xc0) != 0x80)
            return 0;
    return length;
}

// Appends the first character, which is not a safe one, and returns its length.
size_t AppendJsonEscape(std::string& out, std::string_view text) {
    const auto c = static_cast<unsigned char>(text[0]);
    if (c == '"' || c == '\\') {
        out += '\\';
        out += text[0];
    } else if (c == '\n') {
        out += "\\n";
    } else if (c == '\r') {
        out += "\\r";
    } else if (c == '\t') {
        out += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
        out += "\\u00";
        out += kHexDigits[c >> 4];
        out += kHexDigits[c & 15];
    } else if (const size_t length = Utf8Length(text); length > 0) {
        out += text.substr(0, length);
        return length;
    } else {
        out += "\\ufffd";
    }
    return 1;
}

void AppendDigits(char* out, unsigned value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

struct Date {
    int64_t year;
    unsigned month;
    unsigned day;
};

// The proleptic Gregorian date of a day counted from 1970-01-01, in eras of 400 years that begin in
// March.
Date DateOfDay(int64_t day) {
    day += 719468;
    const int64_t era = (day >= 0 ? day : day - 146096) / 146097;
    const auto of_era = static_cast<unsigned>(day - era * 146097);
    const unsigned year = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
    const unsigned of_year = of_era - (365 * year + year / 4 - year / 100);
    const unsigned month = (5 * of_year + 2) / 153;
    return {static_cast<int64_t>(year) + era * 400 + (month >= 10 ? 1 : 0),
            month < 10 ? month + 3 : month - 9, of_year - (153 * month + 2) / 5 + 1};
}

}  // namespace

void AppendJsonString(std::string& out, std::string_view text) {
    out += '"';
    while (true) {
        const size_t safe = SafeLength(text, kJsonSafe);
        out += text.substr(0, safe);
        text.remove_prefix(safe);
        if (text.empty())
            break;
        text.remove_prefix(AppendJsonEscape(out, text));
    }
    out += '"';
}

void AppendPlain(std::string& out, std::string_view text, size_t indent) {
    while (true) {
        const size_t safe = SafeLength(text, kPlainSafe);
        out += text.substr(0, safe);
        text.remove_prefix(safe);
        if (text.empty())
            return;
        const auto c = static_cast<unsigned char>(text[0]);
        const size_t length = Utf8Length(text);
        const bool is_control =
            c < 0x80 || (c == 0xc2 && length == 2 && static_cast<unsigned char>(text[1]) < 0xa0);
        if (c == '\n') {
            out += '\n';
            out.append(indent, ' ');
        } else if (!is_control && length > 0) {
            out += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        } else {
            out += "\\x";
            out += kHexDigits[c >> 4];
            out += kHexDigits[c & 15];
        }
        text.remove_prefix(1);
    }
}

void AppendNumber(std::string& out, uint64_t number) {
    AppendPadded(out, number, 0);
}

void AppendPadded(std::string& out, uint64_t number, size_t width) {
    char digits[20];
    size_t first = sizeof digits;
    do {
        digits[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    const size_t length = sizeof digits - first;
    if (length < width)
        out.append(width - length, ' ');
    out.append(digits + first, length);
}

void AppendHex8(std::string& out, uint32_t number) {
    char digits[8];
    for (int i = 7; i >= 0; --i) {
        digits[i] = kHexDigits[number & 15];
        number >>= 4;
    }
    out.append(digits, sizeof digits);
}

void AppendTime(std::string& out, const timespec& time, int32_t utc_offset, TimeForm form) {
    constexpr int64_t kDay = 86400;
    const int64_t local = static_cast<int64_t>(time.tv_sec) + utc_offset;
    const int64_t day = local >= 0 ? local / kDay : (local - kDay + 1) / kDay;
    const auto second = static_cast<unsigned>(local - day * kDay);
    const Date date = DateOfDay(day);
    char text[] = "0000-00-00 00:00:00.000000+00:00";
    AppendDigits(text, static_cast<unsigned>(date.year), 4);
    AppendDigits(text + 5, date.month, 2);
    AppendDigits(text + 8, date.day, 2);
    AppendDigits(text + 11, second / 3600, 2);
    AppendDigits(text + 14, second / 60 % 60, 2);
    AppendDigits(text + 17, second % 60, 2);
    AppendDigits(text + 20, static_cast<unsigned>(time.tv_nsec / 1000), 6);
    if (form == TimeForm::kHuman) {
        out.append(text, 26);
        return;
    }
    text[10] = 'T';
    const auto minutes = static_cast<unsigned>((utc_offset < 0 ? -utc_offset : utc_offset) / 60);
    text[26] = utc_offset < 0 ? '-' : '+';
    AppendDigits(text + 27, minutes / 60, 2);
    AppendDigits(text + 30, minutes % 60, 2);
    out.append(text, 32);
}

std::string NowRfc3339() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm local = {};
    localtime_r(&now.tv_sec, &local);
    std::string text;
    AppendTime(text, now, static_cast<int32_t>(local.tm_gmtoff), TimeForm::kRfc3339);
    return text;
}

size_t TerminalWidth(int fd) {
    winsize size = {};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : SIZE_MAX;
}

std::string Wrapped(const std::string& text, size_t width, size_t indent, size_t column) {
    std::istringstream words(text);
    std::string out;
    for (std::string word; words >> word;) {
        if (column > indent && column + 1 + word.size() > width) {
            out += '\n';
            out.append(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out += word;
        column += word.size();
    }
    return out + "\n";
}

std::string TableRow(const std::string& columns, const std::string& path, const std::string& note,
                     size_t width) {
    const std::string remark = note.empty() ? "" : "  (" + note + ")";
    const std::string line = columns + path + remark;
    if (line.size() <= width)
        return line + "\n";
    const size_t end = columns.find_last_not_of(' ') + 1;
    const std::string indent = path.size() + 2 <= width ? "  " : "";
    return columns.substr(0, end) + "\n" + indent + path + "\n" +
           (note.empty() ? "" : remark + "\n");
}

std::string HumanSize(uint64_t bytes) {
    if (bytes < 1024)
        return std::to_string(bytes);
    const char* unit = "KMGTPE";
    for (; bytes >= 1024 * 1024; bytes /= 1024)
        ++unit;
    const uint64_t tenths = bytes * 10 / 1024;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + *unit;
}

}  // namespace korx::tool
