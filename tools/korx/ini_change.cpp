// The commands that change a profile: korx ini set, unset and revert.
#include <string.h>

#include <algorithm>

#include "ini.h"
#include "ini_edit.h"
#include "ini_lines.h"
#include "ini_save.h"
#include "profile.h"

namespace korx::tool {
namespace {

bool EndsBlank(const std::string& text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    return !text.empty() && (blank(text.front()) || blank(text.back()));
}

// What the library would write but not read back as it was.
std::string WhyNotStored(const std::string& section, const std::string& key,
                         const std::string& value) {
    const std::string_view kLineEnds("\r\n\0", 3);
    for (const std::string* text : {&section, &key, &value})
        if (text->find_first_of(kLineEnds) != std::string::npos)
            return "a line end cannot be stored";
    if (section.size() >= kIniMaxName)
        return "a section name has at most 63 characters with its brackets";
    if (key.empty() || key.size() >= kIniMaxName)
        return "a key has 1 to 63 characters";
    if (value.size() >= kIniMaxValue)
        return "a value has at most 255 characters";
    if (strchr(";#[", key[0]) != nullptr)
        return "a key cannot begin with ';', '#' or '['";
    if (EndsBlank(key) || EndsBlank(value))
        return "blanks at the ends are lost when the profile is read; put a value in quotes";
    if (value.find('=') != std::string::npos)
        return "a value cannot hold '=': a line is split at its last one";
    if (!value.empty() && value[0] == '"' && value.find('"', 1) != value.size() - 1)
        return "a value that begins with a quote must end with the next one";
    return "";
}

bool HasEquals(const std::string& word) {
    return word.find('=') != std::string::npos;
}

// One KEY VALUE, or any number of KEY=VALUE with the sections of the later ones between them.
std::vector<IniChange> WantedChanges(const IniOptions& options) {
    const bool is_one_pair = options.value && options.more.empty() &&
                             !(HasEquals(options.key) && HasEquals(*options.value));
    std::string section = Bracketed(options.section);
    if (is_one_pair)
        return {{section, options.key, options.value}};
    std::vector<std::string> words{options.key};
    if (options.value)
        words.push_back(*options.value);
    words.insert(words.end(), options.more.begin(), options.more.end());
    std::vector<IniChange> changes;
    bool has_pair = false;
    const auto end_section = [&] {
        if (!has_pair)
            throw Failure{kUsage, "section " + section + ": give KEY VALUE, or KEY=VALUE ..."};
        has_pair = false;
    };
    for (const std::string& word : words) {
        const size_t split = word.find('=');
        if (split == std::string::npos) {
            end_section();
            section = Bracketed(word);
            continue;
        }
        changes.push_back({section, word.substr(0, split), word.substr(split + 1)});
        has_pair = true;
    }
    end_section();
    return changes;
}

[[noreturn]] void ThrowNoKey(const std::string& file, const IniChange& change) {
    throw Failure{kFinding, file + ": no key '" + change.key + "' in section " + change.section};
}

// All of the changes in the text, or a Failure.
std::string Edited(const std::string& file, std::string text, const std::vector<IniChange>& changes,
                   NewSection place) {
    for (const IniChange& change : changes) {
        const auto edited = EditProfileText(text, change, place);
        if (!edited)
            throw Failure{kUnchanged, file + ": changing '" + change.key +
                                          "' would change another line (korx ini check says more)"};
        text = *edited;
    }
    return text;
}

size_t CountLost(const std::string& text) {
    const std::vector<IniLine> lines = SplitLines(text);
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [](const IniLine& line) {
        return line.kind == IniLine::kComment || line.kind == IniLine::kIgnored;
    }));
}

std::string Plain(const std::string& file, const std::string& text) {
    const auto plain = PlainProfileText(text);
    if (!plain)
        throw Failure{kUnchanged, file +
                                      ": a line would be cut or become another one (korx ini check "
                                      "says more; --keep-comments leaves it alone)"};
    return *plain;
}

}  // namespace

int RunIniSet(const Globals&, const IniOptions& options) {
    const std::vector<IniChange> changes = WantedChanges(options);
    for (const IniChange& change : changes) {
        const std::string why = WhyNotStored(change.section, change.key, *change.value);
        if (!why.empty())
            throw Failure{kUsage, why};
    }
    size_t lost = 0;
    RewriteProfile(options.file, [&](const std::string& text) {
        RefuseUnloadable(options.file, text);
        for (const IniChange& change : changes)
            if (options.existing && !HasKey(text, change.section, change.key))
                ThrowNoKey(options.file, change);
        if (options.keep_comments)
            return Edited(options.file, text, changes, NewSection::kAtEnd);
        lost = CountLost(text);
        return Edited(options.file, Plain(options.file, text), changes, NewSection::kAtTop);
    });
    if (lost > 0)
        Complain(options.file + ": " + std::to_string(lost) +
                 " comments or ignored lines did not survive (--keep-comments keeps them; korx ini "
                 "revert brings them back)");
    return kWell;
}

int RunIniUnset(const Globals&, const IniOptions& options) {
    std::vector<IniChange> changes{{Bracketed(options.section), options.key, std::nullopt}};
    for (const std::string& key : options.more)
        changes.push_back({changes[0].section, key, std::nullopt});
    RewriteProfile(options.file, [&](const std::string& text) {
        RefuseUnloadable(options.file, text);
        for (const IniChange& change : changes)
            if (!HasKey(text, change.section, change.key))
                ThrowNoKey(options.file, change);
        return Edited(options.file, text, changes, NewSection::kAtEnd);
    });
    return kWell;
}

int RunIniRevert(const Globals&, const IniOptions& options) {
    RevertProfile(options.file);
    return kWell;
}

}  // namespace korx::tool
