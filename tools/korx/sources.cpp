#include "sources.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

void Add(std::vector<Source>* found, Source source) {
    for (Source& other : *found) {
        if (other.path == source.path)
            return;
        if (other.file == source.file)
            other.file = other.path, source.file = source.path;
    }
    found->push_back(std::move(source));
}

// All of standard input, for which the reader has the same limit as for files.
std::string ReadInput() {
    constexpr size_t kLimit = 64 << 20;
    std::string bytes;
    char buffer[1 << 16];
    ssize_t count;
    while ((count = read(STDIN_FILENO, buffer, sizeof buffer)) != 0) {
        if (count < 0 && errno != EINTR)
            throw Failure{kInput, SystemError("standard input", errno)};
        bytes.append(buffer, static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (bytes.size() > kLimit)
            throw Failure{kInput, "standard input: longer than any log"};
    }
    return bytes;
}

korx_reader_code Open(const Source& source, const korx_reader_options& options,
                      korx_reader** reader, korx_reader_error* error) {
    if (source.path != kStandardInput)
        return korx_reader_open(source.path.c_str(), source.kind, &options, reader, error);
    const std::string bytes = ReadInput();
    return korx_reader_open_memory(bytes.data(), bytes.size(), source.kind, &options, reader,
                                   error);
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

std::vector<Source> FindSources(const Globals& globals, const std::string& word) {
    const korx_log_kind kind = KindOfWord(word);
    if (kind == KORX_LOG_AUTO && word != kEveryKind) {
        if (word.find('/') == std::string::npos && !Exists(word))
            throw Failure{kUsage, "'" + word + "' is neither a file nor one of " + KindWords()};
        return {{KORX_LOG_AUTO, word, BaseName(word), Absence::kFails}};
    }
    std::vector<Source> found;
    for (Source& source : AllSources(globals))
        if (kind == KORX_LOG_AUTO || source.kind == kind)
            found.push_back(std::move(source));
    return found;
}

std::vector<Source> FindSources(const Globals& globals, const std::vector<std::string>& words) {
    std::vector<Source> found;
    for (const std::string& word : words) {
        if (word == kStandardInput)
            Add(&found, {KORX_LOG_AUTO, kStandardInput, "standard input", Absence::kFails});
        else
            for (Source& source : FindSources(globals, word))
                Add(&found, std::move(source));
    }
    return found;
}

void KeepProcess(std::vector<Source>* sources, const std::string& process) {
    const auto is_other = [&](const Source& source) {
        return source.absence == Absence::kAllowed &&
               strcasecmp(source.file.c_str(), (process + kProcessSuffix).c_str()) != 0;
    };
    sources->erase(std::remove_if(sources->begin(), sources->end(), is_other), sources->end());
    if (!sources->empty())
        return;
    std::string names;
    for (const char* name : kComponents)
        names += std::string(names.empty() ? "" : ", ") + name;
    throw Failure{kUsage, "--process: '" + process + "' is none of " + names};
}

bool HasKind(const std::vector<Source>& sources, korx_log_kind kind) {
    return std::any_of(sources.begin(), sources.end(), [&](const Source& source) {
        const korx_log_kind named =
            source.kind == KORX_LOG_AUTO ? korx_log_kind_of_name(source.path.c_str()) : source.kind;
        return named == kind || named == KORX_LOG_AUTO;
    });
}

Reader OpenReader(const Source& source, uint32_t flags) {
    korx_reader_options options = {};
    options.flags = flags;
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    const korx_reader_code code = Open(source, options, &reader, &error);
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
