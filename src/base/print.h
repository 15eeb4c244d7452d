#pragma once

#include <stddef.h>

#include "base/arguments.h"

namespace korx {

// What printing gives instead of a length.
constexpr int kTooLong = -1;
constexpr int kNotPlain = -2;

// vsnprintf for the formats that records, lines and messages are made of, at a third of its cost:
// every record prints three times. Plain are %s, %c, %%, %#x, and %d, %u, %x also with "l" and with
// zeros in front up to a width of one digit. Result: the length, at most limit, with the terminator
// behind it; kTooLong; kNotPlain, and then nothing is known of dest and the arguments.
int PrintPlain(char* dest, size_t limit, const char* format, Arguments* args);

}  // namespace korx
