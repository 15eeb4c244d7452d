#pragma once

#include <fcntl.h>
#include <syslog.h>

#include <set>

#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {

constexpr uint32_t kFailed = 0x0FFFFFFF;
using Lines = std::vector<SyslogLine>;

inline SyslogLine Err(const std::string& text) {
    return {LOG_ERR, "[0] " + text + "\n"};
}

// The descriptors that are open now: what a failed call must leave as it found them.
inline std::set<int> OpenFiles() {
    const Untapped untapped;
    openlog(nullptr, LOG_NDELAY, LOG_USER);  // or the first report would open one that stays
    std::set<int> open;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0)
            open.insert(fd);
    }
    return open;
}

}  // namespace korx::test
