// korx log take: hands unread records out and acknowledges what has arrived. The order is print,
// flush, sync, acknowledge; a failure before the last leaves the log as it was.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files.h"
#include "follow.h"
#include "log_commands.h"
#include "output.h"
#include "progress.h"
#include "record_print.h"
#include "signals.h"
#include "sources.h"

namespace korx::tool {
namespace {

// Where the records go: a file of our own, or standard output.
class Destination {
  public:
    Destination(const std::string& path, const std::vector<Source>& sources)
        : path_(path),
          file_(path.empty() ? UniqueFd() : open_file(path)),
          out(file_ ? file_.get() : STDOUT_FILENO, file_ ? path : "standard output") {
        if (file_)
            claim(sources);
    }

    // What follows can be taken back until the next begin, where the destination is our own file.
    void begin() { start_ = is_regular_ ? lseek(file_.get(), 0, SEEK_END) : 0; }
    bool take_back() {
        out.discard();
        return is_regular_ && ftruncate(file_.get(), start_) == 0;
    }

    // Durable, if it is a file.
    void commit() {
        out.sync();
        if (!is_new_)
            return;
        if (!SyncDirectoryOf(path_)) {
            const int error = errno;
            const std::string directory = path_.substr(0, path_.rfind('/') + 1);
            throw Failure{kOutput, "syncing failed: " +
                                       SystemError(directory.empty() ? "." : directory, error)};
        }
        is_new_ = false;
    }

  private:
    UniqueFd open_file(const std::string& path) {
        constexpr int kFlags = O_RDWR | O_APPEND | O_NOCTTY | O_CLOEXEC;
        UniqueFd fd(open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0640));
        is_new_ = static_cast<bool>(fd);
        if (!fd && errno == EEXIST)
            fd.reset(open(path.c_str(), kFlags));
        if (!fd)
            throw Failure{kOutput, SystemError(path, errno)};
        return fd;
    }

    void claim(const std::vector<Source>& sources) {
        struct stat st;
        is_regular_ = fstat(file_.get(), &st) == 0 && S_ISREG(st.st_mode);
        for (const Source& source : sources) {
            struct stat log;
            if (stat(source.path.c_str(), &log) == 0 && log.st_dev == st.st_dev &&
                log.st_ino == st.st_ino)
                throw Failure{kUsage, path_ + ": is the log itself"};
        }
        if (is_regular_ && flock(file_.get(), LOCK_EX | LOCK_NB) < 0)
            throw Failure{kOutput, path_ + ": another korx writes to it"};
    }

    std::string path_;
    bool is_new_ = false;
    bool is_regular_ = false;
    UniqueFd file_;  // none: standard output
    off_t start_ = 0;

  public:
    Output out;
};

class Take {
  public:
    Take(const Globals& globals, const TakeOptions& options)
        : sources_(FindSources(globals, options.what, "")),
          reported_(sources_.size()),
          destination_(options.output, sources_),
          style_{.json = globals.json,
                 .color = options.output.empty() && WantsColor(STDOUT_FILENO),
                 .with_file = sources_.size() > 1} {}

    int run(bool follow) {
        if (!follow) {
            for (size_t i = 0; i < sources_.size(); ++i)
                attempt(i);
            return status_;
        }
        CatchStopSignals();
        destination_.out.set_interruptible();
        for (Source& source : sources_)
            source.absence = Absence::kAllowed;
        Follower follower(sources_);
        for (size_t i = 0; i < sources_.size(); ++i)
            attempt_until_free(i);
        while (true)
            for (const size_t i : follower.wait(destination_.out.fd()))
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
        } catch (const Failure& failure) {
            if (failure.status == kOutput) {
                const bool clean = destination_.take_back();
                Complain(failure.text + "; " + sources_[i].path + ": nothing acknowledged" +
                         (clean ? "" : ", part of it may have been written"));
                throw Failure{kOutput, ""};
            }
            tell(i, failure.text);
            status_ = std::max(status_, failure.status);
            return failure.trouble == Trouble::kBusy ? Attempt::kBusy : Attempt::kDone;
        } catch (const ClosedPipe&) {
            throw Failure{kOutput,
                          "the output was closed; " + sources_[i].path + ": nothing acknowledged"};
        }
    }

    // Following, the same trouble is met at every write to the log and told once.
    void tell(size_t i, const std::string& text) {
        if (reported_[i].trouble != text)
            Complain(text);
        reported_[i].trouble = text;
    }

    void take(size_t i) {
        constexpr int kAttempts = 5;
        for (int attempt = 1;; ++attempt) {
            const Reader reader = OpenReader(sources_[i]);
            if (!reader)
                return;
            std::string damage;
            if (HeadIsDamaged(reader.get(), &damage))
                throw Failure{kUnchanged, sources_[i].path + ": " + damage +
                                              "; nothing taken, because nothing can be "
                                              "acknowledged (korx log show prints what is there)"};
            destination_.begin();
            const bool gap = report_gap(i, reader.get());
            if (hand_out(i, reader.get()) == 0 && !gap)
                return;
            destination_.commit();
            korx_reader_error error = {};
            const korx_reader_code code = korx_reader_ack(reader.get(), &error);
            if (code == KORX_READER_OK)
                return;
            if (code == KORX_READER_CURSOR)
                throw Failure{kFinding, error.text};
            // Somebody else took them, or the log went over them: what is still there comes again.
            if (code == KORX_READER_CHANGED && attempt < kAttempts && destination_.take_back())
                continue;
            (void) destination_.take_back();
            throw Failure{kUnchanged, error.text};
        }
    }

    uint64_t hand_out(size_t i, korx_reader* reader) {
        const korx_reader_info info = InfoOf(reader);
        Progress progress(sources_[i].path);
        korx_record record;
        uint64_t count = 0;
        for (; korx_reader_next_unread(reader, &record) != 0; ++count) {
            AppendRecord(destination_.out.buffer(), record, sources_[i].file, style_);
            destination_.out.flush_if_full();
            progress.step(info.unread_records);
        }
        return count;
    }

    // A gap is told once, and in JSON as a line of its own, so that it reaches whoever keeps them.
    bool report_gap(size_t i, const korx_reader* reader) {
        const korx_reader_info info = InfoOf(reader);
        Reported& reported = reported_[i];
        if (info.gap == 0) {
            reported.gap_bytes = UINT64_MAX;
            return false;
        }
        if (reported.gap_bytes == info.gap_bytes && info.unread_records == 0)
            return false;
        reported.gap_bytes = info.gap_bytes;
        Complain(sources_[i].path + ": gap: at least " + std::to_string(info.gap_lost) +
                 " records (" + std::to_string(info.gap_bytes) +
                 " bytes) were written over before anybody took them, " +
                 std::to_string(info.gap_recovered) + " hidden ones were recovered");
        if (style_.json)
            AppendGap(destination_.out.buffer(), info, sources_[i].file);
        return style_.json;
    }

    struct Reported {
        std::string trouble;
        uint64_t gap_bytes = UINT64_MAX;
    };

    std::vector<Source> sources_;
    std::vector<Reported> reported_;
    Destination destination_;
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
