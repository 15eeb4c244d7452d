// What must be true of the logs at any moment, and of what was taken from them.
#include <algorithm>
#include <filesystem>
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
    // Of a text log whose lap has ended: its last text and where that begins, and the tickets
    // between which the lap has ended.
    std::string last_old;
    uint64_t last_old_at;
    uint32_t old_begun, new_ended;
};

bool IsForeign(std::string_view message) {
    return message.starts_with("New log will wrap undumped log") || message.starts_with("****");
}

void NoteLap(const korx_record& record, const Call* call, Window* window) {
    const bool is_old = (record.flags & KORX_RECORD_OLD_LAP) != 0;
    if (is_old) {
        window->last_old.assign(record.text, record.length);
        window->last_old_at = record.offset;
    }
    if (call != nullptr && is_old)
        window->old_begun = std::max<uint32_t>(window->old_begun, call->begun);
    else if (call != nullptr && call->ended != 0)
        window->new_ended = std::min<uint32_t>(window->new_ended, call->ended);
}

void JudgeRecord(const korx_record& record, Window* window) {
    const std::string_view message(record.message == nullptr ? "" : record.message,
                                   record.message_length);
    const bool is_whole = (record.flags & KORX_RECORD_DAMAGED) == 0 && !IsForeign(message);
    Name name;
    const bool is_known = is_whole && ParseMessage(message, &name) && name.log == window->log;
    NoteLap(record, is_known ? &name.call() : nullptr, window);
    if (is_known)
        window->records.push_back(name);
    else if (is_whole)
        Complain("%s: torn: %.*s", window->path.c_str(), int(message.size()), message.data());
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
    while (korx_reader_next(reader, &record) == 1)
        JudgeRecord(record, window);
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

// What a text log has lost where its lap ended. The lap ends once the count of bytes exceeds the
// limit, but the file is cut to the limit with the head that the count leaves out: so the last
// record goes beyond, and where the one before it ends in the head's length beyond, all of it.
class Cut {
  public:
    explicit Cut(const Window& window) : window_(window) {
        if (window.log != kText || window.last_old.empty())
            return;
        const size_t at = window.last_old.find('<');
        unsigned log = 0;
        char colon[2];
        is_named_ = at != std::string::npos && sscanf(&window.last_old[at], "<%u.%u.%u%1[:]", &log,
                                                      &name_.writer, &name_.number, colon) == 4;
        const size_t whole = window.last_old_at + at + MessageOf(name_).size() + 1;
        others_ = !is_named_ || (whole >= kRingLimit && whole <= kRingLimit + kHead);
    }

    bool took(const Name& name) {
        if (is_named_ && name.writer == name_.writer && name.number == name_.number)
            return true;
        const bool stood_there =
            name.call().ended > window_.old_begun && name.call().begun < window_.new_ended;
        return stood_there && others_ != 0 && others_-- != 0;
    }

  private:
    static constexpr size_t kHead = 4;
    const Window& window_;
    bool is_named_ = false;
    Name name_{kText, 0, 0};  // of what stands last there, whole or cut
    unsigned others_ = 0;
};

// All whose calls lie between the oldest record's and the opening are there, unless somebody has
// taken the file away since.
void JudgeCompleteness(const Window& window) {
    uint32_t oldest = UINT32_MAX;
    std::set<std::pair<unsigned, unsigned>> found;
    for (const Name& name : window.records) {
        found.emplace(name.writer, name.number);
        if (const uint32_t ended = name.call().ended; ended != 0)
            oldest = std::min(oldest, ended);
    }
    const uint32_t since = std::max<uint32_t>(oldest, g_shared->disturbed);
    Cut cut(window);
    for (unsigned writer = 0; writer < kWriters; ++writer) {
        const unsigned drawn = std::min<unsigned>(g_shared->drawn[window.log][writer], kMostCalls);
        for (unsigned number = 0; number < drawn; ++number) {
            const Name name{window.log, writer, number};
            if (name.call().was_accepted(since, window.opened) &&
                !found.contains({writer, number}) && !cut.took(name))
                Complain("%s: record %u of writer %u is missing", window.path.c_str(), number,
                         writer);
        }
    }
}

void JudgeWindow(unsigned log) {
    Window window{log, std::string("../log/") + FileOf(log), 0, {}, "", 0, 0, UINT32_MAX};
    if (!ReadWindow(&window))
        return;
    const unsigned errors = g_shared->errors;
    JudgeOrder(window);
    JudgeCompleteness(window);
    std::error_code ignored;
    if (g_shared->errors != errors)
        std::filesystem::copy_file(window.path,
                                   std::string(g_shared->kept) + "/wrong-" + FileOf(log),
                                   std::filesystem::copy_options::overwrite_existing, ignored);
}

std::string_view Between(std::string_view text, std::string_view begin, std::string_view end) {
    const size_t at = text.find(begin);
    if (at == text.npos)
        return "";
    const size_t start = at + begin.size();
    return text.substr(start, text.find(end, start) - start);
}

using Taken = std::map<std::pair<unsigned, unsigned>, std::vector<std::string>>;

// A line without its end is one that the command was killed in; its ids begin with the board. Where
// it says that records are missing they are counted below.
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
            else if (g_shared->round != Round::kKills && line.find("\"gap\":true") == line.npos)
                Complain("%s: torn: %s", file, line.c_str());
        }
    }
}

// Returns 1 when the record is lost.
unsigned JudgeTakenRecord(const Name& name, const std::vector<std::string>& ids) {
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
    for (const unsigned log : {kText, kDiag, kSecurity, kLife})
        JudgeWindow(log);
    JudgePlaces();
}

void JudgeTaken() {
    constexpr unsigned kMostInLap = kRingLimit / 300;
    Taken taken[kLogs];
    ReadTaken(taken);
    for (const unsigned log : {kSecurity, kLife}) {
        unsigned lost = 0;
        for (unsigned writer = 0; writer < kWriters; ++writer)
            for (unsigned number = 0; number < g_shared->drawn[log][writer]; ++number)
                lost += JudgeTakenRecord({log, writer, number}, taken[log][{writer, number}]);
        if (lost > g_shared->hidden_laps[log] * kMostInLap)
            Complain("%s: %u records were overwritten before they were taken, in %u hidden laps",
                     FileOf(log), lost, g_shared->hidden_laps[log].load());
    }
}

}  // namespace soak
