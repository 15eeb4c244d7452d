// File protection by descriptor, for callers that must not open a path a second time.
#pragma once

#include "base/unique.h"

namespace korx {

// What KORX_UndoProtectFile does once it has opened the file, messages included: reports a failed
// open (fd holds nothing, errno tells why), then lifts the immutable flag or gives the write right
// through fd alone. path is the file's name in the messages and is not looked up again.
uint32_t UndoProtectOpened(const UniqueFd& fd, const char* path);

// What is told of a file that is not there when its protection is asked for.
void ReportMissing(const char* path);

}  // namespace korx
