#pragma once

#include <errno.h>

namespace korx {

// What a step on the system came to: 0, or the errno of the call that failed. Returned, because
// whatever runs between the failing call and the reader of errno may change errno.
struct [[nodiscard]] SystemResult {
    int error = 0;

    // A write that takes nothing fails without an errno.
    static SystemResult Failed() { return {errno != 0 ? errno : EIO}; }
    bool ok() const { return error == 0; }
};

}  // namespace korx
