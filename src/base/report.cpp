#include "base/report.h"

#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "base/errno_saver.h"
#include "base/text.h"

namespace korx {
namespace {

void Finish(AfterReport after) {
    if (after == AfterReport::kFlushOutput)
        (void) fflush(stdout);
}

}  // namespace

constinit thread_local uint32_t LogScope::depth_ = 0;
constinit thread_local HeldReports* HeldReports::current_ = nullptr;

void Report(int priority, AfterReport after, const char* format, va_list args) {
    const ErrnoSaver keep;
    HeldReports* const held = HeldReports::current_;
    if (held != nullptr) {
        Arguments again;
        va_copy(again.list, args);
        if (held->keep(priority, after, format, again.list))
            return;
    }
    const Uncancelled uncancelled;
    const MutexGuard no_fork_meanwhile(libc_syslog_mutex);
    vsyslog(priority, format, args);
    Finish(after);
}

HeldReports::HeldReports() : outer_(current_) {
    if (outer_ == nullptr)
        current_ = this;
}

HeldReports::~HeldReports() {
    if (outer_ != nullptr)
        return;
    const ErrnoSaver keep;
    current_ = nullptr;
    send();
}

// What does not fit any more goes out at once: early and out of order is better than not at all.
bool HeldReports::keep(int priority, AfterReport after, const char* format, va_list args) {
    const Lead lead = {priority, after};
    const size_t room = sizeof kept_ - used_;
    if (room <= sizeof lead)
        return false;
    char* const text = kept_ + used_ + sizeof lead;
    const size_t text_room = room - sizeof lead;
    const int length = vsnprintf_s(text, text_room, text_room, format, args);
    if (length < 0)
        return false;
    memcpy(kept_ + used_, &lead, sizeof lead);
    used_ += sizeof lead + static_cast<size_t>(length) + 1;
    return true;
}

void HeldReports::send() const {
    for (size_t at = 0; at < used_;) {
        Lead lead;
        memcpy(&lead, kept_ + at, sizeof lead);
        at += sizeof lead;
        ReportLine(lead.priority, lead.after, "%s", kept_ + at);
        at += strlen(kept_ + at) + 1;
    }
}

}  // namespace korx
