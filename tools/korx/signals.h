// SIGINT and SIGTERM as the way to end a command that follows.
#pragma once

#include <poll.h>
#include <stdint.h>

namespace korx::tool {

enum class Wake { kReady, kStop, kTime };

// Moments of the clock that nobody sets, in microseconds.
inline constexpr int64_t kNever = INT64_MAX;
int64_t EndOfWait(double seconds);

// From now on the two signals make PollOrStop return kStop instead of ending the process.
void CatchStopSignals();

// Whether a stop signal came.
bool StopRequested();

// Waits until one of the descriptors is ready, a stop signal came, also one that came before, or
// end_us has come.
Wake PollOrStop(pollfd* waiting, unsigned count, int64_t end_us = kNever);

}  // namespace korx::tool
