// korx doctor: one line for each thing looked at. It changes nothing.
#include "doctor.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "format/board.h"
#include "format/kinds.h"
#include "ini_lines.h"
#include "json.h"
#include "output.h"
#include "paths.h"
#include "profile.h"
#include "sources.h"
#include "space.h"
#include "text.h"

namespace korx::tool {
namespace {

// A note is worth knowing but nothing to do about; the last two make the board not well.
enum class Verdict { kOk, kNote, kWarning, kFault };

constexpr const char* kVerdictNames[] = {"ok", "note", "warning", "fault"};
constexpr size_t kNameWidth = 8;
constexpr const char* kVerdictColors[] = {"\033[32m", "\033[2m", "\033[33m", "\033[31m"};

// When the log that refuses records is this full of unread ones, somebody should take them.
constexpr uint64_t kUnreadPercent = 80;
constexpr uint32_t kDiskPercent = 95;

class Doctor {
  public:
    explicit Doctor(const Globals& globals)
        : globals_(globals),
          color_(WantsColor(STDOUT_FILENO)),
          width_(TerminalWidth(STDOUT_FILENO)) {}

    int run() {
        // A copy of logs, from another board perhaps, says nothing about this one.
        const bool is_board = globals_.directory.empty();
        if (is_board)
            check_board(ResolvePaths());
        else
            check_logs();
        if (!globals_.json)
            out_.write(std::string(is_board ? "\nThis board is " : "\nWhat these logs tell is ") +
                       (worst_ >= Verdict::kWarning ? "not well.\n" : "well.\n"));
        out_.flush();
        return worst_ >= Verdict::kWarning ? kFinding : kWell;
    }

  private:
    void check_board(const Paths& paths) {
        check_configuration();
        check_directory("log directory", paths.log, StateOfLogDirectory(paths.log));
        check_directory("data directory", paths.data, StateOfData(paths.data));
        check_agent();
        check_markers();
        check_logs();
        check_space(paths.log.path);
    }

    static LinkState StateOfData(const ConfiguredPath& data) {
        struct stat st;
        LinkState state;
        state.text = StateOfPath(data.path);
        state.well = stat(data.path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
        return state;
    }

    void tell(Verdict verdict, const std::string& subject, const std::string& text) {
        worst_ = std::max(worst_, verdict);
        const auto index = static_cast<size_t>(verdict);
        if (globals_.json) {
            out_.write(JsonLine(
                {{"verdict", kVerdictNames[index]}, {"subject", subject}, {"text", text}}));
            return;
        }
        std::string name = kVerdictNames[index];
        name.append(kNameWidth - name.size(), ' ');
        if (color_)
            name = kVerdictColors[index] + name + "\033[0m";
        const std::string line = subject + ": " + text;
        const bool fits = kNameWidth + line.size() <= width_;
        out_.write(name + (fits ? line + "\n" : Wrapped(line, width_, kNameWidth, kNameWidth)));
    }

    void warn_if_open(const std::string& subject, const std::string& path, const struct stat& st) {
        if ((st.st_mode & S_IWOTH) != 0)
            tell(Verdict::kWarning, subject, path + " can be written by everybody");
    }

    void check_configuration() {
        const std::string subject = "configuration";
        struct stat st;
        if (stat(kConfFile, &st) < 0) {
            tell(errno == ENOENT ? Verdict::kNote : Verdict::kFault, subject,
                 SystemError(kConfFile, errno) + "; all paths are defaults");
            return;
        }
        try {
            const auto findings = CheckProfile(ProfileText(kConfFile));
            for (const IniFinding& finding : findings)
                tell(Verdict::kWarning, subject,
                     std::string(kConfFile) + ":" + std::to_string(finding.line) + ": " +
                         finding.text);
            if (findings.empty())
                tell(Verdict::kOk, subject, std::string(kConfFile) + " is read as written");
        } catch (const Failure& failure) {
            tell(Verdict::kFault, subject, failure.text);
        }
        // The library opens profiles for writing even to read them.
        if (access(kConfFile, W_OK) < 0)
            tell(Verdict::kWarning, subject,
                 std::string(kConfFile) + " cannot be written by this user (" + strerror(errno) +
                     "): processes that cannot write it take the default paths");
        warn_if_open(subject, kConfFile, st);
        if (access((std::string(kConfFile) + "+").c_str(), F_OK) == 0)
            tell(Verdict::kNote, subject,
                 std::string(kConfFile) + "+ was left by a change that failed");
    }

    void check_directory(const std::string& subject, const ConfiguredPath& path,
                         const LinkState& state) {
        tell(state.well ? Verdict::kOk : Verdict::kFault, subject,
             path.path + ", " + state.text + " (" + path.origin + ")");
        struct stat st;
        if (!state.well || stat(path.path.c_str(), &st) < 0)
            return;
        warn_if_open(subject, path.path, st);
        if (access(path.path.c_str(), W_OK) < 0)
            tell(Verdict::kNote, subject, "this user cannot write " + path.path);
    }

    void check_agent() {
        const std::string subject = "agent library";
        const std::string name = kAgentLibrary;
        void* const library = dlopen(kAgentLibrary, RTLD_LAZY | RTLD_LOCAL);
        if (library == nullptr) {
            tell(Verdict::kNote, subject, name + " is not there; records go to local files");
            return;
        }
        if (dlsym(library, kAgentReportFunction) != nullptr)
            tell(Verdict::kOk, subject, name + " can be bound");
        else
            tell(Verdict::kFault, subject, name + " has no function " + kAgentReportFunction);
        (void) dlclose(library);
    }

    void check_markers() {
        const bool ready = access(kPoolReadyFile, F_OK) == 0;
        tell(ready ? Verdict::kOk : Verdict::kNote, "package pool",
             std::string(kPoolReadyFile) +
                 (ready ? " is there" : " is not there: the pool is not ready"));
        const bool local = access(kLocalModeFile, F_OK) == 0;
        tell(Verdict::kNote, "marker",
             std::string(kLocalModeFile) +
                 (local ? " is there: processes started from here keep records local"
                        : " is not there, seen from the current directory: "
                          "processes started from here bind the agent and write no "
                          "life-cycle log"));
    }

    void check_logs() {
        std::vector<Source> sources;
        try {
            sources = AllSources(globals_);
        } catch (const Failure& failure) {
            tell(Verdict::kFault, "logs", failure.text);
            return;
        }
        for (const Source& source : sources) {
            try {
                check_log(source);
            } catch (const Failure& failure) {
                tell(Verdict::kFault, source.file, failure.text);
            }
        }
    }

    struct Damage {
        uint64_t places = 0;
        korx_damage first = {};
    };

    // Without the record that the text log's writer cuts off wherever a lap ends: that is worth
    // knowing, but nothing is wrong with the board.
    static Damage damage_of(const korx_reader* reader, const korx_reader_info& info) {
        Damage damage{.places = info.damage, .first = {}};
        bool has_first = false;
        korx_damage one;
        for (size_t i = 0; korx_reader_get_damage(reader, i, &one) != 0; ++i) {
            if (one.rule == KORX_DAMAGE_CUT)
                --damage.places;
            else if (!std::exchange(has_first, true))
                damage.first = one;
        }
        return damage;
    }

    void check_log(const Source& source) {
        const Reader reader = OpenReader(source);
        if (!reader)
            return;
        const korx_reader_info info = InfoOf(reader.get());
        const Damage damage = damage_of(reader.get(), info);
        std::string why;
        if (StateOfHead(reader.get(), &why) != HeadState::kSound)
            tell(Verdict::kFault, source.file,
                 "the head is damaged, " + why + " (" + RepairCommand(source) + ")");
        else if (damage.places > 0)
            tell(Verdict::kFault, source.file,
                 std::to_string(damage.places) + " damaged places, the first at offset " +
                     std::to_string(damage.first.offset) + ": " + damage.first.text +
                     " (korx log verify names all)");
        else
            tell(Verdict::kOk, source.file,
                 std::to_string(info.records) + " records, " + std::to_string(info.unread_records) +
                     " unread");
        const uint32_t doubts = korx_reader_doubts(reader.get());
        for (const std::string& doubt : DoubtsIn(doubts))
            tell(Verdict::kNote, source.file, doubt);
        if (info.clock_set_back > 0)
            tell(Verdict::kNote, source.file,
                 "the clock was set back " + std::to_string(info.clock_set_back) + " times");
        if (damage.places < info.damage)
            tell(Verdict::kNote, source.file, "a record was cut off where a lap ended");
        tell_unread(source, info, (doubts & KORX_DOUBT_LOST) == 0);
        struct stat st;
        if (globals_.directory.empty() && stat(source.path.c_str(), &st) == 0)
            warn_if_open(source.file, source.path, st);
    }

    void tell_unread(const Source& source, const korx_reader_info& info, bool lost_is_known) {
        const bool refuses = KindOf(info.kind).unread == Unread::kProtected;
        if (refuses && info.limit > 0 && info.unread_bytes * 100 >= info.limit * kUnreadPercent)
            tell(Verdict::kWarning, source.file,
                 std::to_string(info.unread_bytes * 100 / info.limit) +
                     "% are unread; a full log refuses records (korx log take " +
                     korx_log_kind_name(info.kind) + ")");
        if (info.gap != 0)
            tell(Verdict::kWarning, source.file,
                 "records were written over before anybody took them (" +
                     (lost_is_known ? "at least " + std::to_string(info.gap_lost)
                                    : std::string("how many is unknown")) +
                     ")");
    }

    // Only the file system that the logs are on; korx space shows all.
    void check_space(const std::string& directory) {
        struct stat log;
        if (stat(directory.c_str(), &log) < 0)
            return;
        for (const Mount& mount : MountedFileSystems()) {
            struct stat st;
            if (stat(mount.directory.c_str(), &st) < 0 || st.st_dev != log.st_dev)
                continue;
            tell(mount.percent >= kDiskPercent ? Verdict::kWarning : Verdict::kOk, "space",
                 mount.directory + " is " + std::to_string(mount.percent) + "% full");
            return;
        }
    }

    const Globals& globals_;
    Output out_;
    bool color_;
    size_t width_;
    Verdict worst_ = Verdict::kOk;
};

}  // namespace

int RunDoctor(const Globals& globals) {
    return Doctor(globals).run();
}

}  // namespace korx::tool
