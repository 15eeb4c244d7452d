// The ring that the diagnostic record, security and life-cycle logs share. What is published of it
// (opening, heads, storing) is in korx/plog.h.
#pragma once

#include <stdarg.h>
#include <stdint.h>

#include "base/fork.h"
#include "format/kinds.h"
#include "korx/plog.h"

namespace korx {

// A ring log of this process. Its own file says how a lock that cannot be had or given back is
// reported, because the three logs say it in words of their own.
struct RingLog {
    LOG_INFO_S* info;
    int* fd;
    ForkMutex* mutex;
    Unread unread;
    uint32_t (*report_refused_lock)();  // gives the result
    void (*report_unlock)();
};

// Appends one record: mutex, open file, assembled text, locked file, store.
[[gnu::format(printf, 2, 0)]] uint32_t AppendToRing(const RingLog& log, const char* format,
                                                    va_list args);

}  // namespace korx
