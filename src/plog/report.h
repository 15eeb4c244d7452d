// How the product logs report: to the system log, because they are the road of every other report.
#pragma once

#include <stdarg.h>
#include <stdint.h>
#include <syslog.h>

#include "base/arguments.h"

namespace korx {

// DBG_SysLog of an argument list.
[[gnu::format(printf, 2, 0)]] void DbgSysLogV(int priority, const char* format, va_list args);

// Reports a product log's failure to the system log and hands its code back.
template <typename Code>
[[gnu::format(printf, 2, 3)]] Code DbgFail(Code code, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    DbgSysLogV(LOG_ERR, format, args.list);
    return code;
}

}  // namespace korx
