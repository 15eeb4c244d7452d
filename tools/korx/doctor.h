#pragma once

#include "common.h"

namespace korx::tool {

// Looks at all that the component needs and says whether it is well.
int RunDoctor(const Globals& globals);

}  // namespace korx::tool
