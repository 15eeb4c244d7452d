/** @file
 * A mutex between processes. */
#ifndef KORX_SEMA_H
#define KORX_SEMA_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_sema Mutexes between processes
 *
 * A mutex between processes, made of one System V semaphore.
 *
 * Each process gets the key and calls create with it; the first one makes the semaphore, which then
 * lives in the kernel until it is destroyed. Failures are logged; null arguments are not.
 * @{ */

/** Stores the key that ftok() makes of a path and a number. Different files may by chance share a
 * key.
 *
 * @param path       of something that exists; its device and inode are what counts
 * @param project_id tells several mutexes of one path apart; only its low 8 bits count
 * @param[out] key   for KORX_MutexSemaCreate()
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_MutexSemaGetKey(const char* path, uint32_t project_id, uint32_t* key);

/** Stores the id of the key's semaphore: an existing one as it is, else a new one with mode 0666
 * and value 1, free.
 *
 * Creation and the setting to 1 are two steps. Who attaches between them waits in P until the
 * second is done. A creator that dies between them leaves a semaphore that looks held and that
 * nobody will ever release: destroy it and create it again.
 *
 * @param key          the same in all processes that share the mutex
 * @param[out] sema_id for the calls below; any id is valid, 0 too
 * @return 0 or 0x0FFFFFFF; a process that lost the race to create gets the latter and may call
 * again */
KORX_API uint32_t KORX_MutexSemaCreate(uint32_t key, uint32_t* sema_id);

/** Removes the semaphore for every process at once; P calls that wait fail.
 *
 * @param sema_id from KORX_MutexSemaCreate()
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_MutexSemaDestroy(uint32_t sema_id);

/** Takes the mutex, waiting as long as it is held.
 *
 * The kernel keeps one balance of P and V per process and takes it back when the process ends: a
 * holder that dies releases the mutex. So P and V belong into the same process. Where one process
 * calls P and another V, the end of the first raises the value once more and lets two holders in,
 * and the end of the second takes a unit that may be somebody's. The balance is the process's, not
 * the thread's, and a child made by fork starts without it.
 *
 * @param sema_id from KORX_MutexSemaCreate()
 * @return 0 or 0x0FFFFFFF, also when a signal interrupts the wait: whether to try again is the
 * caller's to decide */
KORX_API uint32_t KORX_MutexSemaP(uint32_t sema_id);

/** Gives the mutex back and wakes a waiter. Nobody checks that the caller holds it: a V without its
 * P lets two holders in.
 *
 * @param sema_id from KORX_MutexSemaCreate()
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_MutexSemaV(uint32_t sema_id);

/** @} */

KORX_END_DECLS

#endif
