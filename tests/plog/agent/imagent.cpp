// A stand-in for the agent's client library: it keeps the last report as text.
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

extern "C" {

char received[2048];

uint32_t IM_Agent_ReportLogById(uint32_t log_type, uint32_t log_id, const char* format, ...) {
    const int prefix = snprintf(received, sizeof received, "%u %u ", log_type, log_id);
    va_list args;
    va_start(args, format);
    vsnprintf(received + prefix, sizeof received - static_cast<size_t>(prefix), format, args);
    va_end(args);
    return 77;
}
}
