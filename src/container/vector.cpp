// A growable array of pointers with numbered slots; a null slot is an empty one.
#include "korx/container.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/alloc.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/unique.h"
#include "container/slots.h"

static_assert(sizeof(ORX_VEC_Vector) == 16);
static_assert(offsetof(ORX_VEC_Vector, uiUsedSlots) == 0);
static_assert(offsetof(ORX_VEC_Vector, uiCapacity) == 4);
static_assert(offsetof(ORX_VEC_Vector, ppSlots) == 8);

namespace korx {
namespace {

// Doubling a 32-bit capacity ends below 2^32, so it reaches no slot from here on.
constexpr uint32_t kFirstUnreachable = 1u << 31;

constexpr size_t SlotBytes(size_t slots) {
    return slots * sizeof(void*);
}

bool HoldsNothing(const ORX_VEC_Vector* vector) {
    return vector == nullptr || vector->ppSlots == nullptr || vector->uiUsedSlots == 0;
}

void FreeElements(void** first, uint32_t count) {
    for (void** slot = first; slot != first + count; ++slot) {
        free(*slot);
        *slot = nullptr;
    }
}

}  // namespace
}  // namespace korx

using namespace korx;

ORX_VEC_Vector* ORX_VEC_VectorInit(void* /*unused*/, uint32_t capacity) {
    capacity = std::max(capacity, 1u);
    MallocPtr<ORX_VEC_Vector> vector(
        static_cast<ORX_VEC_Vector*>(AllocateZeroed(sizeof(ORX_VEC_Vector))));
    if (!vector)
        return nullptr;
    vector->ppSlots = static_cast<void**>(AllocateZeroed(SlotBytes(capacity)));
    if (vector->ppSlots == nullptr)
        return nullptr;
    vector->uiCapacity = capacity;
    return vector.release();
}

void ORX_VEC_VectorFree(ORX_VEC_Vector* vector) {
    if (vector == nullptr)
        return;
    free(vector->ppSlots);
    free(vector);
}

uint32_t ORX_VEC_VectorEnsure(ORX_VEC_Vector* vector, uint32_t index) {
    if (vector == nullptr)
        return kFailed;
    if (vector->uiCapacity > index)
        return kOk;
    // Callers may have filled the public structure themselves, with a capacity without slots.
    if (vector->uiCapacity == 0 || vector->ppSlots == nullptr || index >= kFirstUnreachable)
        return kFailed;

    const size_t old_capacity = vector->uiCapacity;
    size_t capacity = old_capacity;
    while (capacity <= index)
        capacity *= 2;

    auto* const slots = static_cast<void**>(realloc(vector->ppSlots, SlotBytes(capacity)));
    if (slots == nullptr)
        return kFailed;
    memset(slots + old_capacity, 0, SlotBytes(capacity - old_capacity));
    vector->ppSlots = slots;
    vector->uiCapacity = static_cast<uint32_t>(capacity);
    return kOk;
}

uint32_t ORX_VEC_VectorEmptySlot(const ORX_VEC_Vector* vector) {
    return vector == nullptr ? kAllBits : EmptySlotFrom(vector, 0);
}

uint32_t ORX_VEC_VectorSet(ORX_VEC_Vector* vector, void* element) {
    if (vector == nullptr)
        return kAllBits;
    return ORX_VEC_VectorSetIndex(vector, ORX_VEC_VectorEmptySlot(vector), element);
}

uint32_t ORX_VEC_VectorSetIndex(ORX_VEC_Vector* vector, uint32_t index, void* element) {
    if (ORX_VEC_VectorEnsure(vector, index) != kOk)
        return kAllBits;
    vector->ppSlots[index] = element;
    vector->uiUsedSlots = std::max(vector->uiUsedSlots, index + 1);
    return index;
}

// Looks at the slots above the used ones too: callers may have filled the public array themselves.
void ORX_VEC_VectorClearAll(ORX_VEC_Vector* vector) {
    if (vector == nullptr)
        return;
    if (vector->ppSlots != nullptr)
        FreeElements(vector->ppSlots, vector->uiCapacity);
    vector->uiUsedSlots = 0;
}

uint32_t ORX_VEC_VectorCount(const ORX_VEC_Vector* vector) {
    if (HoldsNothing(vector))
        return 0;
    void* const* const slots = vector->ppSlots;
    return static_cast<uint32_t>(std::count_if(slots, slots + vector->uiUsedSlots,
                                               [](void* slot) { return slot != nullptr; }));
}

void ORX_FreeVectorNodes(ORX_VEC_Vector* vector) {
    if (HoldsNothing(vector))
        return;
    FreeElements(vector->ppSlots, ORX_VEC_VectorCount(vector));
}

uint32_t ORX_VEC_Bzero(void* memory, uint32_t size) {
    if (memory == nullptr)
        return kFailed;
    if (size != 0 && memset_s(memory, size, 0, size) != 0)
        return kFailed;
    return kOk;
}
