#include "sources.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "format/kinds.h"
#include "paths.h"

namespace korx::tool {
namespace {

// KORX_LOG_AUTO for a word that names none.
korx_log_kind KindOfWord(const std::string& word) {
    for (const LogKind& kind : kKinds)
        if (kind.kind != KORX_LOG_AUTO && word == kind.name)
            return kind.kind;
    return KORX_LOG_AUTO;
}

std::string BaseName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool Exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

}  // namespace

std::string KindWords() {
    std::string words;
    for (const LogKind& kind : kKinds)
        if (kind.kind != KORX_LOG_AUTO)
            words += std::string(kind.name) + ", ";
    return words + kEveryKind;
}

std::vector<Source> AllSources(const Globals& globals) {
    const std::string directory =
        globals.directory.empty() ? ResolvePaths().log.path : globals.directory;
    struct stat st;
    if (stat(directory.c_str(), &st) < 0)
        throw Failure{kInput, "log directory " + SystemError(directory, errno)};
    if (!S_ISDIR(st.st_mode))
        throw Failure{kInput, "log directory " + directory + ": not a directory"};
    std::vector<Source> sources;
    for (const LogKind& kind : kKinds) {
        for (const char* name : kind.files) {
            const std::string file = std::string(name) + kind.suffix;
            sources.push_back({kind.kind, directory + "/" + file, file, Absence::kAllowed});
        }
    }
    return sources;
}

std::vector<Source> FindSources(const Globals& globals, const std::string& word,
                                const std::string& process) {
    const korx_log_kind kind = KindOfWord(word);
    if (kind == KORX_LOG_AUTO && word != kEveryKind) {
        if (word.find('/') == std::string::npos && !Exists(word))
            throw Failure{kUsage, "'" + word + "' is neither a file nor one of " + KindWords()};
        return {{KORX_LOG_AUTO, word, BaseName(word), Absence::kFails}};
    }
    std::vector<Source> found;
    for (Source& source : AllSources(globals)) {
        if (kind != KORX_LOG_AUTO && source.kind != kind)
            continue;
        if (!process.empty() && source.file != process + kProcessSuffix)
            continue;
        found.push_back(std::move(source));
    }
    if (found.empty())
        throw Failure{kUsage, "no process is called '" + process + "' in " + word + " logs"};
    return found;
}

Reader OpenReader(const Source& source, uint32_t flags) {
    korx_reader_options options = {};
    options.flags = flags;
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    const korx_reader_code code =
        korx_reader_open(source.path.c_str(), source.kind, &options, &reader, &error);
    if (code == KORX_READER_OPEN && error.system_error == ENOENT &&
        source.absence == Absence::kAllowed)
        return nullptr;
    if (code != KORX_READER_OK)
        throw Failure{kInput, error.text,
                      code == KORX_READER_LOCKED ? Trouble::kBusy : Trouble::kLasting};
    return Reader(reader);
}

std::vector<std::string> DoubtsIn(uint32_t doubts) {
    constexpr struct {
        uint32_t bit;
        const char* text;
    } kDoubts[] = {
        {KORX_DOUBT_LAP, "cannot tell a full lap of unread records from an empty one"},
        {KORX_DOUBT_CURSOR, "the cursor does not belong to this head and is not followed"},
        {KORX_DOUBT_CURSOR_FORBIDDEN, "the cursor may not be read by this user"},
    };
    std::vector<std::string> texts;
    for (const auto& doubt : kDoubts)
        if ((doubts & doubt.bit) != 0)
            texts.emplace_back(doubt.text);
    return texts;
}

korx_reader_info InfoOf(const korx_reader* reader) {
    korx_reader_info info = {};
    korx_reader_get_info(reader, &info);
    return info;
}

HeadState StateOfHead(const korx_reader* reader, std::string* text) {
    HeadState state = HeadState::kSound;
    korx_damage damage;
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) != 0; ++i) {
        const bool is_head = damage.rule == KORX_DAMAGE_HEAD_SHORT ||
                             damage.rule == KORX_DAMAGE_HEAD_LENGTH ||
                             damage.rule == KORX_DAMAGE_HEAD_ORDER;
        if (!is_head && damage.rule != KORX_DAMAGE_DUMP_POSITION)
            continue;
        *text = "offset " + std::to_string(damage.offset) + ": " + damage.text;
        state = is_head ? HeadState::kDamaged : HeadState::kPositionDamaged;
        if (is_head)
            break;
    }
    return state;
}

std::string RepairCommand(const Source& source) {
    return "korx log repair " + source.path;
}

}  // namespace korx::tool
