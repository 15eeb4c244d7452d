// Waiting for changes of files without ever looking at them.
#pragma once

#include <string>
#include <vector>

#include "base/unique.h"
#include "signals.h"
#include "sources.h"

namespace korx::tool {

class Follower {
  public:
    // Watches from now on: what is written after this is not missed. Throws Failure.
    explicit Follower(const std::vector<Source>& sources);

    // Sleeps until some of the files change and returns their indexes; none when end_us comes
    // first. Under steady writing it comes back at most every kPause, so that what was written
    // meanwhile is read at once and writers are not kept waiting for each record. Throws Stopped,
    // and ClosedPipe when nobody reads from out_fd any more.
    std::vector<size_t> wait(int out_fd, int64_t end_us = kNever);

  private:
    struct Watched {
        std::string path;
        std::string file;
        int directory = -1;  // watch descriptors
        int content = -1;
    };

    static constexpr int64_t kPause = 25000;

    bool sleep(int out_fd, int64_t end_us, bool for_changes) const;
    void watch_content(Watched& watched);
    void take_events(std::vector<bool>* changed);

    UniqueFd fd_;
    std::vector<Watched> files_;
    int64_t next_us_ = 0;  // not earlier than this
};

}  // namespace korx::tool
