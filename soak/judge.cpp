// What must be true of the logs at any moment, and of what was taken from them.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "korx/reader.h"
#include "tickets.h"

namespace soak {
namespace {

struct Window {
    unsigned log;
    std::string path;
    uint32_t opened;  // ticket
    std::vector<Name> records;
    unsigned damaged;
};

bool IsForeign(std::string_view message) {
    return message.starts_with("New log will wrap undumped log") || message.starts_with("****");
}

// The records as a reader sees them. In a calm round there is no damage.
bool ReadWindow(Window* window) {
    korx_reader* reader = nullptr;
    window->opened = ++g_shared->tickets;
    if (korx_reader_open(window->path.c_str(), KORX_LOG_AUTO, nullptr, &reader, nullptr) !=
        KORX_READER_OK)
        return false;
    korx_damage damage;
    if (g_shared->round == Round::kCalm && korx_reader_get_damage(reader, 0, &damage) == 1 &&
        damage.rule != KORX_DAMAGE_CUT)
        Complain("%s: offset %llu: %s", window->path.c_str(),
                 static_cast<unsigned long long>(damage.offset), damage.text);
    korx_record record;
    while (korx_reader_next(reader, &record) == 1) {
        const std::string_view message(record.message == nullptr ? "" : record.message,
                                       record.message_length);
        Name name;
        const bool is_damaged = (record.flags & KORX_RECORD_DAMAGED) != 0;
        window->damaged += is_damaged;
        if (is_damaged || IsForeign(message))
            continue;
        if (ParseMessage(message, &name) && name.log == window->log)
            window->records.push_back(name);
        else
            Complain("%s: torn: %.*s", window->path.c_str(), int(message.size()), message.data());
    }
    korx_reader_close(reader);
    return true;
}

void JudgeOrder(const Window& window) {
    uint32_t newest_begin = 0;
    std::set<std::pair<unsigned, unsigned>> seen;
    for (const Name& name : window.records) {
        const uint32_t ended = name.call().ended;
        if (!seen.emplace(name.writer, name.number).second)
            Complain("%s: record %u of writer %u stands there twice", window.path.c_str(),
                     name.number, name.writer);
        if (ended != 0 && ended < newest_begin)
            Complain("%s: record %u of writer %u stands behind a later one", window.path.c_str(),
                     name.number, name.writer);
        newest_begin = std::max<uint32_t>(newest_begin, name.call().begun);
    }
}

// All whose calls lie between the oldest record's and the opening are there, unless somebody has
// taken the file away since. A text log is cut off at its limit, and with it the record there.
void JudgeCompleteness(const Window& window, const std::set<unsigned>& writers) {
    const auto oldest =
        std::find_if(window.records.begin(), window.records.end(),
                     [](const Name& name) { return name.call().ended.load() != 0; });
    if (oldest == window.records.end())
        return;
    const uint32_t since = std::max<uint32_t>(oldest->call().ended, g_shared->disturbed);
    unsigned cut = window.log == kText ? std::max(window.damaged, 1u) : 0;
    std::set<std::pair<unsigned, unsigned>> found;
    for (const Name& name : window.records)
        found.emplace(name.writer, name.number);
    for (const unsigned writer : writers) {
        const unsigned drawn = std::min<unsigned>(g_shared->drawn[window.log][writer], kMostCalls);
        for (unsigned number = 0; number < drawn; ++number) {
            const Name name{window.log, writer, number};
            const Call& call = name.call();
            if (call.outcome == Outcome::kAccepted && call.begun > since && call.ended != 0 &&
                call.ended < window.opened && !found.contains({writer, number}) && cut-- == 0)
                Complain("%s: record %u of writer %u is missing", window.path.c_str(), number,
                         writer);
        }
    }
}

void JudgeWindow(unsigned log, const std::string& file, const std::set<unsigned>& writers) {
    Window window{log, "../log/" + file, 0, {}, 0};
    if (!ReadWindow(&window))
        return;
    std::erase_if(window.records, [&](const Name& name) { return !writers.contains(name.writer); });
    JudgeOrder(window);
    JudgeCompleteness(window, writers);
}

std::set<unsigned> WritersOf(unsigned process, unsigned section) {
    std::set<unsigned> writers;
    for (unsigned writer = 0; writer < kWriters; ++writer)
        if ((process == kProcesses || writer / kSlots == process) &&
            (section == kThreads || writer % kSlots % kThreads == section))
            writers.insert(writer);
    return writers;
}

std::string_view Between(std::string_view text, std::string_view begin, std::string_view end) {
    const size_t at = text.find(begin);
    if (at == text.npos)
        return "";
    const size_t start = at + begin.size();
    return text.substr(start, text.find(end, start) - start);
}

using Taken = std::map<std::pair<unsigned, unsigned>, std::vector<std::string>>;

// A line without its end is one that the command was killed in; its ids begin with the board.
void ReadTaken(Taken (&taken)[kLogs]) {
    for (const char* file : {"taken.reader", "taken.command"}) {
        std::ifstream lines(file);
        for (std::string line; std::getline(lines, line);) {
            const bool is_json = line.starts_with('{');
            const auto message =
                is_json ? Between(line, "\"message\":\"", "\"") : Between(line, " ", "\n");
            const auto id = is_json ? Between(line, "\"id\":\"", "\"") : Between(line, "", " ");
            Name name;
            if (ParseMessage(message, &name) && !id.empty())
                taken[name.log][{name.writer, name.number}].emplace_back(
                    id.substr(id.find(name.log == kSecurity ? "security:" : "life:")));
            else if (g_shared->round != Round::kKills)
                Complain("%s: torn: %s", file, line.c_str());
        }
    }
}

// Returns 1 when the record is lost.
unsigned JudgeRecord(const Name& name, const std::vector<std::string>& ids) {
    const Call& call = name.call();
    const bool may_repeat = g_shared->round == Round::kKills;
    if (ids.size() > 1 && (!may_repeat || std::set(ids.begin(), ids.end()).size() > 1))
        Complain("record %u of writer %u in log %u was taken %zu times, first as %s and %s",
                 name.number, name.writer, name.log, ids.size(), ids[0].c_str(), ids[1].c_str());
    if (call.outcome == Outcome::kRefused && !ids.empty())
        Complain("record %u of writer %u in log %u was refused and taken", name.number, name.writer,
                 name.log);
    return call.outcome == Outcome::kAccepted && call.begun > g_shared->disturbed && ids.empty();
}

}  // namespace

void JudgeWindows() {
    const std::set<unsigned> all = WritersOf(kProcesses, kThreads);
    for (const unsigned log : {kText, kDiag, kSecurity, kLife})
        JudgeWindow(log, FileOf(log), all);
    for (unsigned section = 0; section < kThreads; ++section)
        JudgeWindow(kStart, FileOf(kStart), WritersOf(kProcesses, section));
    // A process that was started anew goes on at the end of its log, wherever it was.
    for (unsigned process = 0;
         process < std::size(kProcessNames) && g_shared->round != Round::kKills; ++process)
        JudgeWindow(kProcess, std::string(kProcessNames[process]) + ".log",
                    WritersOf(process, kThreads));
}

void JudgeTaken() {
    constexpr unsigned kMostInLap = kRingLimit / 300;
    Taken taken[kLogs];
    ReadTaken(taken);
    for (const unsigned log : {kSecurity, kLife}) {
        unsigned lost = 0;
        for (unsigned writer = 0; writer < kWriters; ++writer)
            for (unsigned number = 0; number < g_shared->drawn[log][writer]; ++number)
                lost += JudgeRecord({log, writer, number}, taken[log][{writer, number}]);
        if (lost > g_shared->hidden_laps[log] * kMostInLap)
            Complain("%s: %u records were overwritten before they were taken", FileOf(log), lost);
    }
}

}  // namespace soak
