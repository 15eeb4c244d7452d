// A stand-in for the platform's agent library: it appends each report to a file, one line each, in
// one write, so that the processes' lines never mix.
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "demo.h"

extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) uint32_t
IM_Agent_ReportLogById(uint32_t log_type, uint32_t log_id, const char* format, ...) {
    char line[2048];
    const int head = snprintf(line, sizeof line, "%u 0x%x ", log_type, log_id);
    va_list args;
    va_start(args, format);
    const int text = vsnprintf(line + head, sizeof line - static_cast<size_t>(head), format, args);
    va_end(args);
    if (text < 0)
        return 1;
    size_t length = std::min(static_cast<size_t>(head + text), sizeof line - 1);
    line[length++] = '\n';  // in the place of the terminator

    const int fd = open(demo::kAgentFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    const bool written = write(fd, line, length) == static_cast<ssize_t>(length);
    close(fd);
    return written ? 0 : 1;
}
