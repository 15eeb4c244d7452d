// Which records nobody has acknowledged yet.
#pragma once

#include "reader/cursor.h"
#include "reader/image.h"

namespace korx {

// Sets KORX_RECORD_UNREAD in the image's entries, and what the info says about unread records and
// gaps. cursor: null when there is none. Gives what is doubtful about that, KORX_DOUBT_...
uint32_t MarkUnread(LogImage* image, const Cursor* cursor, korx_reader_info* info);

}  // namespace korx
