// korx log show: prints records of one log, or of several merged by time.
#include <stdint.h>
#include <unistd.h>

#include <algorithm>

#include "follow.h"
#include "log_commands.h"
#include "output.h"
#include "progress.h"
#include "record_print.h"
#include "signals.h"
#include "sources.h"
#include "when.h"

namespace korx::tool {
namespace {

// A log that is being shown, with the place up to which it has been.
struct Shown {
    explicit Shown(Source from) : source(std::move(from)) {}

    Source source;
    Reader reader;
    korx_mark mark = {};
    korx_record record = {};
    bool has_record = false;
    int64_t time_us = INT64_MIN;  // a damaged record stays behind the one before it

    void advance() {
        has_record = korx_reader_next(reader.get(), &record) != 0;
        if (has_record && (record.fields & KORX_FIELD_TIME) != 0)
            time_us = Microseconds(record.time);
    }
};

class Show {
  public:
    Show(const Globals& globals, const ShowOptions& options)
        : filter_(options.filter),
          newest_(options.newest),
          style_{.json = globals.json, .color = WantsColor(STDOUT_FILENO)} {
        for (Source& source : FindSources(globals, options.what, options.filter.process))
            logs_.emplace_back(std::move(source));
        style_.with_file = logs_.size() > 1 && logs_[0].source.kind != KORX_LOG_PROCESS;
        check_names(options.filter);
    }

    int run(bool follow) {
        if (!follow) {
            show_all();
            return status_;
        }
        if (!newest_ && !filter_.has_since())
            newest_ = 10;
        CatchStopSignals();
        out_.set_interruptible();
        std::vector<Source> sources;
        for (Shown& log : logs_) {
            log.source.absence = Absence::kAllowed;
            sources.push_back(log.source);
        }
        Follower follower(sources);
        show_all();
        while (true)
            for (const size_t i : follower.wait(out_.fd()))
                show_news(logs_[i]);
    }

  private:
    // A name that no record can have is a mistake, not an empty answer.
    void check_names(const FilterOptions& options) const {
        const auto has = [&](korx_log_kind kind) {
            return std::any_of(logs_.begin(), logs_.end(), [&](const Shown& log) {
                return log.source.kind == kind || log.source.kind == KORX_LOG_AUTO;
            });
        };
        if (!options.section.empty() && !has(KORX_LOG_START))
            throw Failure{kUsage, "--section: only the start log has sections"};
        if (!options.process.empty() && !has(KORX_LOG_PROCESS))
            throw Failure{kUsage, "--process: only the process logs have processes"};
    }

    void open(Shown& log) {
        log.reader.reset();
        try {
            log.reader = OpenReader(log.source);
        } catch (const Failure& failure) {
            // The other logs can be shown all the same.
            if (logs_.size() == 1)
                throw;
            Complain(failure.text);
            status_ = kInput;
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
        uint64_t skipped = 0;
        if (newest_)
            skipped = position_before_newest();
        merge([&](Shown& log) {
            if (skipped > 0) {
                --skipped;
                return;
            }
            print(log);
        });
        for (Shown& log : logs_)
            if (log.reader)
                korx_reader_get_mark(log.reader.get(), &log.mark);
        for (Shown& log : logs_)
            log.reader.reset();
        out_.flush();
    }

    // How many of the wanted records come before the newest ones.
    uint64_t position_before_newest() {
        if (logs_.size() == 1 && filter_.selects_all()) {
            if (logs_[0].reader)
                korx_reader_seek_newest(logs_[0].reader.get(), *newest_);
            return 0;
        }
        uint64_t count = 0;
        for (Shown& log : logs_) {
            korx_record record;
            while (log.reader && korx_reader_next(log.reader.get(), &record) != 0)
                count += filter_.matches(record) ? 1 : 0;
            if (log.reader)
                korx_reader_rewind(log.reader.get());
        }
        return count > *newest_ ? count - *newest_ : 0;
    }

    // Hands the wanted records of all logs to use, in the order of time.
    template <typename Use>
    void merge(Use use) {
        Progress progress("show");
        uint64_t total = 0;
        std::vector<Shown*> open;
        for (Shown& log : logs_) {
            if (!log.reader)
                continue;
            const korx_reader_info info = InfoOf(log.reader.get());
            total += info.records;
            log.time_us = INT64_MIN;
            log.advance();
            open.push_back(&log);
        }
        while (true) {
            Shown* oldest = nullptr;
            for (Shown* log : open)
                if (log->has_record && (oldest == nullptr || log->time_us < oldest->time_us))
                    oldest = log;
            if (oldest == nullptr)
                return;
            if (filter_.matches(oldest->record))
                use(*oldest);
            progress.step(total);
            oldest->advance();
        }
    }

    void print(const Shown& log) {
        AppendRecord(out_.buffer(), log.record, log.source.file, style_);
        out_.flush_if_full();
    }

    // Null when it cannot be had. Opening a busy log waits by itself.
    Reader open_again(const Shown& log) {
        while (true) {
            try {
                return OpenReader(log.source);
            } catch (const Failure& failure) {
                Complain(failure.text);
                if (failure.trouble != Trouble::kBusy)
                    return nullptr;
            }
            if (StopRequested())
                throw Stopped{};
        }
    }

    void show_news(Shown& log) {
        log.reader = open_again(log);
        if (!log.reader)
            return;
        if (korx_reader_seek_mark(log.reader.get(), &log.mark) == 0)
            Complain(log.source.path +
                     ": what was shown last is gone; records may be missing here");
        while (log.advance(), log.has_record)
            if (filter_.matches(log.record))
                print(log);
        korx_reader_get_mark(log.reader.get(), &log.mark);
        log.reader.reset();
        out_.flush();
    }

    Filter filter_;
    std::optional<uint64_t> newest_;
    Output out_;
    Style style_;
    std::vector<Shown> logs_;
    int status_ = kWell;
};

}  // namespace

int RunLogShow(const Globals& globals, const ShowOptions& options) {
    Show show(globals, options);
    try {
        return show.run(options.follow);
    } catch (const Stopped&) {
        return kWell;
    }
}

}  // namespace korx::tool
