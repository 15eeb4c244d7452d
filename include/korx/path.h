/** @file
 * The platform's directories. */
#ifndef KORX_PATH_H
#define KORX_PATH_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_path The platform's directories
 *
 * Where the board keeps logs, data and temporary files.
 *
 * The log and data directories come from section "[PATH]", keys "LOG_PATH" and "DATA_PATH", of
 * "/etc/base.d/base.conf"; a key that is missing, empty or not an absolute path takes its default,
 * "log" or "data" below "/opt/veltra/quarn/common". They are read once, on first use. The first use
 * is not guarded against other threads: ask once at process start, as the log set-up does.
 * @{ */

/** The directories as configured, 512 bytes; empty until first use. */
typedef struct KORX_PtnPath {
    char acLogPath[256];  /**< of the logs, at most 255 characters */
    char acDataPath[256]; /**< of the data, at most 255 characters */
} KORX_PtnPath;

/** The directories of this process, for reading. */
KORX_API extern KORX_PtnPath g_stPtnPath;

/** Reads the configuration again and replaces both directories. Not safe against threads that ask
 * for them meanwhile. */
KORX_API void KORX_ParsePathConf(void);

/** Whether a directory is known.
 *
 * @return 1 when one of the two is not empty, else 0 */
KORX_API uint32_t KORX_IsPathInit(void);

/** Copies the log directory, cleaned of "//" and "/..".
 *
 * @param[out] buffer untouched when it is too short
 * @param size        of the buffer; 256 is always enough
 * @return 0; 0x71000001 for a null buffer; 0x71000007 for one that is too short */
KORX_API uint32_t KORX_GetLogPath(char* buffer, uint32_t size);

/** Copies the data directory as KORX_GetLogPath() does the log directory.
 *
 * @param[out] buffer untouched when it is too short
 * @param size        of the buffer; 256 is always enough
 * @return 0; 0x71000001 for a null buffer; 0x71000007 for one that is too short */
KORX_API uint32_t KORX_GetDataPath(char* buffer, uint32_t size);

/** Writes "/opt/veltra/quarn/common/tmp".
 *
 * @param[out] buffer takes the path
 * @param size        of the buffer
 * @return 0, or 0x0FFFFFFF for a null or short buffer */
KORX_API uint32_t KORX_GetCommTmpPath(char* buffer, uint32_t size);

/** Writes the full name of "korx_local_data.ini" in that directory.
 *
 * @param[out] buffer takes the name
 * @param size        of the buffer
 * @return 0, or 0x0FFFFFFF for a null or short buffer */
KORX_API uint32_t KORX_GetLocalDataFileFullPath(char* buffer, uint32_t size);

/** Makes the symbolic link at path point to "/opt/tarnos/var/log".
 *
 * Whatever is not a link is left alone, and nothing is created where nothing is. A wrong link goes
 * even when the new one cannot be made because its target does not exist.
 *
 * @param path of the link
 * @param size not consulted */
KORX_API void KORX_CreateLinkFileForPath(const char* path, uint32_t size);

/** @} */

KORX_END_DECLS

#endif
