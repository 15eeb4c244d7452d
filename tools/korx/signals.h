// SIGINT and SIGTERM as the way to end a command that follows.
#pragma once

#include <poll.h>

namespace korx::tool {

enum class Wake { kReady, kStop };

// From now on the two signals make PollOrStop return kStop instead of ending the process.
void CatchStopSignals();

// Whether a stop signal came.
bool StopRequested();

// Waits, without a time-out, until one of the descriptors is ready or a stop signal came; also one
// that came before.
Wake PollOrStop(pollfd* waiting, unsigned count);

}  // namespace korx::tool
