/** @file
 * What every korx_basic header shares. */
#ifndef KORX_COMMON_H
#define KORX_COMMON_H

#include <stdint.h>

/** @defgroup korx_basic What all parts of the library share
 *
 * Linkage, visibility and the result codes.
 *
 * Unless a function says otherwise, a result is an unsigned 32-bit code, 0 means success, text is
 * NUL-terminated, sizes are bytes and include the terminator, and a function may be called from
 * any thread. No function throws, aborts or cuts a text to make it fit.
 *
 * The library starts no thread and has no main loop. A forked child may use all of it. It is not
 * made for signal handlers, which may call KORX_DumpBacktraceHandler() alone. All descriptors that
 * it opens are close-on-exec.
 * @{ */

/** Marks what the library exports. */
#define KORX_API __attribute__((visibility("default")))
/** Has the compiler check a format against its arguments. */
#define KORX_PRINTF(format_index, first_argument) \
    __attribute__((format(printf, format_index, first_argument)))

#ifdef __cplusplus
#define KORX_BEGIN_DECLS extern "C" {
#define KORX_END_DECLS }
#else
#define KORX_BEGIN_DECLS /**< opens the declarations of a header: C linkage in C++ */
#define KORX_END_DECLS   /**< closes them */
#endif

#define KORX_OK 0u                            /**< success */
#define KORX_ERR_FAILED 0x0FFFFFFFu           /**< general failure */
#define KORX_ERR_NULL_OUTPUT 0x71000001u      /**< a required output pointer is null */
#define KORX_ERR_INVALID_PARAM 0x71000002u    /**< bad length, not a full path, missing file */
#define KORX_ERR_NO_MEMORY 0x71000003u        /**< memory allocation failed */
#define KORX_ERR_CREATE_DIR 0x71000004u       /**< a directory could not be created */
#define KORX_ERR_BUFFER_TOO_SHORT 0x71000007u /**< the caller's buffer is too short */
#define KORX_ERR_ALL_BITS 0xFFFFFFFFu /**< failure of vectors, TLV readers, commands, records */

#define KORX_FALSE 0u /**< "no", from functions that are described as "1 when ..., else 0" */
#define KORX_TRUE 1u  /**< "yes", from the same */

/** The levels of all logs. Each takes a higher one for its highest. */
enum {
    KORX_LEVEL_DEBUG = 0,   /**< for whoever looks for a fault */
    KORX_LEVEL_INFO = 1,    /**< progress */
    KORX_LEVEL_WARNING = 2, /**< odd, and got over */
    KORX_LEVEL_ERR = 3,     /**< the diagnostic log's highest; "ERROR" in the product logs */
    KORX_LEVEL_FATAL = 4    /**< of the product logs */
};

/** @} */

#endif
