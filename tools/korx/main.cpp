// korx: the operator's command. This file knows the command line, the others do the work.
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "base/unique.h"
#include "common.h"
#include "doctor.h"
#include "help.h"
#include "ini.h"
#include "log_commands.h"
#include "paths.h"
#include "show_options.h"
#include "sources.h"
#include "space.h"
#include "usage.h"

namespace korx::tool {
namespace {

constexpr char kStatuses[] =
    "Exit status: 0 well; 1 something was found (damage, a missing key, a board that is not well); "
    "2 usage; 3 something cannot be read; 4 the output failed; 5 not acknowledged or not changed; "
    "6 the record that was waited for has not come; 7 there is no log to verify.\n"
    "More in korx(1).";

constexpr char kHelp[] = "Show this help";

// Everything that the command line sets, and what is to be run in the end.
struct Commands {
    Globals globals;
    ShowOptions show;
    TakeOptions take;
    std::vector<std::string> verify;
    IniOptions ini;
    SpaceOptions space;
    std::function<int()> run;
};

CLI::App* Add(CLI::App& parent, const char* name, const char* what, const char* examples) {
    CLI::App* const command = parent.add_subcommand(name, what);
    command->group("Commands");
    command->set_help_flag("-h,--help", kHelp);
    command->footer(std::string("Examples:\n") + examples);
    return command;
}

// What all commands have in common; some read logs and can be told where they are.
enum class Reads { kNoLogs, kLogs };

void AddGlobals(CLI::App* command, Commands& c, Reads reads) {
    command->add_flag("--json", c.globals.json, "One JSON object a line");
    if (reads == Reads::kLogs)
        command
            ->add_option("-D,--dir", c.globals.directory,
                         "Directory of the logs instead of the configured one")
            ->type_name("DIR")
            ->check(kNotEmpty);
}

void AddBoardName(CLI::App* command, Commands& c) {
    command
        ->add_option("--board", c.globals.board,
                     "The board's name in the ids of JSON records instead of KORX_BOARD or the "
                     "host's name")
        ->type_name("NAME")
        ->check(kNotEmpty);
}

void AddWhat(CLI::App* command, std::string& what) {
    command->add_option("what", what, KindWords() + ", or a FILE")
        ->type_name("KIND|FILE")
        ->required();
}

void AddList(CLI::App& log, Commands& c) {
    CLI::App* const list =
        Add(log, "list", "All logs: size, fill, laps, records, unread ones, damage",
            "  korx log list\n"
            "  korx log list --json | jq 'select(.unread > 0)'");
    AddGlobals(list, c, Reads::kLogs);
    list->callback([&c] { c.run = [&c] { return RunLogList(c.globals); }; });
}

void AddShow(CLI::App& log, Commands& c) {
    CLI::App* const show =
        Add(log, "show", "Print records, oldest first; several logs are merged by time",
            "  korx log show diag -n 20             the 20 newest diagnostic records\n"
            "  korx log show security --since 2h    of the last two hours\n"
            "  korx log show all -f --level error   errors of all logs, as they come\n"
            "  korx log show process --process zelk --grep 'timeout|refused'\n"
            "  korx log show ./KORX_DIAG_LOG --json | jq -r .message");
    AddGlobals(show, c, Reads::kLogs);
    AddBoardName(show, c);
    AddShowOptions(show, c.show);
    show->callback([&c] { c.run = [&c] { return RunLogShow(c.globals, c.show); }; });
}

void AddTake(CLI::App& log, Commands& c) {
    CLI::App* const take =
        Add(log, "take",
            "Print unread records, and acknowledge them once they are written (and on disk, for a "
            "file). The logs may then write over them.",
            "  korx log take security                     to standard output\n"
            "  korx log take all --json --output F        appended, synced, then acknowledged\n"
            "  korx log take all --follow --json | logger\n"
            "  korx log take all -f --json --exec 'my-shipper --batch'");
    AddGlobals(take, c, Reads::kLogs);
    AddBoardName(take, c);
    AddWhat(take, c.take.what);
    take->add_flag("-f,--follow", c.take.follow, "Go on with what is written from now on");
    take->add_option("-o,--output", c.take.output, "Append to this file")->type_name("FILE");
    take->add_option("--exec", c.take.command,
                     "Run this command, without a shell, for each batch of records, which it gets "
                     "on its standard input; exit status 0 says that it has kept them")
        ->type_name("COMMAND");
    take->add_option("--ack-fd", c.take.answers,
                     "Acknowledge a batch once the reader of standard output has written a line to "
                     "this descriptor; an empty line (JSON: a line with \"batch\") ends each batch")
        ->check(kCount)
        ->type_name("N");
    take->callback([&c] { c.run = [&c] { return RunLogTake(c.globals, c.take); }; });
}

void AddRepair(CLI::App& log, Commands& c) {
    CLI::App* const repair =
        Add(log, "repair",
            "Give a ring whose head is damaged a sound one, so that it can be written again. All "
            "sound records in it are handed out first, and the damaged file is kept beside it.",
            "  korx log repair security                     its records to standard output\n"
            "  korx log repair life --json --output F       appended to F and synced");
    AddGlobals(repair, c, Reads::kLogs);
    AddWhat(repair, c.take.what);
    repair->add_option("-o,--output", c.take.output, "Append the records to this file")
        ->type_name("FILE");
    repair->callback([&c] { c.run = [&c] { return RunLogRepair(c.globals, c.take); }; });
}

void AddVerify(CLI::App& log, Commands& c) {
    CLI::App* const verify = Add(log, "verify", "Name all damage, with file, offset and rule",
                                 "  korx log verify\n"
                                 "  korx log verify security ./copy/KORX_START_LOG --json");
    AddGlobals(verify, c, Reads::kLogs);
    verify->add_option("what", c.verify, "Kinds or files; all logs if there are none")
        ->type_name("KIND|FILE");
    verify->callback([&c] {
        if (c.verify.empty())
            c.verify = {kEveryKind};
        c.run = [&c] { return RunLogVerify(c.globals, c.verify); };
    });
}

void AddLog(CLI::App& app, Commands& c) {
    CLI::App* const log = Add(app, "log", "Read, follow, verify and empty the logs",
                              "  korx log list\n"
                              "  korx log show diag -n 20\n"
                              "  korx log take security --output /var/spool/security.txt\n"
                              "  korx log verify");
    log->require_subcommand(1);
    AddList(*log, c);
    AddShow(*log, c);
    AddTake(*log, c);
    AddVerify(*log, c);
    AddRepair(*log, c);
}

using IniCommand = int (*)(const Globals& globals, const IniOptions& options);

// What a command that does well prints.
enum class Prints { kText, kNothing };

// Every command on profiles names its file first; what follows is added by its own lines.
CLI::App* AddIniCommand(CLI::App* command, Commands& c, IniCommand run,
                        Prints prints = Prints::kText) {
    if (prints == Prints::kText)
        AddGlobals(command, c, Reads::kNoLogs);
    command->add_option("file", c.ini.file, "The profile")->type_name("FILE")->required();
    command->callback([&c, run] { c.run = [&c, run] { return run(c.globals, c.ini); }; });
    return command;
}

CLI::Option* AddSection(CLI::App* command, Commands& c) {
    return command
        ->add_option("section", c.ini.section, "The section, with or without its brackets")
        ->type_name("SECTION");
}

CLI::Option* AddKey(CLI::App* command, Commands& c) {
    return command->add_option("key", c.ini.key, "The key")->type_name("KEY")->required();
}

void AddIniSet(CLI::App& ini, Commands& c) {
    CLI::App* const set =
        Add(ini, "set",
            "Change values, or add them, all or none, under the locks of the component's "
            "processes. The file is replaced as a whole and the old one kept as FILE-. Comments do "
            "not survive unless --keep-comments is given.",
            "  korx ini set ./device.ini NET PORT 8080\n"
            "  korx ini set ./device.ini NET PORT=8080 HOST=a LOG LEVEL=3 --keep-comments\n"
            "  korx ini set ./device.ini NET PORT 8080 --existing");
    AddIniCommand(set, c, RunIniSet, Prints::kNothing);
    AddSection(set, c)->required();
    AddKey(set, c)->type_name("KEY|KEY=VALUE")->description("The key, or the first pair");
    set->add_option("value", c.ini.value, "The value, or another pair")
        ->type_name("VALUE|KEY=VALUE");
    set->add_option("more", c.ini.more,
                    "More pairs; a word without '=' is the section of those behind")
        ->type_name("KEY=VALUE|SECTION");
    set->add_flag("--keep-comments", c.ini.keep_comments,
                  "Change the text in place: comments, blanks and order stay");
    set->add_flag("--existing", c.ini.existing,
                  "Status 1 if there is no such key, nothing changed");
}

void AddIniUnset(CLI::App& ini, Commands& c) {
    CLI::App* const unset =
        Add(ini, "unset",
            "Take keys out, all or none, as set changes them; the rest of the text stays. Status 1 "
            "if one is not there",
            "  korx ini unset ./device.ini NET PORT HOST");
    AddIniCommand(unset, c, RunIniUnset, Prints::kNothing);
    AddSection(unset, c)->required();
    AddKey(unset, c);
    unset->add_option("more", c.ini.more, "More keys of the section")->type_name("KEY");
}

void AddIniGet(CLI::App& ini, Commands& c) {
    CLI::App* const get =
        Add(ini, "get", "Print a value, without the quotes around it; status 1 where there is none",
            "  korx ini get /etc/base.d/base.conf PATH LOG_PATH\n"
            "  korx ini get ./device.ini NET PORT --default 8080");
    AddIniCommand(get, c, RunIniGet);
    AddSection(get, c)->required();
    AddKey(get, c);
    get->add_flag("--raw", c.ini.raw, "As it stands in the file, with its quotes");
    get->add_option("--default", c.ini.fallback, "Printed if there is no such key, section or file")
        ->type_name("VALUE");
}

void AddIniDiff(CLI::App& ini, Commands& c) {
    CLI::App* const diff =
        Add(ini, "diff",
            "What lookups find otherwise in a profile than in its backup FILE-, or in OTHER than "
            "in FILE; status 1 if anything",
            "  korx ini diff ./device.ini                    what the last change did\n"
            "  korx ini diff ./device.ini ./other.ini --json");
    AddIniCommand(diff, c, RunIniDiff)
        ->add_option("other", c.ini.other, "The newer profile, instead of FILE with its backup")
        ->type_name("OTHER");
}

void AddIni(CLI::App& app, Commands& c) {
    CLI::App* const ini = Add(app, "ini", "Read, change and check profiles",
                              "  korx ini get /etc/base.d/base.conf PATH LOG_PATH\n"
                              "  korx ini set ./device.ini NET PORT 8080 --keep-comments\n"
                              "  korx ini diff ./device.ini\n"
                              "  korx ini check ./device.ini");
    ini->require_subcommand(1);
    AddIniGet(*ini, c);
    AddIniSet(*ini, c);
    AddIniUnset(*ini, c);
    CLI::App* const list =
        Add(*ini, "list", "Print a profile, or one section, as the loader reads it",
            "  korx ini list ./device.ini\n"
            "  korx ini list ./device.ini NET --json");
    AddSection(AddIniCommand(list, c, RunIniList), c);
    CLI::App* const check = Add(
        *ini, "check", "Name every line that is refused, cut, ignored or read as something else",
        "  korx ini check ./device.ini && echo fine");
    AddIniCommand(check, c, RunIniCheck);
    AddIniDiff(*ini, c);
    CLI::App* const revert = Add(*ini, "revert",
                                 "Bring the backup FILE- back, in exchange for the profile; done "
                                 "twice, nothing has changed",
                                 "  korx ini revert ./device.ini");
    AddIniCommand(revert, c, RunIniRevert, Prints::kNothing);
}

void AddBoard(CLI::App& app, Commands& c) {
    CLI::App* const paths =
        Add(app, "paths", "The component's paths, where they come from, and their links",
            "  korx paths");
    AddGlobals(paths, c, Reads::kNoLogs);
    paths->callback([&c] { c.run = [&c] { return RunPaths(c.globals); }; });

    CLI::App* const space =
        Add(app, "space", "Record the usage of the file systems in the space-full log and show it",
            "  korx space\n"
            "  korx space --no-record --json");
    AddGlobals(space, c, Reads::kNoLogs);
    space->add_flag("!--no-record", c.space.record, "Only show it");
    space->callback([&c] { c.run = [&c] { return RunSpace(c.globals, c.space); }; });

    CLI::App* const doctor =
        Add(app, "doctor",
            "Look at configuration, links, permissions, agent, markers and all logs; status 1 when "
            "the board is not well",
            "  korx doctor\n"
            "  korx doctor --json | jq 'select(.verdict != \"ok\")'");
    AddGlobals(doctor, c, Reads::kLogs);
    doctor->callback([&c] { c.run = [&c] { return RunDoctor(c.globals); }; });
}

int Run(int argc, char** argv) {
    Commands commands;
    CLI::App app("Reads, follows, verifies and empties the component's logs, and edits profiles.",
                 "korx");
    app.formatter(std::make_shared<Help>(HelpWidth()));
    app.set_help_flag("-h,--help", kHelp);
    app.footer(std::string("Examples:\n"
                           "  korx log list\n"
                           "  korx log show diag -f\n"
                           "  korx log take all --json --output /var/spool/board.json\n"
                           "  korx doctor\n\n") +
               kStatuses);
    app.set_version_flag("--version", "korx " KORX_VERSION, "Show the version");
    app.require_subcommand(1);
    AddLog(app, commands);
    AddIni(app, commands);
    AddBoard(app, commands);
    try {
        std::vector<std::string> words = WithBoots(argc - 1, argv + 1);
        std::reverse(words.begin(), words.end());  // as the parser wants them
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        Complain(UsageComplaint(error, app));
        return kUsage;
    }
    return commands.run();
}

// A closed standard stream must not be given to the next file that is opened. For reading only:
// what is written to a closed standard output must fail, not vanish.
void FillStandardStreams() {
    UniqueFd fd;
    do {
        (void) fd.release();  // it stays, as the stream that was missing
        fd.reset(open("/dev/null", O_RDONLY));
    } while (fd && fd.get() <= STDERR_FILENO);
}

}  // namespace
}  // namespace korx::tool

int main(int argc, char** argv) {
    using namespace korx::tool;
    FillStandardStreams();
    signal(SIGPIPE, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const Failure& failure) {
        if (!failure.text.empty())
            Complain(failure.text);
        return failure.status;
    } catch (const ClosedPipe&) {
        return kWell;
    } catch (const std::bad_alloc&) {
        Complain("out of memory");
        return kInput;
    }
}
