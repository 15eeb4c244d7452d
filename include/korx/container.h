/** @file
 * Containers over the caller's memory. */
#ifndef KORX_CONTAINER_H
#define KORX_CONTAINER_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_list Doubly linked lists
 *
 * A doubly linked list of the caller's records. Nothing here locks or logs: a list is used by one
 * thread at a time or under the caller's lock.
 * @{ */

/** A list node, 24 bytes: put it at the start of a record of your own, or use its data pointer.
 * Both links are null while the node is in no list. */
typedef struct KORX_DllNode {
    struct KORX_DllNode* pstNext; /**< the node behind it; the last one's is the sentinel */
    struct KORX_DllNode* pstPrev; /**< the node before it; the first one's is the sentinel */
    void* pData;                  /**< the caller's */
} KORX_DllNode;

/** A list, 32 bytes: a ring through its sentinel. Its owner sets it up before the first insertion:
 * both links of the sentinel point to the sentinel and uiCount is 0. */
typedef struct KORX_DllHead {
    KORX_DllNode stNode; /**< the sentinel: pstNext is the first node, pstPrev the last */
    uint32_t uiCount;    /**< of the nodes */
} KORX_DllHead;

/** Links a node in behind another. A null head or node does nothing.
 *
 * @param head  the list
 * @param after where; null: as the first one. To append, pass the sentinel's pstPrev.
 * @param node  must be in no list */
KORX_API void KORX_DllInsert(KORX_DllHead* head, KORX_DllNode* after, KORX_DllNode* node);

/** Links a node in between two neighbours of this list, which is not tested. A null node does
 * nothing.
 *
 * @param head the list
 * @param prev what comes before it
 * @param node must be in no list
 * @param next what comes behind it */
KORX_API void KORX_DllInsertInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);

/** Unlinks a node if both its neighbours point back to it; else, and for a null head or node,
 * nothing changes.
 *
 * @param head the list that node is in; another one goes unnoticed, but spoils both counts
 * @param node stays the caller's */
KORX_API void KORX_DllDelete(KORX_DllHead* head, KORX_DllNode* node);

/** Unlinks the node between two others without any test.
 *
 * @param head the list
 * @param prev what comes before it
 * @param node stays the caller's
 * @param next what comes behind it */
KORX_API void KORX_DllDeleteInMiddle(KORX_DllHead* head, KORX_DllNode* prev, KORX_DllNode* node,
                                     KORX_DllNode* next);

/** Unlinks the first node.
 *
 * @param head the list
 * @return that node, the caller's again; null when the list is empty */
KORX_API KORX_DllNode* KORX_DllGet(KORX_DllHead* head);

/** Looks for a node.
 *
 * @param head    the list
 * @param key     is handed to compare
 * @param compare answers 0 for the node that is looked for
 * @return the first such node in list order, still in the list; null when there is none */
KORX_API KORX_DllNode* KORX_DllFind(KORX_DllHead* head, void* key,
                                    uint32_t (*compare)(void* key, KORX_DllNode* node));

/** Calls a function for each node in list order.
 *
 * @param head  the list
 * @param visit must not unlink or free the node that it is given
 * @return the number of nodes */
KORX_API uint32_t KORX_DllWalk(KORX_DllHead* head, void (*visit)(KORX_DllNode* node));

/** Hands the data and then the node itself, of each node in list order, to a function, and leaves
 * the list empty and usable. Follows the ring whatever the count says.
 *
 * @param head    the list
 * @param release gets both, so it must cope with what they are, as free() does with malloc's
 * memory and with null */
KORX_API void KORX_DllFreeAll(KORX_DllHead* head, void (*release)(void* memory));

/** @} */

/** @defgroup korx_stack Stacks
 *
 * A stack of pointers, last in, first out. The elements stay the caller's. Nothing here locks or
 * logs: a stack is used by one thread at a time or under the caller's lock. The stack arguments
 * must not be null unless it is said that they may.
 * @{ */

/** A stack, or a node of one, 16 bytes. The stack itself is a head node. */
typedef struct ORX_StackNode {
    void* pData;                   /**< the element; of the head, unused */
    struct ORX_StackNode* pstNext; /**< the node below; of the head, the top; null: none */
} ORX_StackNode;

/** Makes a stack.
 *
 * @return a new, empty one for ORX_DestroyStack(); null when memory is short */
KORX_API ORX_StackNode* ORX_CreateStack(void);

/** Whether a stack is empty.
 *
 * @param stack which
 * @return 1 or 0 */
KORX_API uint32_t ORX_IsStackEmpty(const ORX_StackNode* stack);

/** Puts an element on top.
 *
 * @param stack   which
 * @param element may be null
 * @return 0; 0x0FFFFFFF when memory is short: the stack is as it was */
KORX_API uint32_t ORX_PushStack(ORX_StackNode* stack, void* element);

/** Takes the top element off.
 *
 * @param stack        which
 * @param[out] element takes it
 * @return 0; 0x0FFFFFFF with `*element` untouched when the stack is empty */
KORX_API uint32_t ORX_PopStack(ORX_StackNode* stack, void** element);

/** Reads the top element without taking it off.
 *
 * @param stack        which
 * @param[out] element takes it
 * @return 0; 0x0FFFFFFF with `*element` untouched when the stack is empty */
KORX_API uint32_t ORX_GetStackTopElement(const ORX_StackNode* stack, void** element);

/** Frees a stack, and with free() the elements still in it: they must come from malloc or be null.
 *
 * @param stack null is ignored */
KORX_API void ORX_DestroyStack(ORX_StackNode* stack);

/** @} */

/** @defgroup korx_vector Vectors
 *
 * A growing array of pointers in numbered slots. Nothing here locks or logs: a vector is used by
 * one thread at a time or under the caller's lock.
 *
 * A null slot is empty. A vector grows by doubling and never shrinks. Storing over an element does
 * not free that element. Operations that answer a slot number answer 0xFFFFFFFF on failure.
 * @{ */

/** A vector, 16 bytes. */
typedef struct ORX_VEC_Vector {
    uint32_t uiUsedSlots; /**< one more than the highest slot stored to since it was cleared */
    uint32_t uiCapacity;  /**< slots that there is room for */
    void** ppSlots;       /**< the elements */
} ORX_VEC_Vector;

/** Makes a vector.
 *
 * @param unused   not consulted
 * @param capacity empty slots to begin with; 0 counts as 1
 * @return a new one for ORX_VEC_VectorFree(); null when memory is short */
KORX_API ORX_VEC_Vector* ORX_VEC_VectorInit(void* unused, uint32_t capacity);

/** Frees a vector but none of its elements.
 *
 * @param vector null is ignored */
KORX_API void ORX_VEC_VectorFree(ORX_VEC_Vector* vector);

/** Grows a vector until a slot exists.
 *
 * @param vector which
 * @param index  of the slot, from 0 on
 * @return 0; 0x0FFFFFFF with the vector as it was: it is null, memory is short, its capacity is 0,
 * or the slot is missing and index is 2^31 or more */
KORX_API uint32_t ORX_VEC_VectorEnsure(ORX_VEC_Vector* vector, uint32_t index);

/** Finds an empty slot, looking at one after another.
 *
 * @param vector which
 * @return the lowest one below uiUsedSlots, else uiUsedSlots, a slot that may not exist yet;
 * 0xFFFFFFFF for a null vector */
KORX_API uint32_t ORX_VEC_VectorEmptySlot(const ORX_VEC_Vector* vector);

/** Stores an element in the lowest empty slot, growing the vector if needed.
 *
 * @param vector  which
 * @param element stays the caller's
 * @return the slot, or 0xFFFFFFFF */
KORX_API uint32_t ORX_VEC_VectorSet(ORX_VEC_Vector* vector, void* element);

/** Stores an element in a slot, growing the vector if needed. Slots skipped over stay empty.
 *
 * @param vector  which
 * @param index   of the slot, from 0 on
 * @param element stays the caller's; null empties the slot
 * @return the slot, or 0xFFFFFFFF */
KORX_API uint32_t ORX_VEC_VectorSetIndex(ORX_VEC_Vector* vector, uint32_t index, void* element);

/** Frees every element with free() and empties the vector; the capacity stays.
 *
 * @param vector null is ignored */
KORX_API void ORX_VEC_VectorClearAll(ORX_VEC_Vector* vector);

/** Counts the elements.
 *
 * @param vector null has none
 * @return how many slots are not empty */
KORX_API uint32_t ORX_VEC_VectorCount(const ORX_VEC_Vector* vector);

/** Frees with free() and empties as many slots, from slot 0 on, as there are elements: all of them
 * when no slot between is empty, else the last ones stay. uiUsedSlots is left as it was.
 *
 * @param vector null is ignored */
KORX_API void ORX_FreeVectorNodes(ORX_VEC_Vector* vector);

/** Zeroes memory.
 *
 * @param memory what
 * @param size   how much, in bytes
 * @return 0, or 0x0FFFFFFF for null memory */
KORX_API uint32_t ORX_VEC_Bzero(void* memory, uint32_t size);

/** @} */

/** @defgroup korx_tlv TLV records
 *
 * Records of a type, a length and a value, one after another in a buffer of the caller's.
 *
 * A record is a 16-bit type, a 16-bit length and length bytes of value, in host byte order, without
 * gaps or alignment. A value has at most 32763 bytes, a buffer at most 32767; a negative count
 * means no space. No call locks or logs.
 * @{ */

#define ORX_TLV_ERR_TEXT 1u /**< no such text, or no room for it */

/** Writes a record.
 *
 * @param position          where it goes
 * @param[in,out] remaining the bytes free from position on; shrinks by length + 4
 * @param type              taken modulo 2^16
 * @param length            of value, in bytes
 * @param value             may be null when length is 0
 * @return where the next record goes; null: position or remaining is null or there is no room, and
 * nothing is written; or value is null with a length, and only the length field is */
KORX_API void* ORX_AppendTLV(void* position, int16_t* remaining, uint32_t type, uint16_t length,
                             const void* value);

/** Writes a record without its type field, which stays for the caller to set.
 *
 * @param position          where the type goes; the length stands 2 bytes behind it
 * @param[in,out] remaining the bytes free from position on; shrinks by length + 4
 * @param length            of value, in bytes
 * @param value             may be null when length is 0
 * @return 0 or 0xFFFFFFFF, as above */
KORX_API uint32_t ORX_SetValue(void* position, int16_t* remaining, uint16_t length,
                               const void* value);

/** Finds the first record of a type.
 *
 * @param buffer        the records
 * @param buffer_length in bytes
 * @param type          which
 * @param[out] length   of the value, in bytes
 * @param[out] value    points into the buffer
 * @return 0; 0xFFFFFFFF with the outputs untouched: a null argument, no such record, or one that
 * the buffer does not hold as a whole */
KORX_API uint32_t ORX_GetVFromTLV(const void* buffer, int16_t buffer_length, uint16_t type,
                                  uint16_t* length, const void** value);

/** Copies the value of the first record of a type into a text and terminates it.
 *
 * @param type          which
 * @param buffer        the records
 * @param buffer_length in bytes
 * @param[out] text     takes the value
 * @param size          of text, at least the value's length + 1
 * @return 0; #ORX_TLV_ERR_TEXT with text untouched: as above, or it has no room */
KORX_API uint32_t ORX_GetStrByTlvType(uint16_t type, const void* buffer, int16_t buffer_length,
                                      char* text, uint32_t size);

/** @} */

KORX_END_DECLS

#endif
