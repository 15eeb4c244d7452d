#include "reader/shape.h"

#include <algorithm>
#include <iterator>

namespace korx {
namespace {

// In the order in which a file is held against them: a message may hold whatever another shape
// begins with, so the shapes that are told by the first bytes of a file come first.
constexpr const ShapeOperations* kShapes[] = {&kPlainShape, &kStartShape, &kReserveShape,
                                              &kRingShape, &kTextShape};
static_assert(std::size(kShapes) == static_cast<size_t>(Shape::kReserve), "each shape has one");

}  // namespace

LogFormat FormatOf(korx_log_kind kind) {
    const LogKind& row = KindOf(kind);
    const auto* const found =
        std::find_if(std::begin(kShapes), std::end(kShapes),
                     [&](const ShapeOperations* shape) { return shape->shape == row.shape; });
    return {&row, found == std::end(kShapes) ? nullptr : *found};
}

// Logs of one shape look alike, the first kind then stands for all of them.
korx_log_kind GuessKind(std::string_view beginning) {
    for (const ShapeOperations* const shape : kShapes) {
        const LogKind* const kind =
            std::find_if(std::begin(kKinds), std::end(kKinds),
                         [&](const LogKind& row) { return row.shape == shape->shape; });
        if (shape->begins_file({kind, shape}, beginning))
            return kind->kind;
    }
    return KORX_LOG_AUTO;
}

}  // namespace korx
