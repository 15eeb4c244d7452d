#include "show_options.h"

#include "sources.h"
#include "usage.h"

namespace korx::tool {
namespace {

void AddText(CLI::App* show, const char* names, std::string& text, const char* type,
             const std::string& what) {
    show->add_option(names, text, what)->type_name(type)->check(kNotEmpty);
}

void AddFilter(CLI::App* show, FilterOptions& filter) {
    AddText(show, "-S,--since", filter.since, "TIME",
            "Not older: \"2024-03-05 14:07\", 14:07, 90m, yesterday, @SECONDS, RFC 3339");
    AddText(show, "-U,--until", filter.until, "TIME", "Not newer");
    AddText(show, "-p,--level", filter.level, "LEVEL",
            "At least debug, info, warning, error or fatal");
    AddText(show, "-g,--grep", filter.grep, "REGEX",
            "Messages that match an extended regular expression");
    show->add_flag("-i,--ignore-case", filter.ignore_case, "Ignore case in --grep and --wait-for");
    AddText(show, "--section", filter.section, "NAME", "Start log: FRAME, PATCH, CFL or DBG");
    AddText(show, "-u,--process", filter.process, "NAME", "Process logs: only this process");
    show->add_flag("--unread", filter.unread, "Only what has not been taken (and leave it so)");
}

// What is printed of the records.
void AddForm(CLI::App* show, ShowOptions& options) {
    AddText(show, "-o,--output", options.form, "FORM",
            "short (columns), cat (the message alone) or json (as --json)");
    AddText(show, "--output-fields", options.fields, "FIELD,..",
            "Only these fields of the JSON objects");
    show->add_flag("--utc", options.utc, "Show times in UTC instead of local time");
    show->add_flag_callback(
        "--no-pager", [&options] { options.pager = false; },
        "Write to the terminal without a pager");
}

// How far it goes, and when it ends.
void AddExtent(CLI::App* show, ShowOptions& options) {
    show->add_option("-n,--lines", options.newest, "Only the N newest of the wanted records")
        ->type_name("N")
        ->check(kCount);
    show->add_option("-b,--boot", options.boot,
                     "Only this boot of each log: 0 (also without BOOT) is the newest, -1 the one "
                     "before it, 1 the oldest that is still there")
        ->type_name("BOOT")
        ->option_text("[BOOT]")
        ->expected(0, 1)
        ->default_str("0")
        ->check(kNotEmpty);
    show->add_flag("--list-boots", options.list_boots,
                   "The boots of each log, with first and last time, instead of records");
    show->add_flag("-r,--reverse", options.reverse, "Newest first");
    show->add_flag("-f,--follow", options.follow,
                   "Go on with what is written from now on; without -n, --since and --after-cursor "
                   "after the 10 newest");
    AddText(show, "--after-cursor", options.after_cursor, "CURSOR",
            "Only what was written after --show-cursor gave this cursor");
    show->add_flag("--show-cursor", options.show_cursor,
                   "At last, a cursor for the end of the logs as they were read");
    show->add_flag("--fail-empty", options.fail_empty, "Status 1 when no record was printed");
    AddText(show, "--wait-for", options.wait_for, "REGEX",
            "Follow until a message came that matches: status 0; without -n, --since and "
            "--after-cursor among new records only");
    show->add_option("--timeout", options.timeout,
                     "Wait for so many seconds, then end with status 6")
        ->type_name("SECONDS");
}

}  // namespace

void AddShowOptions(CLI::App* show, ShowOptions& options) {
    show->add_option("what", options.what,
                     KindWords() + ", or FILEs; \"-\" is a copy on standard input")
        ->type_name("KIND|FILE")
        ->required()
        ->check(kNotEmpty);
    AddExtent(show, options);
    AddFilter(show, options.filter);
    AddForm(show, options);
}

std::vector<std::string> WithBoots(int count, const char* const* words) {
    const auto is_number = [](const std::string& word) {
        const size_t digits = word.find_first_not_of("+-");
        return digits <= 1 && word.find_first_not_of("0123456789", digits) == std::string::npos;
    };
    std::vector<std::string> all(words, words + count);
    for (size_t i = 0; i < all.size() && all[i] != "--"; ++i) {
        if (all[i] != "-b" && all[i] != "--boot")
            continue;
        const bool has_number = i + 1 < all.size() && is_number(all[i + 1]);
        all[i] = "--boot=" + (has_number ? all[i + 1] : "0");
        if (has_number)
            all.erase(all.begin() + static_cast<ptrdiff_t>(i) + 1);
    }
    return all;
}

}  // namespace korx::tool
