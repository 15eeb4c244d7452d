#include "output.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "signals.h"
#include "text.h"

namespace korx::tool {

void Output::wait_writable() const {
    pollfd waiting{fd_, POLLOUT, 0};
    if (PollOrStop(&waiting, 1) == Wake::kStop)
        throw Stopped{};
}

void Output::flush() {
    // A pipe that polls writable takes this much without blocking.
    constexpr size_t kPipeRoom = 4096;
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        if (interruptible_)
            wait_writable();
        const size_t size = interruptible_ ? std::min(rest.size(), kPipeRoom) : rest.size();
        const ssize_t count = ::write(fd_, rest.data(), size);
        if (count > 0) {
            rest.remove_prefix(static_cast<size_t>(count));
            written_ += static_cast<size_t>(count);
            continue;
        }
        const int error = count == 0 ? ENOSPC : errno;
        if (error == EINTR)
            continue;
        if (error == EAGAIN) {
            wait_writable();
            continue;
        }
        buffer_.clear();
        if (error == EPIPE)
            throw ClosedPipe{};
        throw Failure{kOutput, name_ + ": writing failed after " + std::to_string(written_) +
                                   " bytes: " + strerror(error)};
    }
    buffer_.clear();
}

void Output::sync() {
    flush();
    struct stat st;
    if (fstat(fd_, &st) == 0 && S_ISREG(st.st_mode) && fsync(fd_) < 0)
        throw Failure{kOutput, name_ + ": syncing failed: " + strerror(errno)};
}

bool WantsColor(int fd) {
    const char* const no_color = getenv("NO_COLOR");
    if (no_color != nullptr && no_color[0] != '\0')
        return false;
    const char* const terminal = getenv("TERM");
    return isatty(fd) == 1 && (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}

std::string SystemError(const std::string& path, int error) {
    return path + ": " + strerror(error);
}

void Complain(const std::string& text) {
    constexpr std::string_view kName = "korx: ";
    const size_t width = TerminalWidth(STDERR_FILENO);
    const bool fits = kName.size() + text.size() <= width;
    const std::string line =
        std::string(kName) +
        (fits ? text + "\n" : Wrapped(text, width, kName.size(), kName.size()));
    (void) !::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace korx::tool
