// Which records nobody has acknowledged yet.
#pragma once

#include "reader/cursor.h"
#include "reader/image.h"

namespace korx {

// Sets KORX_RECORD_UNREAD in the image's entries, and what the info says about unread records and
// gaps. cursor: null when there is none.
void MarkUnread(LogImage* image, const Cursor* cursor, korx_reader_info* info);

// The entry of a section that a mark stands for, or the number of entries when it is not there.
size_t FindMarked(const LogImage& image, const korx_mark& mark, size_t section);

// Puts an entry into the mark of its section.
void SetMark(const LogImage& image, const Entry& entry, korx_mark* mark);

}  // namespace korx
