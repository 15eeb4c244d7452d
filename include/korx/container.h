/* Containers over the caller's memory: a doubly linked list, a stack, a vector and TLV buffers.
 *
 * Nothing here locks or logs: a container is used by one thread at a time or under the caller's
 * lock. */
#ifndef KORX_CONTAINER_H
#define KORX_CONTAINER_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/* A list node, 24 bytes: put it at the start of a record of your own, or use its data pointer. Both
 * links are null while the node is in no list. */
typedef struct KORX_DllNode {
    struct KORX_DllNode* pstNext;
    struct KORX_DllNode* pstPrev;
    void* pData;
} KORX_DllNode;

/* A list, 32 bytes: a ring through the sentinel stNode, whose pstNext is the first node and whose
 * pstPrev the last. Its owner sets it up before the first insertion: both links of the sentinel
 * point to the sentinel and uiCount is 0. */
typedef struct KORX_DllHead {
    KORX_DllNode stNode;
    uint32_t uiCount;
} KORX_DllHead;

/* Links node in directly behind after, or as the first one when after is null. To append, pass the
 * sentinel's pstPrev. A null head or node does nothing. */
KORX_API void KORX_DllInsert(KORX_DllHead* head, KORX_DllNode* after, KORX_DllNode* node);

/* Links node in between prev and next, which must be neighbours in this list and are not tested. A
 * null node does nothing. */
KORX_API void KORX_DllInsertInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);

/* Unlinks node if both its neighbours point back to it; else, and for a null head or node, nothing
 * changes. That node is in another list than head's goes unnoticed, but spoils both counts. */
KORX_API void KORX_DllDelete(KORX_DllHead* head, KORX_DllNode* node);

/* Unlinks the node between prev and next without any test. */
KORX_API void KORX_DllDeleteInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);

/* Unlinks and returns the first node; null when the list is empty. */
KORX_API KORX_DllNode* KORX_DllGet(KORX_DllHead* head);

/* The first node, in list order, for which compare returns 0; null when there is none. */
KORX_API KORX_DllNode* KORX_DllFind(KORX_DllHead* head, void* key,
                                    uint32_t (*compare)(void* key, KORX_DllNode* node));

/* Calls visit for each node in list order and returns their number. visit must not unlink or free
 * the node that it is given. */
KORX_API uint32_t KORX_DllWalk(KORX_DllHead* head, void (*visit)(KORX_DllNode* node));

/* Hands the data and then the node itself, of each node in list order, to release, and leaves the
 * list empty and usable. Follows the ring whatever the count says. */
KORX_API void KORX_DllFreeAll(KORX_DllHead* head, void (*release)(void* memory));

/* A stack of pointers, last in, first out; 16 bytes a node. The stack is a head node: its pstNext
 * is the top, null when empty, and its pData is unused. The elements stay the caller's. The stack
 * arguments must not be null unless it is said that they may. */
typedef struct ORX_StackNode {
    void* pData;
    struct ORX_StackNode* pstNext;
} ORX_StackNode;

/* A new, empty stack for ORX_DestroyStack; null when memory is short. */
KORX_API ORX_StackNode* ORX_CreateStack(void);

/* 1 when the stack is empty, else 0. */
KORX_API uint32_t ORX_IsStackEmpty(const ORX_StackNode* stack);

/* Puts element, which may be null, on top. Result: 0, or 0x0FFFFFFF when memory is short; the stack
 * is as it was then. */
KORX_API uint32_t ORX_PushStack(ORX_StackNode* stack, void* element);

/* Takes the top element off and stores it in *element. Result: 0, or 0x0FFFFFFF with *element
 * untouched when the stack is empty. */
KORX_API uint32_t ORX_PopStack(ORX_StackNode* stack, void** element);

/* The same without taking it off. */
KORX_API uint32_t ORX_GetStackTopElement(const ORX_StackNode* stack, void** element);

/* Frees the stack, and with free() the elements still in it: they must come from malloc or be null.
 * A null stack is ignored. */
KORX_API void ORX_DestroyStack(ORX_StackNode* stack);

/* A growing array of pointers in numbered slots, 16 bytes; a null slot is empty. It grows by
 * doubling and never shrinks. Storing over an element does not free that element. Operations that
 * answer a slot number answer 0xFFFFFFFF on failure. */
typedef struct ORX_VEC_Vector {
    uint32_t uiUsedSlots;
    uint32_t uiCapacity;
    void** ppSlots;
} ORX_VEC_Vector;

/* A new vector for ORX_VEC_VectorFree with capacity empty slots, at least one; null when memory is
 * short. The first argument is ignored. */
KORX_API ORX_VEC_Vector* ORX_VEC_VectorInit(void* unused, uint32_t capacity);

/* Frees the vector but none of its elements. Null is ignored. */
KORX_API void ORX_VEC_VectorFree(ORX_VEC_Vector* vector);

/* Grows the vector until slot index exists. Result: 0, or 0x0FFFFFFF with the vector as it was: it
 * is null, memory is short, its capacity is 0, or the slot is missing and index is 2^31 or more. */
KORX_API uint32_t ORX_VEC_VectorEnsure(ORX_VEC_Vector* vector, uint32_t index);

/* The lowest empty slot below uiUsedSlots, else uiUsedSlots, a slot that may not exist yet. Looks
 * at the slots one after another. */
KORX_API uint32_t ORX_VEC_VectorEmptySlot(const ORX_VEC_Vector* vector);

/* Stores element in that slot, growing the vector if needed, and returns the slot. */
KORX_API uint32_t ORX_VEC_VectorSet(ORX_VEC_Vector* vector, void* element);

/* Stores element, which may be null, in slot index, growing the vector if needed, and returns the
 * slot. Slots skipped over stay empty. */
KORX_API uint32_t ORX_VEC_VectorSetIndex(ORX_VEC_Vector* vector, uint32_t index, void* element);

/* Frees every element with free() and empties the vector; the capacity stays. Null is ignored. */
KORX_API void ORX_VEC_VectorClearAll(ORX_VEC_Vector* vector);

/* The number of elements, 0 for a null vector. */
KORX_API uint32_t ORX_VEC_VectorCount(const ORX_VEC_Vector* vector);

/* Frees with free() and empties as many slots, from slot 0 on, as there are elements: all of them
 * when no slot between is empty, else the last ones stay. uiUsedSlots is left as it was. Null is
 * ignored. */
KORX_API void ORX_FreeVectorNodes(ORX_VEC_Vector* vector);

/* Zeroes size bytes. Result: 0, or 0x0FFFFFFF for null memory. */
KORX_API uint32_t ORX_VEC_Bzero(void* memory, uint32_t size);

/* TLV records: a 16-bit type, a 16-bit length and length bytes of value, in host byte order, one
 * after another without gaps or alignment. A value has at most 32763 bytes, a buffer at most 32767;
 * a negative count means no space. No call logs. */

#define ORX_TLV_ERR_TEXT 1u /* no such text, or no room for it */

/* Writes a record at position. *remaining holds the bytes free from there on and shrinks by
 * length + 4; type is taken modulo 2^16; value may be null when length is 0. Returns where the next
 * record goes, or null: a null position or count, or too long a value, and nothing is written; or a
 * null value with a length, and only the length field is. */
KORX_API void* ORX_AppendTLV(void* position, int16_t* remaining, uint32_t type, uint16_t length,
                             const void* value);

/* The same without the type field, which stays for the caller to set. Result: 0 or 0xFFFFFFFF. */
KORX_API uint32_t ORX_SetValue(void* position, int16_t* remaining, uint16_t length,
                               const void* value);

/* Finds the first record of the type and points *value at its value inside the buffer. Result: 0,
 * or 0xFFFFFFFF with the outputs untouched: a null argument, no such record, or one that the buffer
 * does not hold as a whole. */
KORX_API uint32_t ORX_GetVFromTLV(const void* buffer, int16_t buffer_length, uint16_t type,
                                  uint16_t* length, const void** value);

/* Copies the value of the first record of the type into text, of size bytes, and terminates it.
 * Result: 0, or ORX_TLV_ERR_TEXT with text untouched: as above, or length + 1 is more than size. */
KORX_API uint32_t ORX_GetStrByTlvType(uint16_t type, const void* buffer, int16_t buffer_length,
                                      char* text, uint32_t size);

KORX_END_DECLS

#endif
