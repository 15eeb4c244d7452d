// A stretch of a log: text in which one record follows the other.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "reader/image.h"

namespace korx {

// How a stretch may begin and end: between two records, or anywhere in one of them. The part of a
// record at such an edge is neither an entry nor damage; at the last edge it may be known that it
// was cut off there, and then it is both.
enum class Edge { kBetweenRecords, kAnywhere, kCut };

// What zeros up to the end of a stretch are: room that was never written, or damage.
enum class ZeroTail { kDamage, kUnwritten };

// What is wanted of a stretch: all there is to find, or just the records that it holds.
enum class Search { kRecordsAndDamage, kRecords };

struct Stretch {
    size_t begin;
    size_t end;
    uint8_t flags = 0;  // of its entries
    uint8_t section = 0;
    Edge first = Edge::kBetweenRecords;
    Edge last = Edge::kBetweenRecords;
    ZeroTail zeros = ZeroTail::kDamage;
    Search search = Search::kRecordsAndDamage;
    int64_t after = INT64_MIN;  // the moment of the record before it
};

// Adds what a stretch holds to entries, and its damage to the image's.
void ReadStretch(const Stretch& stretch, LogImage* image, Array<Entry>* entries);

// Behind the zeros that begin at begin.
size_t ZeroRunEnd(std::string_view bytes, size_t begin, size_t end);
bool AllZero(std::string_view bytes);

// Just behind the next line end; the end of the text where there is none.
size_t LineEndIn(std::string_view text);

}  // namespace korx
