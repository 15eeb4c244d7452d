// A command whose calls fail.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <string>

#ifdef KORX_TAPPED
namespace korx::test {

// What the commands do while it lasts is tapped; what the fault may be stands in tapped.c.
class Tapped {
  public:
    explicit Tapped(const std::string& fault) {
        unlink("calls");
        setenv("LD_PRELOAD", KORX_TAPPED, 1);
        setenv("KORX_FAULT", fault.c_str(), 1);
        setenv("KORX_CALLS", "calls", 1);
    }
    ~Tapped() {
        for (const char* name : {"LD_PRELOAD", "KORX_FAULT", "KORX_CALLS"})
            unsetenv(name);
    }
};

}  // namespace korx::test
#endif
