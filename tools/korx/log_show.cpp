// korx log show: prints records of one log, or of several merged by time.
#include <errno.h>
#include <stdint.h>
#include <unistd.h>

#include <algorithm>

#include "boot_list.h"
#include "cursor_token.h"
#include "follow.h"
#include "json.h"
#include "log_commands.h"
#include "output.h"
#include "pager.h"
#include "record_print.h"
#include "shown.h"
#include "signals.h"

namespace korx::tool {
namespace {

constexpr char kGone[] = ": what was shown last is gone; records may be missing here";

bool Follows(const ShowOptions& options) {
    return options.follow || !options.wait_for.empty();
}

std::vector<Source> SourcesOf(const Globals& globals, const ShowOptions& options) {
    std::vector<Source> sources = FindSources(globals, options.what);
    // A name that no record can have is a mistake, not an empty answer.
    if (!options.filter.section.empty() && !HasKind(sources, KORX_LOG_START))
        throw Failure{kUsage, "--section: only the start log has sections"};
    if (options.filter.process.empty())
        return sources;
    if (!HasKind(sources, KORX_LOG_PROCESS))
        throw Failure{kUsage, "--process: only the process logs have processes"};
    KeepProcess(&sources, options.filter.process);
    return sources;
}

Style StyleOf(const Globals& globals, const ShowOptions& options,
              const std::vector<Source>& sources) {
    const auto is_process = [](const Source& source) { return source.kind == KORX_LOG_PROCESS; };
    Style style;
    if (globals.json)
        style.form = Form::kJson;
    if (!options.form.empty())
        style.form = FormOfWord(options.form);
    if (globals.json && style.form != Form::kJson)
        throw Failure{kUsage, "--json and --output " + options.form + " contradict each other"};
    if (!options.fields.empty()) {
        if (style.form != Form::kJson)
            throw Failure{kUsage, "--output-fields: only the objects of --output json have fields"};
        style.fields = FieldsOfList(options.fields);
    }
    style.color = WantsColor(STDOUT_FILENO);
    style.with_file =
        sources.size() > 1 && !std::all_of(sources.begin(), sources.end(), is_process);
    style.utc = options.utc;
    style.board = BoardName(globals);
    return style;
}

void CheckCombinations(const ShowOptions& options, const std::vector<Source>& sources) {
    if (options.filter.ignore_case && options.filter.grep.empty() && options.wait_for.empty())
        throw Failure{kUsage, "--ignore-case: there is neither --grep nor --wait-for"};
    if (options.timeout && options.wait_for.empty())
        throw Failure{kUsage, "--timeout: there is no --wait-for"};
    if (options.timeout && !(*options.timeout >= 0))
        throw Failure{kUsage, "--timeout: not a number of seconds from 0 on"};
    if (!options.boot.empty() && !options.after_cursor.empty())
        throw Failure{kUsage, "--boot and --after-cursor contradict each other"};
    const bool selects = !options.boot.empty() || !Filter(options.filter).selects_all();
    if (options.list_boots && (selects || options.newest || options.reverse || Follows(options) ||
                               !options.after_cursor.empty()))
        throw Failure{kUsage, "--list-boots: it lists all boots and takes no filters"};
    if (!Follows(options))
        return;
    if (!options.boot.empty() && ParseBoot(options.boot) != 0)
        throw Failure{kUsage, "--boot: only the newest boot, 0, can be followed"};
    if (options.reverse)
        throw Failure{kUsage, "--reverse: what is still to come cannot be printed first"};
    for (const Source& source : sources)
        if (source.path == kStandardInput)
            throw Failure{kUsage, "standard input is a copy, which cannot be followed"};
}

class Show {
  public:
    Show(const ShowOptions& options, const std::vector<Source>& sources, const Style& style)
        : options_(options), filter_(options.filter), newest_(options.newest), style_(style) {
        if (!options.boot.empty())
            boot_ = ParseBoot(options.boot);
        if (!options.wait_for.empty())
            awaited_.emplace("--wait-for", options.wait_for, options.filter.ignore_case);
        std::vector<NamedMark> marks;
        if (!options.after_cursor.empty())
            marks = ParseCursorToken(options.after_cursor);
        for (const Source& source : sources) {
            Shown& log = logs_.emplace_back(source);
            for (const NamedMark& named : marks)
                if (named.file == source.file)
                    log.mark = named.mark;
        }
    }

    int run() {
        if (Follows(options_))
            follow();
        else
            show_all();
        if (options_.show_cursor)
            print_cursor();
        if (status_ == kWell && awaited_ && !came_)
            return kNotCome;
        return status_ == kWell && options_.fail_empty && !any_printed_ ? kFinding : status_;
    }

  private:
    void follow() {
        if (!newest_ && !filter_.has_since() && options_.after_cursor.empty())
            newest_ = awaited_ ? 0 : 10;
        CatchStopSignals();
        out_.set_interruptible();
        const int64_t end_us = options_.timeout ? EndOfWait(*options_.timeout) : kNever;
        std::vector<Source> sources;
        for (Shown& log : logs_) {
            log.source.absence = Absence::kAllowed;
            sources.push_back(log.source);
        }
        Follower follower(sources);
        show_all();
        try {
            while (!came_) {
                const std::vector<size_t> changed = follower.wait(out_.fd(), end_us);
                if (changed.empty())
                    return;
                for (const size_t i : changed)
                    show_news(logs_[i]);
            }
        } catch (const Stopped&) {
            // It ends as it was asked to.
        }
    }

    void open(Shown& log) {
        try {
            log.reader = OpenReader(log.source);
        } catch (const Failure& failure) {
            // The other logs can be shown all the same.
            if (logs_.size() == 1)
                throw;
            Complain(failure.text);
            status_ = kInput;
        }
        if (!log.reader)
            return;
        if (boot_)
            log.boot.emplace(log.reader.get(), *boot_);
        go_to_mark(log);
    }

    // Where the mark is gone, at the oldest record from now on.
    static void go_to_mark(Shown& log) {
        if (korx_reader_seek_mark(log.reader.get(), &log.mark) == 0) {
            Complain(log.source.path + kGone);
            log.mark = {};
        }
    }

    void show_all() {
        bool any = false;
        for (Shown& log : logs_) {
            open(log);
            any |= log.reader != nullptr;
        }
        if (!any && status_ == kWell)
            Complain("no such log has been written yet");
        check_boot();
        uint64_t skipped = newest_ ? position_before_newest() : 0;
        struct Kept {
            const Shown* log;
            korx_record record;
        };
        std::vector<Kept> kept;
        Merge(logs_, [&](Shown& log) {
            if (!filter_.matches(log.record))
                return;
            if (skipped > 0)
                --skipped;
            else if (options_.reverse)
                kept.push_back({&log, log.record});
            else
                print(log, log.record);
        });
        for (; !kept.empty(); kept.pop_back())
            print(*kept.back().log, kept.back().record);
        out_.flush();
    }

    // A boot that no log has is a mistake, not an empty answer.
    void check_boot() const {
        const auto has_it = [](const Shown& log) { return log.boot && log.boot->exists(); };
        if (boot_.value_or(0) != 0 && std::none_of(logs_.begin(), logs_.end(), has_it))
            throw Failure{kFinding, "--boot: there is no boot " + options_.boot +
                                        "; --list-boots tells which there are"};
    }

    // How many of the wanted records come before the newest ones.
    uint64_t position_before_newest() {
        if (logs_.size() == 1 && filter_.selects_all() && !boot_ && options_.after_cursor.empty()) {
            if (logs_[0].reader)
                korx_reader_seek_newest(logs_[0].reader.get(), *newest_);
            return 0;
        }
        uint64_t count = 0;
        for (Shown& log : logs_) {
            if (!log.reader)
                continue;
            for (log.begin(); log.has_record; log.advance())
                count += filter_.matches(log.record) ? 1 : 0;
            korx_reader_seek_mark(log.reader.get(), &log.mark);
        }
        return count > *newest_ ? count - *newest_ : 0;
    }

    void print(const Shown& log, const korx_record& record) {
        AppendRecord(out_.buffer(), log.reader.get(), record, log.source.file, style_);
        any_printed_ = true;
        came_ |= awaited_ && awaited_->matches(record);
        out_.flush_if_full();
    }

    enum class News { kNone, kMore, kBusy };

    // What is there of a log that had not been written yet.
    News open_late(Shown& log) {
        try {
            log.reader = OpenReader(log.source);
            if (log.reader)
                go_to_mark(log);
            return log.reader ? News::kMore : News::kNone;
        } catch (const Failure& failure) {
            Complain(failure.text);
            return failure.trouble == Trouble::kBusy ? News::kBusy : News::kNone;
        }
    }

    static News refresh(Shown& log) {
        korx_refreshed how = KORX_REFRESHED_SAME;
        korx_reader_error error = {};
        const korx_reader_code code = korx_reader_refresh(log.reader.get(), &how, &error);
        // One that is gone will be made anew, and be told of then.
        if (code == KORX_READER_OPEN && error.system_error == ENOENT)
            return News::kNone;
        if (code != KORX_READER_OK) {
            Complain(error.text);
            return code == KORX_READER_LOCKED ? News::kBusy : News::kNone;
        }
        if (how == KORX_REFRESHED_GAP)
            Complain(log.source.path + kGone);
        return how == KORX_REFRESHED_SAME ? News::kNone : News::kMore;
    }

    void show_news(Shown& log) {
        News news;
        // Both wait for a busy log by themselves.
        while ((news = log.reader ? refresh(log) : open_late(log)) == News::kBusy)
            if (StopRequested())
                throw Stopped{};
        if (news == News::kNone)
            return;
        while (log.advance(), log.has_record)
            if (filter_.matches(log.record))
                print(log, log.record);
        out_.flush();
    }

    void print_cursor() {
        std::vector<NamedMark> marks;
        for (Shown& log : logs_) {
            if (log.reader)
                korx_reader_get_mark(log.reader.get(), &log.mark);
            marks.push_back({log.source.file, log.mark});
        }
        const std::string token = CursorToken(marks);
        if (style_.form == Form::kJson)
            out_.write(JsonLine({{"cursor", token}}));
        else
            out_.write("-- cursor: " + token + "\n");
        out_.flush();
    }

    const ShowOptions& options_;
    Filter filter_;
    std::optional<Expression> awaited_;
    std::optional<int64_t> boot_;
    std::optional<uint64_t> newest_;
    Output out_;
    Style style_;
    std::vector<Shown> logs_;
    int status_ = kWell;
    bool any_printed_ = false;
    bool came_ = false;
};

}  // namespace

int RunLogShow(const Globals& globals, const ShowOptions& options) {
    const std::vector<Source> sources = SourcesOf(globals, options);
    CheckCombinations(options, sources);
    const Style style = StyleOf(globals, options, sources);
    if (options.list_boots)
        return ListBoots(sources, style);
    Show show(options, sources, style);
    std::optional<Pager> pager;
    if (options.pager && !Follows(options))
        pager.emplace();
    try {
        return show.run();
    } catch (const Stopped&) {
        return options.wait_for.empty() ? kWell : kNotCome;
    } catch (const ClosedPipe&) {
        return options.wait_for.empty() ? kWell : kNotCome;
    }
}

}  // namespace korx::tool
