// A line on the terminal's last row that says how far long work has come.
#pragma once

#include <stdint.h>

#include <string>

namespace korx::tool {

// Silent unless standard error is a terminal and standard output is none, and for the first half
// second.
class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void step(uint64_t total) {
        if (shows_ && (++done_ & 1023) == 0)
            show(total);
    }
    void clear();

  private:
    void show(uint64_t total);

    std::string what_;
    bool shows_;
    bool shown_ = false;
    uint64_t done_ = 0;
    int64_t next_us_;
};

}  // namespace korx::tool
