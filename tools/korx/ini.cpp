#include "ini.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "ini_lines.h"
#include "ini_save.h"
#include "json.h"
#include "output.h"
#include "profile.h"

namespace korx::tool {
namespace {

// No such file, as opposed to one that cannot be read.
bool IsMissing(const std::string& file) {
    return access(file.c_str(), F_OK) < 0 && errno == ENOENT;
}

// What lookups find of a profile: of duplicates, only the first.
template <typename Use>
void ForEachFound(const KORX_IniSection* profile, Use use) {
    for (const auto* section = profile; section != nullptr; section = section->pstNext)
        for (const auto* key = section->pstFirstKey; key != nullptr; key = key->pstNext)
            if (FindKey(profile, section->acName, key->acKey) == key)
                use(section->acName, *key);
}

// One key of two profiles; null where it is not.
std::string Difference(const Globals& globals, const char* section, const KORX_IniKey* before,
                       const KORX_IniKey* now) {
    if (globals.json) {
        nlohmann::ordered_json object = {{"section", section},
                                         {"key", (before == nullptr ? now : before)->acKey}};
        if (before != nullptr)
            object["old"] = before->acValue;
        if (now != nullptr)
            object["new"] = now->acValue;
        return JsonLine(object);
    }
    const auto line = [&](const char* sign, const KORX_IniKey* key) {
        return key == nullptr
                   ? std::string()
                   : std::string(sign) + section + " " + key->acKey + "=" + key->acValue + "\n";
    };
    return line("-", before) + line("+", now);
}

std::string Join(const IniFinding& finding) {
    return finding.line == 0 ? finding.text : std::to_string(finding.line) + ": " + finding.text;
}

}  // namespace

int RunIniGet(const Globals& globals, const IniOptions& options) {
    const std::string section = Bracketed(options.section);
    const auto print = [&](const std::string& value) {
        Output out;
        out.write(globals.json
                      ? JsonLine({{"section", section}, {"key", options.key}, {"value", value}})
                      : value + "\n");
        out.flush();
        return kWell;
    };
    if (options.fallback && IsMissing(options.file))
        return print(*options.fallback);
    const Profile profile = LoadWholeProfile(options.file);
    const KORX_IniKey* const key = FindKey(profile.get(), section, options.key);
    if (key == nullptr && options.fallback)
        return print(*options.fallback);
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
    return print(*value);
}

int RunIniList(const Globals& globals, const IniOptions& options) {
    const Profile profile = LoadWholeProfile(options.file);
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

int RunIniDiff(const Globals& globals, const IniOptions& options) {
    const bool is_backup = options.other.empty();
    const std::string old_file = is_backup ? ResolvedProfile(options.file) + "-" : options.file;
    const Profile before = LoadWholeProfile(old_file);
    const Profile now = LoadWholeProfile(is_backup ? options.file : options.other);
    std::string differences;
    ForEachFound(before.get(), [&](const char* section, const KORX_IniKey& key) {
        const KORX_IniKey* const other = FindKey(now.get(), section, key.acKey);
        if (other == nullptr || strcmp(other->acValue, key.acValue) != 0)
            differences += Difference(globals, section, &key, other);
    });
    ForEachFound(now.get(), [&](const char* section, const KORX_IniKey& key) {
        if (FindKey(before.get(), section, key.acKey) == nullptr)
            differences += Difference(globals, section, nullptr, &key);
    });
    Output out;
    out.write(differences);
    out.flush();
    return differences.empty() ? kWell : kFinding;
}

}  // namespace korx::tool
