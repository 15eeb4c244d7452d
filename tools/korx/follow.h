// Waiting for changes of files without ever looking at them.
#pragma once

#include <string>
#include <vector>

#include "base/unique.h"
#include "sources.h"

namespace korx::tool {

class Follower {
  public:
    // Watches from now on: what is written after this is not missed. Throws Failure.
    explicit Follower(const std::vector<Source>& sources);

    // Sleeps until some of the files change and returns their indexes. Throws Stopped, and
    // ClosedPipe when nobody reads from out_fd any more.
    std::vector<size_t> wait(int out_fd);

  private:
    struct Watched {
        std::string path;
        std::string file;
        int directory = -1;  // watch descriptors
        int content = -1;
    };

    void watch_content(Watched& watched);
    void take_events(std::vector<bool>* changed);

    UniqueFd fd_;
    std::vector<Watched> files_;
};

}  // namespace korx::tool
