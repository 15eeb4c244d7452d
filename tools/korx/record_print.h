// Records as lines: for people or as JSON.
#pragma once

#include <string>
#include <string_view>

#include "korx/reader.h"

namespace korx::tool {

struct Style {
    bool json = false;
    bool color = false;
    bool with_file = false;  // for people: several logs share the output
};

// Appends one record with its line end. file: the log's name without its directory.
void AppendRecord(std::string& out, const korx_record& record, std::string_view file,
                  const Style& style);

// "debug", "info", "warning", "error", "fatal".
std::string_view SeverityName(uint32_t level);

// Appends what stands in the log's place of records that nobody took in time.
void AppendGap(std::string& out, const korx_reader_info& info, bool lost_is_known,
               std::string_view file);

}  // namespace korx::tool
