// How every room reports: one line at the point of failure, then the code goes up. A line of the
// diagnostic log (LogV, SysLogV) is declared here and made in the log room, so that no room below
// it includes it; what goes to the system log goes out from here.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "base/arguments.h"
#include "base/lock.h"
#include "korx/common.h"

namespace korx {

// What is done when a report has gone out.
enum class AfterReport : char { kNothing, kFlushOutput };

// One line of the system log. Every report of the library goes out here. Keeps errno.
[[gnu::format(printf, 3, 0)]] void Report(int priority, AfterReport after, const char* format,
                                          va_list args);
[[gnu::format(printf, 3, 4)]] inline void ReportLine(int priority, AfterReport after,
                                                     const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    Report(priority, after, format, args.list);
}

constexpr uint32_t kLevelInfo = KORX_LEVEL_INFO;
constexpr uint32_t kLevelWarning = KORX_LEVEL_WARNING;
constexpr uint32_t kLevelErr = KORX_LEVEL_ERR;

// One line of the diagnostic log. Keeps errno.
[[gnu::format(printf, 2, 0)]] void LogV(uint32_t level, const char* format, va_list args);

// One line of the system log at LOG_ERR. Keeps errno.
[[gnu::format(printf, 1, 0)]] void SysLogV(const char* format, va_list args);

[[gnu::format(printf, 2, 3)]] inline void Log(uint32_t level, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    LogV(level, format, args.list);
}

[[gnu::format(printf, 1, 2)]] inline void SysLog(const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    SysLogV(format, args.list);
}

// Report a failure at ERR and hand its code back.
template <typename Code>
[[gnu::format(printf, 2, 3)]] Code Fail(Code code, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    LogV(kLevelErr, format, args.list);
    return code;
}

// The same at WARNING.
template <typename Code>
[[gnu::format(printf, 2, 3)]] Code Warn(Code code, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    LogV(kLevelWarning, format, args.list);
    return code;
}

// The same into the system log: for the writers of the logs themselves.
template <typename Code>
[[gnu::format(printf, 2, 3)]] Code SysFail(Code code, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    SysLogV(format, args.list);
    return code;
}

// Marks the thread as being inside a log writer. A line raised there must not enter the file road
// again: it would recurse, or wait for a lock that the thread holds. It goes to the system log. The
// thread is not cancelled there either.
class LogScope {
  public:
    LogScope() { ++depth_; }
    ~LogScope() { --depth_; }
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;

    static bool inside() { return depth_ != 0; }

  private:
    static constinit thread_local uint32_t depth_;
    const Uncancelled uncancelled_;
};

// Keeps this thread's reports to the system log back until its scope ends, then sends them in their
// order: whoever reads /dev/log may be slow, and what is locked within the scope keeps every
// process waiting. They are kept here, on the stack; a thread-local area of this size would make
// dlopen fail. Where one scope stands within another, the outer one keeps them.
class HeldReports {
  public:
    HeldReports();
    ~HeldReports();
    HeldReports(const HeldReports&) = delete;
    HeldReports& operator=(const HeldReports&) = delete;

  private:
    friend void Report(int priority, AfterReport after, const char* format, va_list args);
    [[gnu::format(printf, 4, 0)]] bool keep(int priority, AfterReport after, const char* format,
                                            va_list args);
    struct Lead {
        int priority;
        AfterReport after;
    };
    void send() const;

    static constinit thread_local HeldReports* current_;
    HeldReports* const outer_;
    size_t used_ = 0;
    char kept_[2048];  // of each report its lead, then its text with the terminator
};

}  // namespace korx
