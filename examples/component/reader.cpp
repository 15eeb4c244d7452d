// The least that an outside reader of the security and life-cycle logs does: under the file's
// record lock it copies what is unread and moves uiDumpLen behind it. It runs as a process of its
// own: in a process that also logs, closing the file would drop the library's lock.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "demo.h"
#include "korx/plog.h"

namespace demo {
namespace {

constexpr int kTypeWrite = F_WRLCK;

// Takes what is unread. The data area is small enough to be read whole.
std::string Take(int fd) {
    if (DBG_LockReg(fd, F_SETLKW, kTypeWrite, 0, SEEK_SET, 0) != 0)
        return "";
    LOG_HEAD_S head = {};
    std::string data(1 << 20, '\0');
    const bool has_head = pread(fd, &head, sizeof head, 0) == ssize_t{sizeof head};
    const ssize_t size = pread(fd, data.data(), data.size(), sizeof head);
    std::string taken;
    if (has_head && size > 0) {
        data.resize(static_cast<size_t>(size));
        uint32_t from = head.uiDumpLen;
        if (head.uiLogLen < from) {  // the writer has started a new lap
            taken = data.substr(from, head.uiTotalLen - from);
            from = 0;
        }
        taken += data.substr(from, head.uiLogLen - from);
        // With the writer at the start of a lap, "all read" is told by the end of the lap before.
        head.uiDumpLen = head.uiLogLen == 0 ? head.uiTotalLen : head.uiLogLen;
        if (pwrite(fd, &head, sizeof head, 0) != ssize_t{sizeof head})
            taken.clear();
    }
    DBG_LockReg(fd, F_SETLK, F_UNLCK, 0, SEEK_SET, 0);
    return taken;
}

void TakeInto(const std::string& log, const std::string& copy) {
    const int fd = open(log.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    const std::string taken = Take(fd);
    close(fd);
    FILE* const out = fopen(copy.c_str(), "ae");
    if (out == nullptr)
        return;
    fwrite(taken.data(), 1, taken.size(), out);
    fclose(out);
}

}  // namespace

int RunReader() {
    bool last;
    do {
        last = access((kRoot + "/stop").c_str(), F_OK) == 0;
        TakeInto(kLogDir + "/korx_safe.log", kTakenDir + "/security");
        TakeInto(kLogDir + "/korx_life.log", kTakenDir + "/life");
        usleep(5000);
    } while (!last);
    return 0;
}

}  // namespace demo
