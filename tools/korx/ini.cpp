#include "ini.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "ini_edit.h"
#include "ini_lines.h"
#include "ini_save.h"
#include "json.h"
#include "output.h"
#include "profile.h"

namespace korx::tool {
namespace {

// The loader gives null for a file without sections and for one that it refuses.
Profile Load(const std::string& file) {
    Profile profile = LoadProfile(file);
    if (profile)
        return profile;
    for (const IniLine& line : SplitLines(ProfileText(file)))
        if (line.is_refused)
            throw Failure{kInput, file + ":" + std::to_string(line.number) +
                                      ": key or value is too long: the whole file is refused"};
    return profile;
}

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

size_t CountLost(const std::string& text) {
    const std::vector<IniLine> lines = SplitLines(text);
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [](const IniLine& line) {
        return line.kind == IniLine::kComment || line.kind == IniLine::kIgnored;
    }));
}

void SetByLibrary(const std::string& file, const IniOptions& options, const std::string& section) {
    constexpr size_t kMaxFile = 126;
    if (file.size() > kMaxFile)
        throw Failure{kUsage, file +
                                  ": a profile that is changed has at most 126 characters in its "
                                  "name"};
    const size_t lost = CountLost(ProfileText(file));
    if (lost > 0)
        Complain(file + ": " + std::to_string(lost) +
                 " comments or ignored lines do not survive (--keep-comments keeps them; the old "
                 "file is " +
                 file + "-)");
    const auto set = options.existing ? KORX_IniSetValue : KORX_IniSetOrAddValue;
    errno = 0;
    const uint32_t result =
        set(file.c_str(), section.c_str(), options.key.c_str(), options.value.c_str());
    if (result == 0)
        return;
    const int error = errno;
    throw Failure{kUnchanged, file + ": not changed (" + std::to_string(result) +
                                  (error != 0 ? std::string(", ") + strerror(error) : "") +
                                  "); the system log says more"};
}

void SetInPlace(const std::string& file, const IniOptions& options, const std::string& section) {
    RewriteProfile(file, [&](const std::string& text) {
        for (const IniLine& line : SplitLines(text))
            if (line.is_refused)
                throw Failure{kUnchanged, file + ":" + std::to_string(line.number) +
                                              ": key or value is too long, so the file cannot be "
                                              "loaded (korx ini check says more)"};
        std::string edited = EditProfileText(text, section, options.key, options.value);
        for (const IniLine& line : SplitLines(edited))
            if (line.is_refused ||
                (line.is_cut && line.kind == IniLine::kKey && line.name == options.key))
                throw Failure{kUnchanged,
                              file + ": the line would become longer than the loader reads"};
        return edited;
    });
}

std::string Join(const IniFinding& finding) {
    return finding.line == 0 ? finding.text : std::to_string(finding.line) + ": " + finding.text;
}

}  // namespace

int RunIniGet(const Globals& globals, const IniOptions& options) {
    const std::string section = Bracketed(options.section);
    const Profile profile = Load(options.file);
    const KORX_IniKey* const key = FindKey(profile.get(), section, options.key);
    if (key == nullptr) {
        Complain(options.file + ": no key '" + options.key + "' in section " + section);
        return kFinding;
    }
    const auto value = options.raw ? std::optional<std::string>(key->acValue) : LookupValue(*key);
    if (!value) {
        Complain(options.file + ": the value of '" + options.key +
                 "' has no closing quote (--raw prints it)");
        return kFinding;
    }
    Output out;
    out.write(globals.json
                  ? JsonLine({{"section", section}, {"key", options.key}, {"value", *value}})
                  : *value + "\n");
    out.flush();
    return kWell;
}

int RunIniSet(const Globals&, const IniOptions& options) {
    const std::string file = WithDirectory(options.file);
    const std::string section = Bracketed(options.section);
    const std::string why = WhyNotStored(section, options.key, options.value);
    if (!why.empty())
        throw Failure{kUsage, why};
    if (access(file.c_str(), R_OK | W_OK) < 0)
        throw Failure{kInput, SystemError(file, errno)};
    const Profile before = Load(file);
    const bool exists = FindKey(before.get(), section, options.key) != nullptr;
    if (options.existing && !exists) {
        Complain(file + ": no key '" + options.key + "' in section " + section);
        return kFinding;
    }
    if (options.keep_comments)
        SetInPlace(file, options, section);
    else
        SetByLibrary(file, options, section);
    return kWell;
}

int RunIniList(const Globals& globals, const IniOptions& options) {
    const Profile profile = Load(options.file);
    const std::string wanted = options.section.empty() ? "" : Bracketed(options.section);
    Output out;
    bool found = false;
    for (const auto* section = profile.get(); section != nullptr; section = section->pstNext) {
        if (!wanted.empty() && wanted != section->acName)
            continue;
        found = true;
        if (!globals.json)
            out.write(std::string(section->acName) + "\n");
        for (const auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            out.write(globals.json ? JsonLine({{"section", section->acName},
                                               {"key", key->acKey},
                                               {"value", key->acValue}})
                                   : std::string(key->acKey) + "=" + key->acValue + "\n");
    }
    out.flush();
    if (found || wanted.empty())
        return kWell;
    Complain(options.file + ": no section " + wanted);
    return kFinding;
}

int RunIniCheck(const Globals& globals, const IniOptions& options) {
    const std::string text = ProfileText(options.file);
    const std::vector<IniFinding> findings = CheckProfile(text);
    Output out;
    for (const IniFinding& finding : findings) {
        if (globals.json)
            out.write(JsonLine({{"file", options.file},
                                {"line", finding.line},
                                {"rule", finding.rule},
                                {"effect", finding.effect},
                                {"text", finding.text}}));
        else
            out.write(options.file + ":" + Join(finding) + " [" + finding.rule + ", " +
                      finding.effect + "]\n");
    }
    if (findings.empty() && !globals.json)
        out.write(options.file + ": read as written\n");
    out.flush();
    return findings.empty() ? kWell : kFinding;
}

}  // namespace korx::tool
