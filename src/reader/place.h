// Where a reader stands in its log.
#pragma once

#include <stddef.h>

#include "reader/reader.h"

namespace korx {

// Which records a step leads to.
enum class Step { kAny, kUnread };

// Goes behind the next such record and returns it; null at the end. What lies before a mark that
// was sought is passed over.
Entry* Advance(Step step, korx_reader* reader);

// Goes behind all but the newest count records. As many as there are: to the beginning.
void SeekNewest(size_t count, korx_reader* reader);

korx_mark MarkOf(const korx_reader& reader);

// Goes behind the marked records. False when one of them is no longer there: of its section all is
// then still to come.
bool SeekMark(const korx_mark& mark, korx_reader* reader);

}  // namespace korx
