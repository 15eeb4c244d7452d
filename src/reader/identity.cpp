// A record never moves, and what is made of it here is what stands in the file: not the moment,
// which depends on the reader's time zone, and not its number, which depends on what is left.
#include "reader/identity.h"

#include <inttypes.h>

#include "base/bounded.h"
#include "reader/mark.h"

namespace korx {
namespace {

constexpr size_t kLongestStamp = 40;

struct WrittenStamp {
    char text[kLongestStamp];
};

// Without its brackets, and without the blank in it: an id is one word. Of damaged text there is
// none.
WrittenStamp StampOf(const korx_record& record) {
    WrittenStamp stamp = {"-"};
    if ((record.fields & KORX_FIELD_TIME) == 0)
        return stamp;
    size_t length = 0;
    while (length + 2 < record.length && length + 1 < kLongestStamp &&
           record.text[length + 1] != ']') {
        const char c = record.text[length + 1];
        stamp.text[length++] = c == ' ' ? 'T' : c;
    }
    stamp.text[length] = '\0';
    return stamp;
}

}  // namespace

bool FormatId(const korx_reader& reader, const korx_record& record, char* id, size_t size) {
    const bool file_names_it = reader.image.format.shape->source_name == SourceName::kInFileName;
    const char* const process = file_names_it ? reader.names.process.get() : nullptr;
    return sprintf_s(id, size, "%s%s%s:%s:%016" PRIx64 ":%" PRIu64, KindOf(record.kind).name,
                     process == nullptr ? "" : "/", process == nullptr ? "" : process,
                     StampOf(record).text, HashRecord({record.text, record.length}),
                     record.offset) >= 0;
}

}  // namespace korx
