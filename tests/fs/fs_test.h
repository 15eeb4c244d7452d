// What the tests of this room share.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <functional>

#include "korx/fs.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {

constexpr uint32_t kFailed = 0x0FFFFFFF;
constexpr uint32_t kInvalidParam = 0x71000002;

struct FsTest : RoomTest {
    // What was logged since the last call: each line as "E message\n", W and I for the lower
    // levels.
    std::string logged() {
        std::string all;
        for (const SyslogLine& line : syslog.lines())
            all += "???EW?I"[line.priority] +
                   (" " + line.text.substr(line.text.starts_with("[0] ") ? 4 : 0));
        syslog.clear();
        return all;
    }
    // Just the levels of these lines.
    std::string levels() {
        std::string all;
        for (const SyslogLine& line : syslog.lines())
            all += "???EW?I"[line.priority];
        syslog.clear();
        return all;
    }
};

}  // namespace korx::test
