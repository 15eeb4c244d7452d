/* The platform's directories. The log and data directories come from section "[PATH]", keys
 * "LOG_PATH" and "DATA_PATH", of "/etc/base.d/base.conf"; a key that is missing, empty or not an
 * absolute path takes its default below "/opt/veltra/quarn/common". They are read once, on first
 * use. The first use is not guarded against other threads: ask once at process start, as the log
 * set-up does. */
#ifndef KORX_PATH_H
#define KORX_PATH_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/* The directories as configured, 512 bytes; empty until first use. */
typedef struct KORX_PtnPath {
    char acLogPath[256];
    char acDataPath[256];
} KORX_PtnPath;

KORX_API extern KORX_PtnPath g_stPtnPath;

/* Reads the configuration again and replaces both directories. */
KORX_API void KORX_ParsePathConf(void);

/* 1 when a directory is known, else 0. */
KORX_API uint32_t KORX_IsPathInit(void);

/* Copy the log or data directory, cleaned of "//" and "/..", into a buffer of size bytes. Result:
 * 0; 0x71000001 for a null buffer; 0x71000007, with the buffer untouched, when it is too short. */
KORX_API uint32_t KORX_GetLogPath(char* buffer, uint32_t size);
KORX_API uint32_t KORX_GetDataPath(char* buffer, uint32_t size);

/* Writes "/opt/veltra/quarn/common/tmp". Result: 0, or 0x0FFFFFFF for a null or short buffer. */
KORX_API uint32_t KORX_GetCommTmpPath(char* buffer, uint32_t size);

/* Writes the full name of "korx_local_data.ini" in that directory. Results as above. */
KORX_API uint32_t KORX_GetLocalDataFileFullPath(char* buffer, uint32_t size);

/* Makes the symbolic link at path point to "/opt/tarnos/var/log". Whatever is not a link is left
 * alone, and nothing is created where nothing is. A wrong link goes even when the new one cannot be
 * made because its target does not exist. size is not consulted. */
KORX_API void KORX_CreateLinkFileForPath(const char* path, uint32_t size);

KORX_END_DECLS

#endif
