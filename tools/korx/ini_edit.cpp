#include "ini_edit.h"

#include <algorithm>
#include <vector>

#include "ini_lines.h"

namespace korx::tool {
namespace {

// A header or a key, as the loader keeps it.
struct Entry {
    IniLine::Kind kind;
    std::string name;
    std::string value;
    bool operator==(const Entry&) const = default;
};
using Entries = std::vector<Entry>;

Entries EntriesOf(std::string_view text) {
    Entries entries;
    for (const IniLine& line : SplitLines(text))
        if (line.kind == IniLine::kSection || line.kind == IniLine::kKey)
            entries.push_back({line.kind, line.name, line.value});
    return entries;
}

// The first section of that name, from its header to the next one: that is where keys are searched.
template <typename Lines>
auto FindSection(Lines& lines, const std::string& name) {
    const auto is_header = [](const auto& line) { return line.kind == IniLine::kSection; };
    const auto header = std::find_if(lines.begin(), lines.end(), [&](const auto& line) {
        return is_header(line) && line.name == name;
    });
    const auto end =
        header == lines.end() ? header : std::find_if(header + 1, lines.end(), is_header);
    return std::pair(header, end);
}

auto IsKey(const std::string& name) {
    return [&name](const auto& line) { return line.kind == IniLine::kKey && line.name == name; };
}

Entries Changed(Entries entries, const IniChange& change, NewSection place) {
    const auto [header, end] = FindSection(entries, change.section);
    if (!change.value) {
        entries.erase(std::remove_if(header, end, IsKey(change.key)), end);
        return entries;
    }
    const Entry added{IniLine::kKey, change.key, *change.value};
    const auto key = std::find_if(header, end, IsKey(change.key));
    if (key != end)
        key->value = *change.value;
    else if (header != entries.end())
        entries.insert(header + 1, added);
    else
        entries.insert(place == NewSection::kAtTop ? entries.begin() : entries.end(),
                       {{IniLine::kSection, change.section, ""}, added});
    return entries;
}

// That of the file's first line, else a plain one.
std::string LineEnd(std::string_view text) {
    const size_t newline = text.find('\n');
    const bool has_return =
        newline != std::string_view::npos && newline > 0 && text[newline - 1] == '\r';
    return has_return ? "\r\n" : "\n";
}

std::string WithoutKey(std::string_view text, const IniChange& change) {
    std::string result(text);
    const std::vector<IniLine> lines = SplitLines(text);
    const auto [header, end] = FindSection(lines, change.section);
    for (auto line = end; line != header; --line)
        if (IsKey(change.key)(line[-1]))
            result.erase(line[-1].begin, line[-1].end - line[-1].begin);
    return result;
}

std::string WithValue(std::string_view text, const IniChange& change, NewSection place) {
    std::string result(text);
    const std::vector<IniLine> lines = SplitLines(text);
    const auto [header, section_end] = FindSection(lines, change.section);
    const auto key = std::find_if(header, section_end, IsKey(change.key));
    if (key != section_end)
        return result.replace(key->value_begin, key->value_end - key->value_begin,
                              (key->has_equals ? "" : "=") + *change.value);
    const std::string end = LineEnd(text);
    const std::string assignment = change.key + "=" + *change.value + end;
    if (header != lines.end()) {
        const bool is_ended = text[header->end - 1] == '\n';
        return result.insert(header->end, is_ended ? assignment : end + assignment);
    }
    const std::string section = change.section + end + assignment;
    if (result.empty())
        return section;
    if (place == NewSection::kAtTop)
        return section + end + result;
    return result + (result.back() == '\n' ? "" : end) + end + section;
}

// Text that the library does not read, so that its next save would not write it.
bool HidesText(std::string_view text, const IniLine& line) {
    constexpr std::string_view kNothing("\0\r\n", 3);
    const std::string_view piece = text.substr(line.begin, line.end - line.begin);
    const size_t nul = piece.find('\0');
    const bool is_behind_nul = nul != std::string_view::npos &&
                               piece.find_first_not_of(kNothing, nul) != std::string_view::npos;
    const std::string_view content = text.substr(line.begin, line.content_end - line.begin);
    const bool is_cut_key = line.kind == IniLine::kKey && !line.has_equals &&
                            content.size() - content.find_first_not_of(" \t") > line.name.size();
    return is_behind_nul || is_cut_key;
}

// Lines because of which the loader refuses the whole file. One more must not come; what is there
// may take more than one change to mend.
auto CountRefused(std::string_view text) {
    const std::vector<IniLine> lines = SplitLines(text);
    return std::count_if(lines.begin(), lines.end(),
                         [](const IniLine& line) { return line.is_refused; });
}

}  // namespace

std::optional<std::string> EditProfileText(std::string_view text, const IniChange& change,
                                           NewSection place) {
    std::string result = change.value ? WithValue(text, change, place) : WithoutKey(text, change);
    if (CountRefused(result) > CountRefused(text) ||
        EntriesOf(result) != Changed(EntriesOf(text), change, place))
        return std::nullopt;
    return result;
}

bool HasKey(std::string_view text, const std::string& section, const std::string& key) {
    const Entries entries = EntriesOf(text);
    const auto [header, end] = FindSection(entries, section);
    return std::find_if(header, end, IsKey(key)) != end;
}

std::optional<std::string> PlainProfileText(std::string_view text) {
    for (const IniLine& line : SplitLines(text))
        if (HidesText(text, line))
            return std::nullopt;
    const Entries entries = EntriesOf(text);
    std::string result;
    for (const Entry& entry : entries) {
        const bool is_section = entry.kind == IniLine::kSection;
        if (is_section && !result.empty())
            result += '\n';
        result += is_section ? entry.name + "\n" : entry.name + "=" + entry.value + "\n";
    }
    if (EntriesOf(result) != entries)
        return std::nullopt;
    return result;
}

}  // namespace korx::tool
