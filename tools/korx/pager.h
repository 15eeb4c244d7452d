// Long output on a terminal, a page at a time.
#pragma once

#include <sys/types.h>

#include "base/unique.h"

namespace korx::tool {

// While it lives, standard output, and standard error where that is the terminal, too, go to
// KORX_PAGER, else PAGER, else less, by way of the shell. There is none where standard output is no
// terminal, where the pager is "" or "cat", and where it was not chosen and is not installed.
//
// SIGINT belongs to the pager meanwhile: less would otherwise be left alone with the terminal.
class Pager {
  public:
    Pager();
    // Waits until the reader has seen enough.
    ~Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

  private:
    pid_t child_ = 0;
    UniqueFd output_;  // the standard streams as they were
    UniqueFd error_;
};

}  // namespace korx::tool
