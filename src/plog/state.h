// What this process is set up to be.
#pragma once

namespace korx {

// Whether this process's records stay in local files: then the agent is never bound.
bool IsLocalMode();

}  // namespace korx
