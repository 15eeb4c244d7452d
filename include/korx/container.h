#ifndef KORX_CONTAINER_H
#define KORX_CONTAINER_H

#include "korx/common.h"

KORX_BEGIN_DECLS

typedef struct KORX_DllNode {
    struct KORX_DllNode* pstNext;
    struct KORX_DllNode* pstPrev;
    void* pData;
} KORX_DllNode;

typedef struct KORX_DllHead {
    KORX_DllNode stNode;
    uint32_t uiCount;
} KORX_DllHead;

KORX_API void KORX_DllInsert(KORX_DllHead* head, KORX_DllNode* after, KORX_DllNode* node);
KORX_API void KORX_DllInsertInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);
KORX_API void KORX_DllDelete(KORX_DllHead* head, KORX_DllNode* node);
KORX_API void KORX_DllDeleteInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);
KORX_API KORX_DllNode* KORX_DllGet(KORX_DllHead* head);
KORX_API KORX_DllNode* KORX_DllFind(KORX_DllHead* head, void* key,
                                    uint32_t (*compare)(void* key, KORX_DllNode* node));
KORX_API uint32_t KORX_DllWalk(KORX_DllHead* head, void (*visit)(KORX_DllNode* node));
KORX_API void KORX_DllFreeAll(KORX_DllHead* head, void (*release)(void* memory));

typedef struct ORX_StackNode {
    void* pData;
    struct ORX_StackNode* pstNext;
} ORX_StackNode;

KORX_API ORX_StackNode* ORX_CreateStack(void);
KORX_API uint32_t ORX_IsStackEmpty(const ORX_StackNode* stack);
KORX_API uint32_t ORX_PushStack(ORX_StackNode* stack, void* element);
KORX_API uint32_t ORX_PopStack(ORX_StackNode* stack, void** element);
KORX_API uint32_t ORX_GetStackTopElement(const ORX_StackNode* stack, void** element);
KORX_API void ORX_DestroyStack(ORX_StackNode* stack);

typedef struct ORX_VEC_Vector {
    uint32_t uiUsedSlots;
    uint32_t uiCapacity;
    void** ppSlots;
} ORX_VEC_Vector;

KORX_API ORX_VEC_Vector* ORX_VEC_VectorInit(void* unused, uint32_t capacity);
KORX_API void ORX_VEC_VectorFree(ORX_VEC_Vector* vector);
KORX_API uint32_t ORX_VEC_VectorEnsure(ORX_VEC_Vector* vector, uint32_t index);
KORX_API uint32_t ORX_VEC_VectorEmptySlot(const ORX_VEC_Vector* vector);
KORX_API uint32_t ORX_VEC_VectorSet(ORX_VEC_Vector* vector, void* element);
KORX_API uint32_t ORX_VEC_VectorSetIndex(ORX_VEC_Vector* vector, uint32_t index, void* element);
KORX_API void ORX_VEC_VectorClearAll(ORX_VEC_Vector* vector);
KORX_API uint32_t ORX_VEC_VectorCount(const ORX_VEC_Vector* vector);
KORX_API void ORX_FreeVectorNodes(ORX_VEC_Vector* vector);
KORX_API uint32_t ORX_VEC_Bzero(void* memory, uint32_t size);

KORX_API void* ORX_AppendTLV(void* position, int16_t* remaining, uint32_t type, uint16_t length,
                             const void* value);
KORX_API uint32_t ORX_SetValue(void* position, int16_t* remaining, uint16_t length,
                               const void* value);
KORX_API uint32_t ORX_GetVFromTLV(const void* buffer, int16_t buffer_length, uint16_t type,
                                  uint16_t* length, const void** value);
KORX_API uint32_t ORX_GetStrByTlvType(uint16_t type, const void* buffer, int16_t buffer_length,
                                      char* text, uint32_t size);

KORX_END_DECLS

#endif
