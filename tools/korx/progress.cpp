#include "progress.h"

#include <unistd.h>

#include "when.h"

namespace korx::tool {
namespace {

constexpr int64_t kFirstUs = 500000;
constexpr int64_t kBetweenUs = 200000;

void Tell(const std::string& text) {
    (void) !write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

Progress::Progress(std::string what)
    : what_(std::move(what)),
      shows_(isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) == 0),
      next_us_(NowMicroseconds() + kFirstUs) {
}

void Progress::show(uint64_t total) {
    const int64_t now = NowMicroseconds();
    if (now < next_us_)
        return;
    next_us_ = now + kBetweenUs;
    shown_ = true;
    Tell("\r\033[Kkorx: " + what_ + ": " + std::to_string(done_) + " of " + std::to_string(total) +
         " records");
}

void Progress::clear() {
    if (shown_)
        Tell("\r\033[K");
    shown_ = false;
}

}  // namespace korx::tool
