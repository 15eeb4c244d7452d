#include "confirmation.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "json.h"
#include "signals.h"

namespace korx::tool {

Confirmation::Confirmation(int fd, bool json) : fd_(fd), json_(json) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_WRONLY)
        throw Failure{kUsage, "--ack-fd " + std::to_string(fd) + ": is not open for reading"};
}

void Confirmation::refuse(const std::string& why) const {
    throw Failure{kOutput, "--ack-fd " + std::to_string(fd_) + ": " + why};
}

// An answer that is there already was given without having seen the batch, and would be taken for
// its own.
void Confirmation::end_batch(uint64_t records, Output* out) {
    ++batch_;
    pollfd early{fd_, POLLIN, 0};
    char byte;
    if (poll(&early, 1, 0) > 0 && (early.revents & POLLIN) != 0 && read(fd_, &byte, 1) == 1)
        refuse("batch " + std::to_string(batch_) + " was answered before it was written");
    out->buffer() += json_ ? JsonLine({{"batch", batch_}, {"records", records}}) : "\n";
}

void Confirmation::await(int out_fd) const {
    std::string answer;
    while (answer.empty() || answer.back() != '\n') {
        pollfd waiting[] = {{fd_, POLLIN, 0}, {out_fd, 0, 0}};
        if (PollOrStop(waiting, 2) == Wake::kStop)
            throw Stopped{};
        if (waiting[0].revents == 0 && (waiting[1].revents & (POLLERR | POLLHUP)) != 0)
            throw ClosedPipe{};
        // Byte by byte: what stands behind the line end is no answer to this batch.
        char byte;
        const ssize_t count = read(fd_, &byte, 1);
        if (count == 0)
            refuse("closed before batch " + std::to_string(batch_) + " was confirmed");
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            refuse(strerror(errno));
        if (count == 1)
            answer += byte;
    }
    answer.pop_back();
    const bool is_number = !answer.empty() && std::all_of(answer.begin(), answer.end(), [](char c) {
        return '0' <= c && c <= '9';
    });
    if (is_number && answer != std::to_string(batch_))
        refuse("batch " + answer + " was confirmed instead of " + std::to_string(batch_));
}

}  // namespace korx::tool
