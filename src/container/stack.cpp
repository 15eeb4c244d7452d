// A last-in, first-out stack of pointers: a head node whose chain starts with the top.
#include "korx/container.h"

#include <stddef.h>
#include <stdlib.h>

#include "base/codes.h"

static_assert(sizeof(ORX_StackNode) == 16);
static_assert(offsetof(ORX_StackNode, pData) == 0);
static_assert(offsetof(ORX_StackNode, pstNext) == 8);

namespace korx {
namespace {

ORX_StackNode* NewNode(void* element, ORX_StackNode* below) {
    auto* const node = static_cast<ORX_StackNode*>(malloc(sizeof(ORX_StackNode)));
    if (node != nullptr)
        *node = {.pData = element, .pstNext = below};
    return node;
}

}  // namespace
}  // namespace korx

using namespace korx;

ORX_StackNode* ORX_CreateStack() {
    return NewNode(nullptr, nullptr);
}

uint32_t ORX_IsStackEmpty(const ORX_StackNode* stack) {
    return stack->pstNext == nullptr ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_PushStack(ORX_StackNode* stack, void* element) {
    ORX_StackNode* const node = NewNode(element, stack->pstNext);
    if (node == nullptr)
        return kFailed;
    stack->pstNext = node;
    return kOk;
}

uint32_t ORX_PopStack(ORX_StackNode* stack, void** element) {
    ORX_StackNode* const top = stack->pstNext;
    if (top == nullptr)
        return kFailed;
    *element = top->pData;
    stack->pstNext = top->pstNext;
    free(top);
    return kOk;
}

uint32_t ORX_GetStackTopElement(const ORX_StackNode* stack, void** element) {
    if (ORX_IsStackEmpty(stack) == KORX_TRUE)
        return kFailed;
    *element = stack->pstNext->pData;
    return kOk;
}

void ORX_DestroyStack(ORX_StackNode* stack) {
    if (stack == nullptr)
        return;
    void* element;
    while (ORX_PopStack(stack, &element) == kOk)
        free(element);
    free(stack);
}
