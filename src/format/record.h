// What records are made of: the levels' names, the lengths, and the ids under which the agent and
// the rings know the two logs of the library itself.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace korx {

// The room of a product-log record, its terminator included, and so the longest record.
inline constexpr int kRecordRoom = 600;
inline constexpr uint32_t kMaxRecord = kRecordRoom - 1;

// The diagnostic text log: the longest line, and with its line end; its head is the count of bytes.
inline constexpr size_t kMaxTextLength = 1022;
inline constexpr uint32_t kMaxTextLine = kMaxTextLength + 1;
inline constexpr uint32_t kTextHeadSize = sizeof(uint32_t);

// By level. The two families differ in the name of 3 and in what a higher level is.
inline constexpr const char* kRecordLevels[] = {"DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};
inline constexpr const char* kTextLevels[] = {"DEBUG", "INFO", "WARNING", "ERR"};

// What stands in a record, behind the time stamp of its kind.
inline constexpr char kEventFormat[] =  // index, component id, level, location, M, value, message
    "[Index:%#x][AppCid:%u][%s][L:%u M:%u][%u]%s\n";
inline constexpr char kStartFormat[] =  // level, location, module, value, message
    "[%s][L:%u %s][%u]%s\n";
inline constexpr char kOwnProcessFormat[] =  // level, location, M, value, message
    "[%s][L:%u M:%u][%u]%s\n";
inline constexpr char kNamedProcessFormat[] =  // location, M, level, value, message
    "[L:%u M:%u][%s][%u]%s\n";
inline constexpr char kTextFormat[] =  // the stamp itself, process id, module, level, message
    "%s [ProcID:%d|%u|%s] : %s";

inline constexpr uint32_t kDiagIndex = 0x37741004;
inline constexpr uint32_t kStartLogId = 0x37741005;

}  // namespace korx
