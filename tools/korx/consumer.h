// A command that gets each batch on its standard input, and says with its exit status whether it
// has kept it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "base/unique.h"
#include "destination.h"

namespace korx::tool {

// The words of a command line: divided by blanks, kept together by single or double quotes, and
// with a backslash outside of single quotes before what is meant as it is. Nothing is expanded.
// Throws Failure.
std::vector<std::string> SplitWords(const std::string& line);

class Consumer : public Destination {
  public:
    Consumer(Waits waits, const std::string& line);
    ~Consumer() override { (void) Consumer::take_back(); }

    void begin() override;
    Output& out() override { return *out_; }
    void commit(uint64_t records) override;
    // A command that was started may have done anything.
    bool take_back() override;
    std::string closed() const override;

  private:
    int wait_for_end();

    Waits waits_;
    std::vector<std::string> words_;
    pid_t pid_ = 0;  // 0: none is running
    bool was_started_ = false;
    UniqueFd input_;
    std::optional<Output> out_;
};

}  // namespace korx::tool
