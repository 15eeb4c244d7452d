// A stand-in for the platform's agent library: it appends each report to a file, one line each, in
// one write, so that the processes' lines never mix.
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

extern "C" __attribute__((visibility("default"))) uint32_t IM_Agent_ReportLogById(
    uint32_t log_type, uint32_t log_id, const char* format, ...) {
    char line[2048];
    int length = snprintf(line, sizeof line, "%u 0x%x ", log_type, log_id);
    va_list args;
    va_start(args, format);
    length += vsnprintf(line + length, sizeof line - static_cast<size_t>(length) - 1, format, args);
    va_end(args);
    line[length++] = '\n';
    const int fd =
        open("/opt/demo/agent.received", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    const bool written = write(fd, line, static_cast<size_t>(length)) == length;
    close(fd);
    return written ? 0 : 1;
}
