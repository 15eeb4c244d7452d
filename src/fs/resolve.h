// Opening by a name that most often is its own resolution.
#pragma once

#include <sys/types.h>

#include "base/unique.h"

namespace korx {

// Opens, in one call, the file that ORX_GetAbsolutePathAndFileName would lead to, when its answer
// would be the name itself: an absolute name of the usual lengths without "//", ".", ".." and
// backslashes, in which nothing is a link. flags and mode are those of open. For any other name,
// on every failure and where the kernel cannot tell, it returns nothing and reports nothing: such
// a name is to be resolved and opened, and that says what is wrong.
UniqueFd OpenAsNamed(const char* name, int flags, mode_t mode);

}  // namespace korx
