#include "ini_edit.h"

#include <vector>

#include "ini_lines.h"

namespace korx::tool {
namespace {

std::string LineEnd(std::string_view text, const IniLine& line) {
    const std::string_view bytes = text.substr(line.begin, line.end - line.begin);
    return bytes.size() >= 2 && bytes.substr(bytes.size() - 2) == "\r\n" ? "\r\n" : "\n";
}

}  // namespace

std::string EditProfileText(std::string_view text, const std::string& section,
                            const std::string& key, const std::string& value) {
    std::string result(text);
    const IniLine* header = nullptr;
    const std::vector<IniLine> lines = SplitLines(text);
    for (const IniLine& line : lines) {
        if (line.kind == IniLine::kSection) {
            if (header != nullptr)
                break;
            if (line.name == section)
                header = &line;
        } else if (header != nullptr && line.kind == IniLine::kKey && line.name == key) {
            const std::string written = line.has_equals ? value : "=" + value;
            return result.replace(line.value_begin, line.value_end - line.value_begin, written);
        }
    }
    const std::string assignment = key + "=" + value;
    if (header != nullptr) {
        const bool ended = text[header->end - 1] == '\n';
        const std::string end = LineEnd(text, *header);
        return result.insert(header->end, ended ? assignment + end : end + assignment + end);
    }
    const std::string end = lines.empty() ? "\n" : LineEnd(text, lines.front());
    if (!result.empty() && result.back() != '\n')
        result += end;
    if (!result.empty())
        result += end;
    return result += section + end + assignment + end;
}

}  // namespace korx::tool
