#pragma once

#include <stdarg.h>

namespace korx {

// The arguments behind a function's last named one, ended with their scope:
//     Arguments args;
//     va_start(args.list, format);
// va_start cannot move into a constructor, because it reads the frame of the function that it
// stands in. va_end can: on the ABIs that the library is built for it only ends the list's use.
struct Arguments {
    Arguments() = default;
    ~Arguments() { va_end(list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    va_list list;
};

}  // namespace korx
