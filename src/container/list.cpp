// The circular list over its callers' nodes: the head's sentinel closes the ring, so no operation
// has an end to treat apart.
#include "korx/container.h"

#include <stddef.h>

static_assert(sizeof(KORX_DllNode) == 24);
static_assert(offsetof(KORX_DllNode, pstNext) == 0);
static_assert(offsetof(KORX_DllNode, pstPrev) == 8);
static_assert(offsetof(KORX_DllNode, pData) == 16);
static_assert(sizeof(KORX_DllHead) == 32);
static_assert(offsetof(KORX_DllHead, stNode) == 0);
static_assert(offsetof(KORX_DllHead, uiCount) == 24);

namespace korx {
namespace {

// The first node, or null where the head says that there is none. A head of all zeros is empty too.
KORX_DllNode* First(KORX_DllHead* head) {
    return head->uiCount == 0 ? nullptr : head->stNode.pstNext;
}

bool IsEnd(const KORX_DllHead* head, const KORX_DllNode* node) {
    return node == nullptr || node == &head->stNode;
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_DllInsert(KORX_DllHead* head, KORX_DllNode* after, KORX_DllNode* node) {
    if (head == nullptr || node == nullptr)
        return;
    KORX_DllNode* const position = after == nullptr ? &head->stNode : after;
    KORX_DllInsertInMiddle(head, position, node, position->pstNext);
}

void KORX_DllInsertInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                            KORX_DllNode* next) {
    if (node == nullptr)
        return;
    ++head->uiCount;
    node->pstNext = next;
    node->pstPrev = prev;
    prev->pstNext = node;
    next->pstPrev = node;
}

void KORX_DllDelete(KORX_DllHead* head, KORX_DllNode* node) {
    if (head == nullptr || node == nullptr)
        return;
    KORX_DllNode* const next = node->pstNext;
    KORX_DllNode* const prev = node->pstPrev;
    if (next == nullptr || prev == nullptr)
        return;
    if (next->pstPrev != node || prev->pstNext != node)
        return;
    KORX_DllDeleteInMiddle(head, prev, node, next);
}

void KORX_DllDeleteInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                            KORX_DllNode* next) {
    prev->pstNext = next;
    next->pstPrev = prev;
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
    --head->uiCount;
}

KORX_DllNode* KORX_DllGet(KORX_DllHead* head) {
    if (head->uiCount == 0)
        return nullptr;
    KORX_DllNode* const node = head->stNode.pstNext;
    KORX_DllDeleteInMiddle(head, &head->stNode, node, node->pstNext);
    return node;
}

KORX_DllNode* KORX_DllFind(KORX_DllHead* head, void* key,
                           uint32_t (*compare)(void* key, KORX_DllNode* node)) {
    for (KORX_DllNode* node = First(head); !IsEnd(head, node); node = node->pstNext) {
        if (compare(key, node) == 0)
            return node;
    }
    return nullptr;
}

uint32_t KORX_DllWalk(KORX_DllHead* head, void (*visit)(KORX_DllNode* node)) {
    uint32_t visited = 0;
    for (KORX_DllNode* node = First(head); !IsEnd(head, node); node = node->pstNext) {
        visit(node);
        ++visited;
    }
    return visited;
}

void KORX_DllFreeAll(KORX_DllHead* head, void (*release)(void* memory)) {
    KORX_DllNode* const sentinel = &head->stNode;
    for (KORX_DllNode* node = sentinel->pstNext; node != sentinel;) {
        KORX_DllNode* const next = node->pstNext;
        release(node->pData);
        release(node);
        node = next;
    }
    sentinel->pstNext = sentinel;
    sentinel->pstPrev = sentinel;
    head->uiCount = 0;
}
