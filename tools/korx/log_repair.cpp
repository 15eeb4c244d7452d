// korx log repair: gives a ring whose head no writer can go on from a sound one, once its records
// have been handed out.
#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "destination.h"
#include "format/kinds.h"
#include "log_commands.h"
#include "record_print.h"
#include "sources.h"

namespace korx::tool {
namespace {

// Takes the records from the library, through which no exception may pass.
class Keeper {
  public:
    Keeper(Destination* destination, const Source& source, const Style& style)
        : destination_(destination), source_(source), style_(style) {}

    static int Keep(void* self, const korx_reader* reader, const korx_record* record) {
        auto* const keeper = static_cast<Keeper*>(self);
        try {
            keeper->keep(reader, record);
            return 0;
        } catch (const Failure& failure) {
            keeper->trouble_ = failure.text;
        } catch (const ClosedPipe&) {
            keeper->trouble_ = keeper->destination_->closed();
        }
        return 1;
    }
    const std::string& trouble() const { return trouble_; }
    void take_back() {
        if (records_ > 0)
            (void) destination_->take_back();
    }

  private:
    void keep(const korx_reader* reader, const korx_record* record) {
        if (record == nullptr) {
            if (records_ > 0)
                destination_->commit(records_);
            return;
        }
        if (records_++ == 0)
            destination_->begin();
        AppendRecord(destination_->out().buffer(), reader, *record, source_.file, style_);
        destination_->out().flush_if_full();
    }

    Destination* destination_;
    const Source& source_;
    const Style style_;
    uint64_t records_ = 0;
    std::string trouble_;
};

int StatusOf(korx_reader_code code) {
    switch (code) {
        case KORX_READER_ARGUMENT:
            return kUsage;
        case KORX_READER_OPEN:
        case KORX_READER_NOT_REGULAR:
        case KORX_READER_READ:
        case KORX_READER_LOCKED:
        case KORX_READER_UNKNOWN:
            return kInput;
        case KORX_READER_REFUSED:
            return kOutput;
        default:
            return kUnchanged;
    }
}

int RepairOne(const Source& source, Destination* destination, const Style& style) {
    Keeper keeper(destination, source, style);
    korx_reader_repaired repaired = {};
    korx_reader_error error = {};
    const korx_reader_code code = korx_reader_repair(source.path.c_str(), source.kind, nullptr,
                                                     Keeper::Keep, &keeper, &repaired, &error);
    if (code == KORX_READER_SOUND) {
        Complain(source.path + ": its head is sound, there is nothing to repair");
        return kWell;
    }
    const bool is_done = code == KORX_READER_OK || code == KORX_READER_UNSURE;
    if (!is_done) {
        keeper.take_back();
        throw Failure{StatusOf(code),
                      error.text + (keeper.trouble().empty() ? "" : ": " + keeper.trouble())};
    }
    Complain(source.path + ": repaired; " + std::to_string(repaired.records) +
             " records were handed out, and the damaged file is kept as " + repaired.copy);
    if (code == KORX_READER_UNSURE)
        Complain(error.text);
    return code == KORX_READER_OK ? kWell : kFinding;
}

}  // namespace

int RunLogRepair(const Globals& globals, const TakeOptions& options) {
    std::vector<Source> sources = FindSources(globals, options.what);
    if (options.what == kEveryKind)
        std::erase_if(sources, [](const Source& source) { return !IsRing(source.kind); });
    const auto destination = OpenDestination(globals, options, sources);
    const Style style{.form = globals.json ? Form::kJson : Form::kShort,
                      .color = options.output.empty() && WantsColor(STDOUT_FILENO),
                      .with_file = sources.size() > 1,
                      .board = BoardName(globals)};
    int status = kWell;
    for (const Source& source : sources)
        if (source.absence == Absence::kFails || access(source.path.c_str(), F_OK) == 0 ||
            sources.size() == 1)
            status = std::max(status, RepairOne(source, destination.get(), style));
    return status;
}

}  // namespace korx::tool
