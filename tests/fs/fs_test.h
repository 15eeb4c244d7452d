// What the tests of files, protection, resolution and links share.
#pragma once

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "korx/fs.h"
#include "support/fixture.h"

namespace korx::test {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalidParam = 0x71000002;

struct FsTest : RoomTest {
    // What was logged since the last call: each line as "E message\n", W and I for the lower
    // levels.
    std::string logged() {
        std::string all;
        for (const SyslogLine& line : syslog.lines())
            all += (line.priority == 3   ? "E "
                    : line.priority == 4 ? "W "
                                         : "I ") +
                   line.text.substr(line.text.rfind("[0] ", 0) == 0 ? 4 : 0);
        syslog.clear();
        return all;
    }
    // The lowest descriptor that is free: the same as before unless a call has left one open.
    static int free_descriptor() {
        openlog(nullptr, LOG_NDELAY, LOG_USER);  // or the first report would leave one
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(fd);
        return fd;
    }
};

}  // namespace korx::test
