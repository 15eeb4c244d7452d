#include "plog/report.h"

#include <stddef.h>

#include "base/errno_saver.h"
#include "base/report.h"
#include "base/text.h"
#include "korx/plog.h"

namespace korx {
namespace {

constexpr size_t kReportSize = 600;

constexpr const char* kPriorityNames[] = {"LOG_EMERG",   "LOG_ALERT",  "LOG_CRIT", "LOG_ERR",
                                          "LOG_WARNING", "LOG_NOTICE", "LOG_INFO", "LOG_DEBUG"};

}  // namespace

void DbgSysLogV(int priority, const char* format, va_list args) {
    const ErrnoSaver keep;
    FixedText<kReportSize> text;
    if (!text.vformat(format, args))
        return;
    if (priority < LOG_EMERG || priority > LOG_DEBUG)
        priority = LOG_ERR;
    ReportLine(priority, AfterReport::kNothing, "%s", text.c_str());

    FixedText<kReportSize> named;
    if (!named.format("[%s] %s\n", kPriorityNames[priority], text.c_str()))
        return;
    ReportLine(LOG_INFO, AfterReport::kFlushOutput, "%s", named.c_str());
}

}  // namespace korx

using namespace korx;

void DBG_SysLog(int priority, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    DbgSysLogV(priority, format, args.list);
}
