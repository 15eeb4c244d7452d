// Where taken records go, and when they have arrived there.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "log_commands.h"
#include "output.h"
#include "sources.h"

namespace korx::tool {

// Takes batches, one after the other. A batch arrives as a whole or not at all, so that it can be
// acknowledged as a whole; until then all calls may throw Failure, ClosedPipe or Stopped, and what
// was written of it is to be taken back.
class Destination {
  public:
    virtual ~Destination() = default;

    virtual void begin() = 0;
    virtual Output& out() = 0;
    // Returns once the batch has arrived. records: how many are in it.
    virtual void commit(uint64_t records) = 0;
    // Whether nothing is left of what was written since begin; also after a commit.
    virtual bool take_back() = 0;
    // A descriptor whose end ends a wait for more records; -1: there is none.
    virtual int watched() const { return -1; }
    // What to say of a ClosedPipe.
    virtual std::string closed() const { return "the output was closed"; }
};

// Whether SIGINT and SIGTERM end a wait for room or for an answer.
enum class Waits { kPlainly, kInterruptibly };

// As the options say: a file, a command, or standard output. None of the sources may be the output.
// Throws Failure.
std::unique_ptr<Destination> OpenDestination(const Globals& globals, const TakeOptions& options,
                                             const std::vector<Source>& sources);

}  // namespace korx::tool
