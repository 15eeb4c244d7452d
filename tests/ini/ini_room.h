#pragma once

#include <syslog.h>

#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {

constexpr uint32_t kFailed = 0x0FFFFFFF;
using Lines = std::vector<SyslogLine>;

inline SyslogLine Err(const std::string& text) {
    return {LOG_ERR, "[0] " + text + "\n"};
}

}  // namespace korx::test
