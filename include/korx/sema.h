/* A mutex between processes, made of one System V semaphore.
 *
 * Each process gets the key and calls create with it; the first one makes the semaphore, which then
 * lives in the kernel until it is destroyed. Failures are logged; null arguments are not. */
#ifndef KORX_SEMA_H
#define KORX_SEMA_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/* Stores the key that ftok makes of an existing path and the low 8 bits of project_id. Result: 0 or
 * 0x0FFFFFFF. Different files may by chance share a key. */
KORX_API uint32_t KORX_MutexSemaGetKey(const char* path, uint32_t project_id, uint32_t* key);

/* Stores the id of the key's semaphore: an existing one as it is, else a new one with mode 0666 and
 * value 1, free. Any id is valid, 0 too. Result: 0 or 0x0FFFFFFF; a process that lost the race to
 * create gets the latter and may call again.
 *
 * Creation and the setting to 1 are two steps. Who attaches between them waits in P until the
 * second is done. A creator that dies between them leaves a semaphore that looks held and that
 * nobody will ever release: destroy it and create it again. */
KORX_API uint32_t KORX_MutexSemaCreate(uint32_t key, uint32_t* sema_id);

/* Removes the semaphore for every process at once; P calls that wait fail. Result: 0 or
 * 0x0FFFFFFF. */
KORX_API uint32_t KORX_MutexSemaDestroy(uint32_t sema_id);

/* Takes the mutex, waiting as long as it is held. Result: 0 or 0x0FFFFFFF, also when a signal
 * interrupts the wait: whether to try again is the caller's to decide.
 *
 * The kernel keeps one balance of P and V per process and takes it back when the process ends: a
 * holder that dies releases the mutex. So P and V belong into the same process. Where one process
 * calls P and another V, the end of the first raises the value once more and lets two holders in,
 * and the end of the second takes a unit that may be somebody's. The balance is the process's, not
 * the thread's, and a child made by fork starts without it. */
KORX_API uint32_t KORX_MutexSemaP(uint32_t sema_id);

/* Gives the mutex back and wakes a waiter. Result: 0 or 0x0FFFFFFF. Nobody checks that the caller
 * holds it: a V without its P lets two holders in. */
KORX_API uint32_t KORX_MutexSemaV(uint32_t sema_id);

KORX_END_DECLS

#endif
