// korx log take: hands unread records out and acknowledges what has arrived. The order is print,
// flush, sync, acknowledge; a failure before the last leaves the log as it was, and takes the
// output back. Where it cannot be known whether the last has been done, the output stays: records
// may come twice then, but none is lost.
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "destination.h"
#include "follow.h"
#include "log_commands.h"
#include "output.h"
#include "progress.h"
#include "record_print.h"
#include "signals.h"
#include "sources.h"

namespace korx::tool {
namespace {

// What has become of an acknowledgement.
enum class Fate { kAcknowledged, kNot, kUnknown };

Fate FateOf(korx_reader_code code) {
    switch (code) {
        case KORX_READER_OK:
        case KORX_READER_CURSOR:
            return Fate::kAcknowledged;
        case KORX_READER_UNSURE:
            return Fate::kUnknown;
        default:
            return Fate::kNot;
    }
}

class Take {
  public:
    Take(const Globals& globals, const TakeOptions& options)
        : sources_(FindSources(globals, options.what)),
          readers_(sources_.size()),
          reported_(sources_.size()),
          destination_(OpenDestination(globals, options, sources_)),
          style_{.form = globals.json ? Form::kJson : Form::kShort,
                 .color =
                     options.output.empty() && options.command.empty() && WantsColor(STDOUT_FILENO),
                 .with_file = sources_.size() > 1,
                 .board = BoardName(globals)} {}

    int run(bool follow) {
        if (!follow) {
            for (size_t i = 0; i < sources_.size(); ++i)
                attempt(i);
            return status_;
        }
        CatchStopSignals();
        for (Source& source : sources_)
            source.absence = Absence::kAllowed;
        Follower follower(sources_);
        for (size_t i = 0; i < sources_.size(); ++i)
            attempt_until_free(i);
        while (true)
            for (const size_t i : follower.wait(destination_->watched()))
                attempt_until_free(i);
    }

  private:
    enum class Attempt { kDone, kBusy };

    // A writer that gives the lock back without writing makes no event. Opening waits by itself.
    void attempt_until_free(size_t i) {
        while (attempt(i) == Attempt::kBusy)
            if (StopRequested())
                throw Stopped{};
    }

    // One log's trouble does not keep the others' records back; a failing output does.
    Attempt attempt(size_t i) {
        try {
            take(i);
            reported_[i].trouble.clear();
            return Attempt::kDone;
        } catch (const Stopped&) {
            (void) destination_->take_back();
            throw;
        } catch (const ClosedPipe&) {
            give_up(i, destination_->closed());
        } catch (const Failure& failure) {
            if (failure.status == kOutput)
                give_up(i, failure.text);
            tell(i, failure.text);
            status_ = std::max(status_, failure.status);
            return failure.trouble == Trouble::kBusy ? Attempt::kBusy : Attempt::kDone;
        }
    }

    [[noreturn]] void give_up(size_t i, const std::string& why) {
        const bool clean = destination_->take_back();
        Complain(why + "; " + sources_[i].path + ": nothing acknowledged" +
                 (clean ? "" : ", part of it may have been written"));
        throw Failure{kOutput, ""};
    }

    // Following, the same trouble is met at every write to the log and told once.
    void tell(size_t i, const std::string& text) {
        if (reported_[i].trouble != text)
            Complain(text);
        reported_[i].trouble = text;
    }

    // Where somebody else took the records, or the log went over them, what is still there comes
    // again.
    void take(size_t i) {
        constexpr int kAttempts = 5;
        int attempts = 1;
        while (deliver(i) == Delivery::kChanged)
            if (++attempts > kAttempts)
                throw Failure{kUnchanged,
                              sources_[i].path + ": changed again and again while it was taken"};
    }

    enum class Delivery { kDone, kChanged };

    // The reader of the last time, or a new one. It looks at all that is unread: what it has passed
    // may be unread again, for instance when somebody has taken the cursor away.
    Reader current_reader(size_t i) {
        Reader reader = std::move(readers_[i]);
        if (reader && korx_reader_refresh(reader.get(), nullptr, nullptr) == KORX_READER_OK) {
            korx_reader_rewind(reader.get());
            return reader;
        }
        return OpenReader(sources_[i]);  // and whatever is wrong is told from there
    }

    // A reader is kept only once all that it has handed out is acknowledged: after anything else
    // the log is opened again, and what is still there comes again.
    Delivery deliver(size_t i) {
        Reader reader = current_reader(i);
        if (!reader)
            return Delivery::kDone;
        const korx_reader_info info = InfoOf(reader.get());
        refuse_damaged(i, reader.get(), info);
        tell_doubts(i, reader.get());
        const bool lost_is_known = (korx_reader_doubts(reader.get()) & KORX_DOUBT_LOST) == 0;
        const bool gap = tell_gap(i, info, lost_is_known) && style_.form == Form::kJson;
        if (info.unread_records == 0 && !gap) {
            readers_[i] = std::move(reader);
            return Delivery::kDone;
        }
        destination_->begin();
        // In JSON it is a line of its own, so that it reaches whoever keeps them.
        if (gap)
            AppendGap(destination_->out().buffer(), info, lost_is_known, sources_[i].file);
        destination_->commit(hand_out(i, reader.get()));
        const Delivery delivery = acknowledge(reader.get());
        if (delivery == Delivery::kDone)
            readers_[i] = std::move(reader);
        return delivery;
    }

    void refuse_damaged(size_t i, const korx_reader* reader, const korx_reader_info& info) const {
        std::string damage;
        const HeadState state = StateOfHead(reader, &damage);
        if (state == HeadState::kDamaged ||
            (state == HeadState::kPositionDamaged && info.unread_records == 0))
            throw Failure{kUnchanged, sources_[i].path + ": " + damage +
                                          "; nothing taken, because nothing can be acknowledged (" +
                                          RepairCommand(sources_[i]) + ")"};
    }

    // Told once while it lasts.
    void tell_doubts(size_t i, const korx_reader* reader) {
        const uint32_t doubts = korx_reader_doubts(reader);
        const uint32_t before = std::exchange(reported_[i].doubts, doubts);
        for (const std::string& doubt : DoubtsIn(doubts & ~before))
            Complain(sources_[i].path + ": note: " + doubt);
    }

    Delivery acknowledge(korx_reader* reader) {
        korx_reader_error error = {};
        const korx_reader_code code = korx_reader_ack(reader, &error);
        switch (FateOf(code)) {
            case Fate::kAcknowledged:
                if (code != KORX_READER_OK)
                    throw Failure{kFinding, error.text};
                return Delivery::kDone;
            case Fate::kUnknown:
                throw Failure{kUnchanged,
                              std::string(error.text) + "; what was taken may come once more"};
            case Fate::kNot:
                break;
        }
        const bool is_gone = destination_->take_back();
        if (is_gone && code == KORX_READER_CHANGED)
            return Delivery::kChanged;
        throw Failure{kUnchanged,
                      error.text + std::string(is_gone ? "" : "; it was handed out all the same")};
    }

    uint64_t hand_out(size_t i, korx_reader* reader) {
        const korx_reader_info info = InfoOf(reader);
        Progress progress(sources_[i].path);
        Output& out = destination_->out();
        korx_record record;
        uint64_t count = 0;
        for (; korx_reader_next_unread(reader, &record) != 0; ++count) {
            AppendRecord(out.buffer(), reader, record, sources_[i].file, style_);
            out.flush_if_full();
            progress.step(info.unread_records);
        }
        return count;
    }

    // A gap is told once. Returns whether it was.
    bool tell_gap(size_t i, const korx_reader_info& info, bool lost_is_known) {
        Reported& reported = reported_[i];
        if (info.gap == 0) {
            reported.gap_bytes = UINT64_MAX;
            return false;
        }
        if (reported.gap_bytes == info.gap_bytes && info.unread_records == 0)
            return false;
        reported.gap_bytes = info.gap_bytes;
        const std::string lost = lost_is_known
                                     ? "at least " + std::to_string(info.gap_lost) + " records (" +
                                           std::to_string(info.gap_bytes) + " bytes)"
                                     : "an unknown number of records";
        Complain(sources_[i].path + ": gap: " + lost +
                 " were written over before anybody took them, " +
                 std::to_string(info.gap_recovered) + " hidden ones were recovered");
        return true;
    }

    struct Reported {
        std::string trouble;
        uint64_t gap_bytes = UINT64_MAX;
        uint32_t doubts = 0;
    };

    std::vector<Source> sources_;
    std::vector<Reader> readers_;
    std::vector<Reported> reported_;
    std::unique_ptr<Destination> destination_;
    Style style_;
    int status_ = kWell;
};

}  // namespace

int RunLogTake(const Globals& globals, const TakeOptions& options) {
    Take take(globals, options);
    try {
        return take.run(options.follow);
    } catch (const Stopped&) {
        return kWell;
    } catch (const ClosedPipe&) {
        // While nothing was waiting to be delivered.
        return kWell;
    }
}

}  // namespace korx::tool
