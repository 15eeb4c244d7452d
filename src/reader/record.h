// How a record of each kind begins.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "format/kinds.h"
#include "korx/reader.h"
#include "reader/stamp.h"

namespace korx {

// A record's stamp and fields.
struct RecordHead {
    CivilTime time;
    uint32_t fields;  // KORX_FIELD_...
    uint32_t level;
    const char* level_name;
    uint32_t index;
    uint32_t app_cid;
    uint32_t location;
    uint32_t m_value;
    uint32_t value;
    int32_t pid;
    uint32_t module;
    const char* name;
    size_t name_length;
    const char* message;  // where it begins
    size_t extent;        // of the whole record where its head tells it, else 0
};

// Whether a record begins at text; length: what there is to look at.
bool ParseHead(korx_log_kind kind, const char* text, size_t length, RecordHead* head);

// Whether a damaged record begins there: a stamp with a few bytes wrong before sound fields, or a
// sound stamp before fields of which nearly all are recognised. NOT_A_RECORD: neither.
korx_damage_rule ResemblesHead(korx_log_kind kind, const char* text, size_t length);

}  // namespace korx
