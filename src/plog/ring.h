// The ring that the diagnostic record, security and life-cycle logs share. What is published of it
// (opening, heads, storing) is in korx/plog.h.
#pragma once

#include "format/ring.h"
#include "plog/record.h"

namespace korx {

// The arguments: index, component id, level name, location, M value, value, message.
inline constexpr char kEventFormat[] = "[Index:%#x][AppCid:%u][%s][L:%u M:%u][%u]%s\n";

}  // namespace korx
