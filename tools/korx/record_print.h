// Records as lines: for people or as JSON.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "common.h"
#include "korx/reader.h"

namespace korx::tool {

// How records are printed; the words of -o.
enum class Form {
    kShort,  // for people, in columns
    kCat,    // the message alone
    kJson,   // an object a line
};
// Throws Failure for a word that is none.
Form FormOfWord(const std::string& word);

inline constexpr uint32_t kAllFields = UINT32_MAX;
// The set of fields of a record's object that a list such as "time,message" names. Throws Failure.
uint32_t FieldsOfList(const std::string& list);

// What the board is called: as --board says, else KORX_BOARD, else the host's name.
std::string BoardName(const Globals& globals);

struct Style {
    Form form = Form::kShort;
    bool color = false;
    bool with_file = false;        // for people: several logs share the output
    bool utc = false;              // times in UTC instead of the zone of TZ
    uint32_t fields = kAllFields;  // JSON: only these
    std::string board;             // JSON: stands before the record's id
};

// Appends one record of the reader with its line end. file: the log's name.
void AppendRecord(std::string& out, const korx_reader* reader, const korx_record& record,
                  std::string_view file, const Style& style);

// "debug", "info", "warning", "error", "fatal".
std::string_view SeverityName(uint32_t level);

// Appends what stands in the log's place of records that nobody took in time.
void AppendGap(std::string& out, const korx_reader_info& info, bool lost_is_known,
               std::string_view file);

}  // namespace korx::tool
