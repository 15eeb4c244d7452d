#pragma once

#include <stddef.h>

namespace korx {

// The component's processes; the row is the component number and the process's log slot.
constexpr size_t kComponentCount = 5;
constexpr const char* kComponents[kComponentCount] = {"QTMON", "zelk_agent", "ZELK_QR9T", "zelk",
                                                      "DXN"};

// Whether this process's records stay in local files: then the agent is never bound.
bool IsLocalMode();

}  // namespace korx
