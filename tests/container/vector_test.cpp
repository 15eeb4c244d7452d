#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <utility>

#include "korx/container.h"
#include "support/faults.h"

namespace korx::test {
namespace {

constexpr uint32_t kFailedSlot = 0xFFFFFFFF;

struct Vector : ::testing::Test {
    ~Vector() override { ORX_VEC_VectorFree(v); }

    static void* block() { return malloc(1); }
    uint32_t append(void* element) { return ORX_VEC_VectorSet(v, element); }

    ORX_VEC_Vector* v = ORX_VEC_VectorInit(nullptr, 0);
    int here[4] = {};  // elements that free() would not survive
};

TEST_F(Vector, FillsTheLowestHole) {
    EXPECT_EQ(v->uiCapacity, 1u);
    EXPECT_EQ(ORX_VEC_VectorEmptySlot(v), 0u);
    for (uint32_t i : {0, 1, 2})
        EXPECT_EQ(append(&here[i]), i);
    EXPECT_EQ(v->uiCapacity, 4u);
    EXPECT_EQ(v->ppSlots[3], nullptr);
    append(&here[3]);
    for (uint32_t i : {0, 1, 2, 3})
        EXPECT_EQ(v->ppSlots[i], &here[i]);
    for (uint32_t i : {2, 1})
        EXPECT_EQ(ORX_VEC_VectorSetIndex(v, i, nullptr), i);
    EXPECT_EQ(v->uiUsedSlots, 4u);
    EXPECT_EQ(ORX_VEC_VectorCount(v), 2u);
    for (uint32_t i : {1, 2})
        EXPECT_EQ(append(&here[i]), i);
    EXPECT_EQ(ORX_VEC_VectorEmptySlot(v), 4u);
}

TEST_F(Vector, ReachesAnyIndexByDoubling) {
    EXPECT_EQ(ORX_VEC_VectorSetIndex(v, 10, here), 10u);
    EXPECT_EQ(ORX_VEC_VectorCount(v), 1u);
    EXPECT_EQ(ORX_VEC_VectorEmptySlot(v), 0u);
    for (uint32_t index : {10, 15, 16}) {
        EXPECT_EQ(ORX_VEC_VectorEnsure(v, index), 0u);
        EXPECT_EQ(v->uiCapacity, index < 16 ? 16u : 32u);
        EXPECT_EQ(v->uiUsedSlots, 11u);
    }
}

TEST_F(Vector, StaysAsItIsWhenItCannotGrow) {
    append(here);
    void** const slots = v->ppSlots;
    {
        Fault fault{"realloc", 1, ENOMEM};
        EXPECT_EQ(append(here), kFailedSlot);
    }
    for (uint32_t index : {1u << 31, 0xFFFFFFFF})
        EXPECT_EQ(ORX_VEC_VectorSetIndex(v, index, here), kFailedSlot);
    EXPECT_EQ(v->ppSlots, slots);
    EXPECT_EQ(v->uiCapacity, 1u);
    EXPECT_EQ(v->uiUsedSlots, 1u);

    ORX_VEC_Vector foreign = {};
    EXPECT_EQ(ORX_VEC_VectorEnsure(&foreign, 0), 0x0FFFFFFFu);
    foreign.uiCapacity = 1;  // slots that are not there cannot be copied
    EXPECT_EQ(ORX_VEC_VectorEnsure(&foreign, 1), 0x0FFFFFFFu);
    for (unsigned nth : {1u, 2u}) {
        Fault fault{"malloc", nth, ENOMEM};
        EXPECT_EQ(ORX_VEC_VectorInit(nullptr, 3), nullptr) << nth;
    }
}

TEST_F(Vector, FreesWhatIsAllocated) {
    ORX_VEC_VectorSetIndex(v, 1, block());
    ORX_VEC_VectorSetIndex(v, 3, here);  // two elements: slots 0 and 1
    ORX_FreeVectorNodes(v);
    EXPECT_EQ(v->ppSlots[1], nullptr);
    EXPECT_EQ(std::exchange(v->ppSlots[3], nullptr), here);
    EXPECT_EQ(v->uiUsedSlots, 4u);
    ORX_VEC_VectorEnsure(v, 7);
    v->ppSlots[1] = block();
    v->ppSlots[7] = block();
    ORX_VEC_VectorClearAll(v);
    EXPECT_EQ(v->uiUsedSlots, 0u);
    EXPECT_EQ(v->uiCapacity, 8u);
    for (uint32_t i : {1, 7})
        EXPECT_EQ(v->ppSlots[i], nullptr);
}

TEST(Stack, GivesBackInReverse) {
    ORX_StackNode* const stack = ORX_CreateStack();
    int one;
    void* const pushed[] = {&one, nullptr, stack};
    void* out = &out;
    EXPECT_EQ(ORX_IsStackEmpty(stack), 1u);
    EXPECT_EQ(ORX_PopStack(stack, &out), 0x0FFFFFFFu);
    EXPECT_EQ(ORX_GetStackTopElement(stack, &out), 0x0FFFFFFFu);
    EXPECT_EQ(out, &out);

    for (void* element : pushed)
        EXPECT_EQ(ORX_PushStack(stack, element), 0u);
    {
        Fault fault{"malloc", 1, ENOMEM};
        EXPECT_EQ(ORX_PushStack(stack, &one), 0x0FFFFFFFu);
    }
    for (int i : {2, 1, 0}) {
        EXPECT_EQ(ORX_GetStackTopElement(stack, &out), 0u);
        EXPECT_EQ(std::exchange(out, &out), pushed[i]);
        EXPECT_EQ(ORX_PopStack(stack, &out), 0u);
        EXPECT_EQ(out, pushed[i]);
    }
    EXPECT_EQ(ORX_IsStackEmpty(stack), 1u);

    for (void* element : {malloc(1), malloc(2), malloc(3), static_cast<void*>(nullptr)})
        ORX_PushStack(stack, element);
    ORX_DestroyStack(stack);  // a leak or a double free shows under the address sanitizer
    ORX_DestroyStack(nullptr);
    Fault fault{"malloc", 1, ENOMEM};
    EXPECT_EQ(ORX_CreateStack(), nullptr);
}

}  // namespace
}  // namespace korx::test
