#include "ini_lines.h"

#include <string.h>

#include <algorithm>
#include <map>
#include <set>

namespace korx::tool {
namespace {

constexpr size_t kMaxRead = 399;  // bytes of one line that the loader reads at a time

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

size_t SkipBlanks(std::string_view text, size_t from, size_t end) {
    while (from < end && IsBlank(text[from]))
        ++from;
    return from;
}

size_t TrimEnd(std::string_view text, size_t begin, size_t end) {
    while (end > begin && IsBlank(text[end - 1]))
        --end;
    return end;
}

// Where a piece's content ends. A read is a C string to the loader: it ends at the first NUL. Of
// the line end it removes one CR LF, CR or LF, but from a text of one character nothing.
size_t ContentEnd(std::string_view text, size_t begin, size_t piece_end) {
    const size_t end = std::min(text.find('\0', begin), piece_end);
    const char first = begin < end ? text[begin] : '\0';
    if (first == '\0' || first == '\n' || first == '\r')
        return begin;
    const size_t length = end - begin;
    if (length > 1 && text[end - 1] == '\n')
        return end - (length > 2 && text[end - 2] == '\r' ? 2 : 1);
    return length > 1 && text[end - 1] == '\r' ? end - 1 : end;
}

// A line is split at its last '='.
void SplitKey(std::string_view text, size_t begin, IniLine* line) {
    const size_t end = line->content_end;
    const size_t split = text.substr(begin, end - begin).rfind('=');
    line->has_equals = split != std::string_view::npos;
    if (!line->has_equals) {
        line->name = text.substr(begin, std::min(end - begin, kIniMaxName));
        line->value_begin = line->value_end = end;
        return;
    }
    const size_t equals = begin + split;
    line->name = text.substr(begin, TrimEnd(text, begin, equals) - begin);
    line->value_begin = SkipBlanks(text, equals + 1, end);
    line->value_end = TrimEnd(text, line->value_begin, end);
    line->value = text.substr(line->value_begin, line->value_end - line->value_begin);
    line->is_refused = line->kind == IniLine::kKey &&
                       (line->name.size() > kIniMaxName || line->value.size() > kIniMaxValue);
}

// Fills in what the loader makes of a piece. in_section: whether a header came before.
void Interpret(std::string_view text, bool in_section, IniLine* line) {
    line->content_end = ContentEnd(text, line->begin, line->end);
    const size_t end = line->content_end;
    const size_t begin = SkipBlanks(text, line->begin, end);
    if (begin == end)
        return;
    if (text[begin] == ';' || text[begin] == '#') {
        line->kind = IniLine::kComment;
        return;
    }
    if (text[begin] == '[' && text[end - 1] == ']') {
        line->kind = IniLine::kSection;
        line->name = text.substr(begin, std::min(end - begin, kIniMaxName));
        return;
    }
    line->kind = in_section ? IniLine::kKey : IniLine::kIgnored;
    SplitKey(text, begin, line);
}

class Checker {
  public:
    explicit Checker(std::string_view text) : text_(text) {}

    std::vector<IniFinding> run() {
        for (const IniLine& line : SplitLines(text_)) {
            check_bytes(line);
            if (line.kind == IniLine::kSection)
                check_section(line);
            else if (line.kind == IniLine::kKey)
                check_key(line);
            else if (line.kind == IniLine::kIgnored)
                add(line, "key-before-section", "ignored",
                    "a key before the first section is ignored");
        }
        if (!has_section_)
            found_.push_back({0, "no-section", "refused",
                              "there is no section: every lookup fails as if the file were "
                              "unreadable"});
        return std::move(found_);
    }

  private:
    void add(const IniLine& line, const char* rule, const char* effect, std::string text) {
        found_.push_back({line.number, rule, effect, std::move(text)});
    }

    void check_bytes(const IniLine& line) {
        const std::string_view bytes = text_.substr(line.begin, line.end - line.begin);
        if (line.is_cut)
            add(line, "line-too-long", "reinterpreted",
                "more than 399 bytes: the rest is read as a line of its own");
        if (bytes.find('\0') != std::string_view::npos)
            add(line, "nul-byte", "cut", "what follows a NUL byte is not seen");
        if (line.number == 1 && !line.is_continuation && bytes.substr(0, 3) == "\xef\xbb\xbf")
            add(line, "byte-order-mark", "reinterpreted",
                "a byte order mark hides a section header behind it");
        const size_t length = line.content_end > line.begin ? line.content_end - line.begin : 0;
        if (bytes.substr(0, length).find('\r') != std::string_view::npos)
            add(line, "carriage-return", "reinterpreted",
                "a carriage return inside a line does not end it");
    }

    void check_section(const IniLine& line) {
        has_section_ = true;
        const size_t begin = SkipBlanks(text_, line.begin, line.content_end);
        if (line.content_end - begin > kIniMaxName)
            add(line, "section-too-long", "cut",
                "a section name has at most 64 characters with its brackets; it is cut and loses "
                "the closing one");
        else if (line.content_end - begin == kIniMaxName)
            add(line, "section-too-long", "ignored",
                "lookups refuse a section name of 64 characters");
        const auto [known, is_new] = sections_.emplace(line.name, line.number);
        searched_ = is_new;
        keys_.clear();
        if (!is_new)
            add(line, "duplicate-section", "ignored",
                line.name + " stands in line " + std::to_string(known->second) +
                    " already, and only that one is searched");
    }

    void check_key(const IniLine& line) {
        const size_t begin = SkipBlanks(text_, line.begin, line.content_end);
        if (text_[begin] == '[')
            add(line, "header-with-tail", "reinterpreted",
                "begins like a section header but has something behind the bracket, if only a "
                "blank: it is a key");
        check_lengths(line, begin);
        if (line.name.find('=') != std::string::npos)
            add(line, "equals-in-value", "reinterpreted",
                "a line is split at its last '=': the key is '" + line.name + "'");
        if (line.has_equals && line.name.empty())
            add(line, "empty-key", "reinterpreted", "there is no key before the '='");
        if (!line.has_equals && text_[begin] != '[')
            add(line, "no-equals", "reinterpreted",
                "without '=' the whole line is a key with an empty value");
        check_quotes(line);
        const auto [known, is_new] = keys_.emplace(line.name, line.number);
        if (searched_ && !is_new)
            add(line, "duplicate-key", "ignored",
                "'" + line.name + "' stands in line " + std::to_string(known->second) +
                    " already, and only that one is found");
    }

    void check_lengths(const IniLine& line, size_t begin) {
        if (line.has_equals && line.name.size() > kIniMaxName)
            add(line, "key-too-long", "refused",
                "a key has at most 64 characters: the whole file is refused");
        else if (!line.has_equals && line.content_end - begin > kIniMaxName)
            add(line, "key-too-long", "cut", "a key has at most 64 characters");
        else if (line.name.size() == kIniMaxName)
            add(line, "key-too-long", "ignored", "lookups refuse a key of 64 characters");
        if (line.value.size() > kIniMaxValue)
            add(line, "value-too-long", "refused",
                "a value has at most 256 characters: the whole file is refused");
        else if (line.value.size() == kIniMaxValue)
            add(line, "value-too-long", "cut", "lookups return at most 255 characters of a value");
    }

    void check_quotes(const IniLine& line) {
        if (line.value.empty() || line.value[0] != '"')
            return;
        const size_t end = line.value.find('"', 1);
        if (end == std::string::npos)
            add(line, "unclosed-quote", "refused",
                "a lookup of a value without its closing quote fails");
        else if (end + 1 != line.value.size())
            add(line, "text-behind-quote", "cut",
                "a lookup returns only what stands between the first two quotes");
    }

    std::string_view text_;
    std::vector<IniFinding> found_;
    std::map<std::string, size_t> sections_;
    std::map<std::string, size_t> keys_;
    bool has_section_ = false;
    bool searched_ = true;
};

}  // namespace

std::vector<IniLine> SplitLines(std::string_view text) {
    std::vector<IniLine> lines;
    bool in_section = false;
    size_t number = 1;
    bool is_continuation = false;
    for (size_t at = 0; at < text.size();) {
        IniLine line;
        line.number = number;
        line.begin = at;
        const size_t newline = text.find('\n', at);
        const size_t line_end = newline == std::string_view::npos ? text.size() : newline + 1;
        line.end = std::min(line_end, at + kMaxRead);
        line.is_continuation = is_continuation;
        line.is_cut = line.end < line_end;
        Interpret(text, in_section, &line);
        in_section |= line.kind == IniLine::kSection;
        is_continuation = line.is_cut;
        number += line.is_cut ? 0 : 1;
        at = line.end;
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<IniFinding> CheckProfile(std::string_view text) {
    return Checker(text).run();
}

}  // namespace korx::tool
