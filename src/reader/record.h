// How a record begins.
#pragma once

#include <stddef.h>

#include <string_view>

#include "korx/reader.h"
#include "reader/shape.h"
#include "reader/stamp.h"

namespace korx {

// What the head of a record tells beside its fields.
struct RecordHead {
    CivilTime time;
    size_t extent;  // of the whole record where its head tells it, else 0
};

// Whether a record begins where the text does. If so *record gets what its head says, all but the
// moment, for which the record before must be known, and the length of the message; if not, what is
// in it has no meaning.
bool ParseHead(const LogFormat& format, std::string_view text, RecordHead* head,
               korx_record* record);

// Whether a record begins there.
bool BeginsRecord(const LogFormat& format, std::string_view text);

// Whether a damaged record begins there: a stamp with a few bytes wrong before sound fields, or a
// sound stamp before fields of which nearly all are recognised. NOT_A_RECORD: neither.
korx_damage_rule ResemblesHead(const LogFormat& format, std::string_view text);

}  // namespace korx
