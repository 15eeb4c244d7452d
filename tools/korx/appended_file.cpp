#include "appended_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korx::tool {
namespace {

[[noreturn]] void Fail(const std::string& name) {
    throw Failure{kOutput, SystemError(name, errno)};
}

}  // namespace

// Standard output may be open for writing only, and is shared with whoever has started us: a lock
// on it would exclude none of them, and would outlive us. So the file is opened once more, if it
// can be, to be locked and read. It is not written to through this: the others would not move
// along.
AppendedFile::AppendedFile(int fd, std::string name)
    : fd_(fd),
      name_(std::move(name)),
      own_(open(("/proc/self/fd/" + std::to_string(fd)).c_str(),
                O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (flock(own_ ? own_.get() : fd_, LOCK_EX | LOCK_NB) == 0)
        return;
    if (errno == EWOULDBLOCK)
        throw Failure{kOutput, name_ + ": another korx writes to it"};
    Fail(name_ + ": locking failed");
}

// Where it cannot be read the worst is assumed: an empty line does less harm than a lost record.
bool AppendedFile::ends_inside_line() const {
    char last = '\n';
    if (start_ == 0 || pread(own_ ? own_.get() : fd_, &last, 1, start_ - 1) == 1)
        return last != '\n';
    return start_ != line_end_;
}

void AppendedFile::begin(Output* out) {
    struct stat st;
    if (fstat(fd_, &st) < 0)
        Fail(name_);
    const int flags = fcntl(fd_, F_GETFL);
    if (flags < 0)
        Fail(name_);
    start_ = (flags & O_APPEND) != 0 ? st.st_size : lseek(fd_, 0, SEEK_CUR);
    if (start_ < 0)
        Fail(name_);
    is_at_end_ = start_ == st.st_size;
    if (ends_inside_line())
        out->buffer() += '\n';
}

// Only while nothing but our own bytes stands behind the beginning: others append to standard
// output, too.
bool AppendedFile::take_back(uint64_t written) {
    struct stat st;
    const bool is_ours =
        is_at_end_ && fstat(fd_, &st) == 0 && st.st_size == start_ + static_cast<off_t>(written);
    return is_ours && ftruncate(fd_, start_) == 0 && lseek(fd_, start_, SEEK_SET) == start_;
}

}  // namespace korx::tool
