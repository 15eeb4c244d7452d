// The least that an outside reader of the security and life-cycle logs does: under the file's
// record lock it copies what is unread and only then moves uiDumpLen behind it. It runs as a
// process of its own: in a process that also logs, closing the file would drop the library's lock.
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <unistd.h>

#include "demo.h"
#include "korx/plog.h"

namespace demo {
namespace {

constexpr size_t kBiggestLog = 1 << 20;
constexpr useconds_t kRoundUs = 5000;

std::string Part(const std::string& data, size_t from, size_t to) {
    return from < to && to <= data.size() ? data.substr(from, to - from) : "";
}

bool Append(const std::string& path, const std::string& text) {
    FILE* const out = fopen(path.c_str(), "ae");
    if (out == nullptr)
        return false;
    const bool written = fwrite(text.data(), 1, text.size(), out) == text.size();
    return fclose(out) == 0 && written;
}

// The caller holds the file's lock. The data area is small enough to be read whole.
void TakeUnread(int fd, const std::string& copy) {
    LOG_HEAD_S head = {};
    std::string data(kBiggestLog, '\0');
    const bool has_head = pread(fd, &head, sizeof head, 0) == ssize_t{sizeof head};
    const ssize_t size = pread(fd, data.data(), data.size(), sizeof head);
    if (!has_head || size < 0)
        return;
    data.resize(static_cast<size_t>(size));

    // Once the writers have started a new lap, the rest of the old one comes first.
    const bool new_lap = head.uiLogLen < head.uiDumpLen;
    const std::string unread =
        new_lap ? Part(data, head.uiDumpLen, head.uiTotalLen) + Part(data, 0, head.uiLogLen)
                : Part(data, head.uiDumpLen, head.uiLogLen);
    if (unread.empty() || !Append(copy, unread))
        return;
    // With the writers at the start of a lap, "all read" is told by the end of the lap before.
    head.uiDumpLen = head.uiLogLen == 0 ? head.uiTotalLen : head.uiLogLen;
    if (pwrite(fd, &head.uiDumpLen, sizeof head.uiDumpLen, offsetof(LOG_HEAD_S, uiDumpLen)) < 0)
        perror("the reader's mark");
}

void Take(const std::string& log, const std::string& copy) {
    const int fd = open(log.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    if (DBG_LockReg(fd, F_SETLKW, F_WRLCK, 0, SEEK_SET, 0) == 0)
        TakeUnread(fd, copy);
    close(fd);  // releases the lock
}

}  // namespace

int RunReader() {
    const auto exists = [](const std::string& path) { return access(path.c_str(), F_OK) == 0; };
    // Late on purpose: a log that nobody reads must have refused an event first.
    while (!exists(kRefusedFile) && !exists(kStopFile))
        usleep(kRoundUs);
    for (bool stopping = false; !stopping; usleep(kRoundUs)) {
        stopping = exists(kStopFile);
        Take(kLogDir + "/korx_safe.log", kTakenDir + "/security");
        Take(kLogDir + "/korx_life.log", kTakenDir + "/life");
    }
    return 0;
}

}  // namespace demo
