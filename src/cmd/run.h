#pragma once

namespace korx {

// What system() does and returns: -1 with errno, or the wait status of a shell that ran the command
// line. Unlike system() it shares its dispositions with the runs of programs: two that save and
// restore the same ones by themselves leave the signals ignored for ever.
int RunShell(const char* command);

}  // namespace korx
