#include "reader/image.h"

namespace korx {
namespace {

constexpr size_t kShortRecord = 96;  // few records are shorter

}  // namespace

bool LogImage::analyse() {
    (void) entries.reserve(bytes.size / kShortRecord + 16);
    format.shape->analyse(this);
    return !entries.out_of_memory() && !damage.out_of_memory();
}

}  // namespace korx
