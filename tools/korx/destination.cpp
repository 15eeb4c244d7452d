#include "destination.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "appended_file.h"
#include "base/file_id.h"
#include "confirmation.h"
#include "consumer.h"
#include "files.h"

namespace korx::tool {
namespace {

// A descriptor that bytes are written to: a regular file, which can be synced and cut again, or
// something else.
class Stream : public Destination {
  public:
    Stream(Waits waits, const std::vector<Source>& sources) : waits_(waits), sources_(sources) {}

    Output& out() override { return *out_; }
    int watched() const override { return out_->fd(); }

    void begin() override {
        written_before_ = out_->written();
        if (file_)
            file_->begin(&*out_);
    }
    void commit(uint64_t) override {
        out_->sync();
        if (file_)
            file_->keep(written());
    }
    bool take_back() override {
        out_->discard();
        return written() == 0 || (file_ && file_->take_back(written()));
    }

  protected:
    void attach(int fd, const std::string& name) {
        file_.reset();
        out_.emplace(fd, name);
        if (waits_ == Waits::kInterruptibly)
            out_->set_interruptible();
        const FileId id = FileId::OfOpen(fd);
        for (const Source& source : sources_)
            if (id.is_same_as(FileId::At(source.path.c_str())))
                throw Failure{kUsage, name + ": is the log itself"};
        struct stat st;
        if (fstat(fd, &st) < 0)
            throw Failure{kOutput, SystemError(name, errno)};
        if (S_ISREG(st.st_mode))
            file_.emplace(fd, name);
    }

  private:
    uint64_t written() const { return out_->written() - written_before_; }

    Waits waits_;
    const std::vector<Source>& sources_;
    std::optional<Output> out_;
    std::optional<AppendedFile> file_;
    uint64_t written_before_ = 0;
};

class StandardOutput : public Stream {
  public:
    StandardOutput(Waits waits, const std::vector<Source>& sources) : Stream(waits, sources) {
        attach(STDOUT_FILENO, "standard output");
    }
};

// Standard output whose reader says what it has kept.
class ConfirmedOutput : public StandardOutput {
  public:
    ConfirmedOutput(Waits waits, const std::vector<Source>& sources, int answers, bool json)
        : StandardOutput(waits, sources), confirmation_(answers, json) {}

    void commit(uint64_t records) override {
        confirmation_.end_batch(records, &out());
        StandardOutput::commit(records);
        confirmation_.await(out().fd());
    }

  private:
    Confirmation confirmation_;
};

// A file of our own. It may be rotated away while records are followed.
class OwnFile : public Stream {
  public:
    OwnFile(Waits waits, const std::vector<Source>& sources, const std::string& path)
        : Stream(waits, sources), path_(path) {
        open_file();
    }

    void begin() override {
        if (!FileId::OfOpen(fd_.get()).is_same_as(FileId::At(path_.c_str())))
            open_file();
        Stream::begin();
    }
    // The file's name is synced also where it was there before: whoever made it may not have.
    void commit(uint64_t records) override {
        Stream::commit(records);
        if (name_is_synced_)
            return;
        char real[PATH_MAX];
        const bool found = realpath(path_.c_str(), real) != nullptr;
        if (!found || !SyncDirectoryOf(real))
            throw Failure{kOutput,
                          "syncing failed: " + SystemError(std::string(DirectoryOf(path_)), errno)};
        name_is_synced_ = true;
    }

  private:
    void open_file() {
        constexpr int kFlags = O_RDWR | O_APPEND | O_NOCTTY | O_CLOEXEC;
        UniqueFd fd(open(path_.c_str(), kFlags | O_CREAT | O_EXCL, 0640));
        const bool is_new = static_cast<bool>(fd);
        if (!fd && errno == EEXIST)
            fd.reset(open(path_.c_str(), kFlags));
        if (!fd)
            throw Failure{kOutput, SystemError(path_, errno)};
        try {
            attach(fd.get(), path_);
        } catch (const Failure& failure) {
            // The log was not there yet, and must not be made by us.
            if (is_new && failure.status == kUsage)
                (void) unlink(path_.c_str());
            throw;
        }
        fd_ = std::move(fd);
        name_is_synced_ = false;
    }

    std::string path_;
    UniqueFd fd_;
    bool name_is_synced_ = false;
};

}  // namespace

std::unique_ptr<Destination> OpenDestination(const Globals& globals, const TakeOptions& options,
                                             const std::vector<Source>& sources) {
    const Waits waits = options.follow ? Waits::kInterruptibly : Waits::kPlainly;
    const bool to_file = !options.output.empty() && options.output != "-";
    if (to_file + !options.command.empty() + options.answers.has_value() > 1)
        throw Failure{kUsage, "--output, --exec and --ack-fd exclude each other"};
    if (to_file)
        return std::make_unique<OwnFile>(waits, sources, options.output);
    if (!options.command.empty())
        return std::make_unique<Consumer>(waits, options.command);
    if (options.answers)
        return std::make_unique<ConfirmedOutput>(waits, sources, *options.answers, globals.json);
    return std::make_unique<StandardOutput>(waits, sources);
}

}  // namespace korx::tool
