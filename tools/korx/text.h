// Texts as they appear in the output: JSON strings, safe terminal text, times, sizes.
#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <string_view>

namespace korx::tool {

// Appends a JSON string with its quotes. Bytes that are not UTF-8 become U+FFFD.
void AppendJsonString(std::string& out, std::string_view text);

// Appends text for people. Line ends are followed by indent blanks; other control characters, with
// which a log line could drive a terminal, and bytes that are not UTF-8 become \xNN.
void AppendPlain(std::string& out, std::string_view text, size_t indent);

void AppendNumber(std::string& out, uint64_t number);
// Padded with blanks on the left.
void AppendPadded(std::string& out, uint64_t number, size_t width);
void AppendHex8(std::string& out, uint32_t number);

enum class TimeForm {
    kHuman,    // "2024-03-05 14:07:09.004211"
    kRfc3339,  // "2024-03-05T14:07:09.004211+01:00"
};
void AppendTime(std::string& out, const timespec& time, int32_t utc_offset, TimeForm form);

std::string NowRfc3339();

// Columns of the terminal at this descriptor; SIZE_MAX for what is none.
size_t TerminalWidth(int fd);

// Breaks text between its words into lines that begin with indent blanks; the first one continues
// at column. Ends with a line end.
std::string Wrapped(const std::string& text, size_t width, size_t indent, size_t column);

// A row of a table that ends with a path and perhaps a note. A terminal that is too narrow for it
// gets the path in a line of its own: one that is broken in the middle can be neither read nor
// copied. columns: with the blanks that lead to the path.
std::string TableRow(const std::string& columns, const std::string& path, const std::string& note,
                     size_t width);

// "262144" as "256.0K", for people.
std::string HumanSize(uint64_t bytes);

}  // namespace korx::tool
