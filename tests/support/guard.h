#pragma once

#include <set>
#include <string>

namespace korx::test {

// What the process holds open, to be compared with what it holds later.
class Belongings {
  public:
    Belongings();
    // The descriptors that are open since then, but for the logs', the published mutexes and the
    // file locks that are held; empty when there are none.
    std::string left_behind() const;

  private:
    std::set<int> open_;
};

}  // namespace korx::test
