/** @file
 * The product logs. */
#ifndef KORX_PLOG_H
#define KORX_PLOG_H

#include <pthread.h>
#include <stdarg.h>
#include <sys/types.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_plog Product logs
 *
 * Five record logs that the component's processes write side by side into the log directory, and
 * the binding to the platform's agent library.
 *
 * A record is one line that begins with the local time "[yyyy-mm-dd hh:mm:ss.uuuuuu]" and has at
 * most 599 characters; a longer one is refused, never cut. Levels are KORX_LEVEL_... Every
 * read-modify-write of a file happens under a POSIX record lock on the whole file, and inside a
 * process under a mutex taken before it, so any thread of any process may log, a forked child too,
 * and no thread is cancelled while it does. No call may be made in a signal handler. A process must
 * not open and close these files on its own: closing any descriptor of a file drops the process's
 * lock on it.
 *
 * A file that is removed or replaced gets the next record under its name. A process may close the
 * library's descriptors, as daemons close all they have: the next record opens its file again, and
 * whatever has the number by then is left alone. A FIFO under a log's name is refused.
 * The rings and the start log's header are read and written at offsets: the positions of their
 * descriptors say nothing. The process logs and the start log itself go on where they stand.
 *
 * Functions of this header report their failures to the system log through DBG_SysLog(), once the
 * locks are free. Where a result is "0xFFFFFFFF", it is #KORX_ERR_ALL_BITS.
 *
 * Lock order: a log's mutex, then its file lock. A security or life-cycle record that is discarded
 * takes the diagnostic record log's mutex and lock inside them, never the reverse.
 *
 * The numbers that the writers take are printed into the record, and the library attaches no
 * further meaning to them: app_cid (0 in the library's own records), index (0x37741004 is the
 * diagnostic log's, 0x37741005 the start log's), m_value and value. A message has at most as many
 * characters as the record has room for beside them.
 * @{ */

/** @name Results besides those of common.h
 * @{ */
#define ORX_PLOG_ERR_NULL_PARA 1u  /**< a required argument is null */
#define ORX_PLOG_ERR_HOOK 2u       /**< a hook is set: nothing was written */
#define ORX_PLOG_ERR_OPEN 6u       /**< the file could not be opened */
#define ORX_PLOG_ERR_LOCK 7u       /**< the file could not be locked */
#define ORX_PLOG_ERR_SEEK 8u       /**< start log: a seek failed, or there is nothing to seek in */
#define ORX_PLOG_ERR_CUT 9u        /**< start log: the log file could not be cut */
#define ORX_PLOG_ERR_HEADER 11u    /**< start log: the header could not be written whole */
#define ORX_PLOG_ERR_DISCARDED 99u /**< the record was discarded to keep unread ones */
/** @} */

/** The component's processes, and the indexes of their logs in g_stPLogInfo and g_iPLogFileFd. */
enum {
    ORX_PLOG_COMP_QTMON = 0,                    /**< "QTMON" */
    ORX_PLOG_COMP_ZELK_AGENT = 1,               /**< "zelk_agent" */
    ORX_PLOG_COMP_ZELK_QR9T = 2,                /**< "ZELK_QR9T" */
    ORX_PLOG_COMP_ZELK = 3,                     /**< "zelk" */
    ORX_PLOG_COMP_DXN = 4,                      /**< "DXN" */
    ORX_PLOG_COMP_COUNT = 5,                    /**< how many there are */
    ORX_PLOG_COMP_UNKNOWN = ORX_PLOG_COMP_COUNT /**< any other name */
};

/** The sections of the start log, each for the lines of one module. */
enum {
    STLOG_SECTION_FRAME = 0, /**< "FRAME" */
    STLOG_SECTION_PATCH = 1, /**< "PATCH" */
    STLOG_SECTION_CFL = 2,   /**< "CFL" */
    STLOG_SECTION_DBG = 3,   /**< "DBG" */
    STLOG_SECTION_COUNT = 4  /**< how many there are */
};

/** The commands of DBG_LockReg(), fcntl()'s F_SETLK and F_SETLKW. */
enum {
    DBG_LOCK_SET = 6,     /**< at once or not at all */
    DBG_LOCK_SET_WAIT = 7 /**< waits for whoever holds it */
};
/** The types of DBG_LockReg(), fcntl()'s F_WRLCK and F_UNLCK. */
enum {
    DBG_LOCK_WRITE = 1,  /**< takes the lock */
    DBG_LOCK_RELEASE = 2 /**< gives it back */
};

/** @name Shared state
 *
 * All of it is zero at load and filled by the set-up functions. A descriptor counts as open when it
 * is 1 or more.
 * @{ */

/** One log file. */
typedef struct LOG_INFO_S {
    char acFileName[256]; /**< full path; empty: not configured */
    uint32_t uiMaxSize;   /**< size limit in bytes */
} LOG_INFO_S;

/** Head of the ring logs, 12 bytes at offset 0 in host byte order; the data area follows it.
 *
 * After a wrap [0, uiLogLen) holds the newest records and [uiLogLen, uiTotalLen) what is left of
 * the lap before, its first record perhaps partly overwritten.
 *
 * The head cannot tell "nothing unread" from "a whole lap unread" when uiLogLen equals uiDumpLen. A
 * reader that has taken everything and finds uiLogLen 0 with uiTotalLen not 0 therefore leaves
 * uiDumpLen at uiTotalLen, not at 0: the writers then know that a whole lap is free. A reader moves
 * uiDumpLen under the file's record lock and leaves the other fields alone. */
typedef struct LOG_HEAD_S {
    uint32_t uiLogLen;   /**< end of the newest record in the data area */
    uint32_t uiDumpLen;  /**< up to here an outside reader has taken the records away */
    uint32_t uiTotalLen; /**< 0 before the first wrap, then the end of the previous lap */
} LOG_HEAD_S;

/** One section of the start log; offsets in its file. */
typedef struct STLOG_SEC_S {
    uint32_t uiMarker; /**< a fixed number of the section's, not compared */
    uint32_t uiStart;  /**< first byte */
    uint32_t uiEnd;    /**< just past the last */
    uint32_t uiCur;    /**< where the next line goes */
} STLOG_SEC_S;

/** The start log's header file, 76 bytes in host byte order. */
typedef struct STLOG_HDR_S {
    uint32_t uiFlag;       /**< 1; not compared */
    uint32_t uiMagic;      /**< 0xDEADBEAF, or the header is not accepted */
    uint32_t uiVersion;    /**< 2, or the header is not accepted */
    STLOG_SEC_S astSec[4]; /**< by STLOG_SECTION_... */
} STLOG_HDR_S;

/** A hook: that it is set is all that counts. */
typedef void (*ORX_LOG_Hook)(void);
/** The agent's report function: log type (1 security, 9 diagnostic and start, 22 life-cycle), log
 * id, and a text as for printf(). */
typedef uint32_t (*KORX_ImReportFunc)(uint32_t log_type, uint32_t log_id, const char* format, ...);

KORX_API extern char g_acLogPath[256];           /**< the log directory, set by LOG_FileInit() */
KORX_API extern LOG_INFO_S g_stDLogInfo;         /**< diagnostic record log, 262144 bytes */
KORX_API extern LOG_INFO_S g_stSLogInfo;         /**< security event log, 131072 bytes */
KORX_API extern LOG_INFO_S g_stLifeLogInfo;      /**< life-cycle log, 262144 bytes */
KORX_API extern LOG_INFO_S g_stPLogInfo[5];      /**< process logs by component number */
KORX_API extern char g_acSTLogFileHeadName[256]; /**< full path of the start log's header file */
KORX_API extern char g_acSTLogFileName[256];     /**< full path of the start log */
KORX_API extern int g_iPLogFileFd[5];            /**< process logs by component number */
KORX_API extern int g_iDLogFileFd;               /**< diagnostic record log */
KORX_API extern int g_iSLogFileFd;               /**< security event log */
KORX_API extern int g_lifeLogFileFd;             /**< life-cycle log */
KORX_API extern int g_iSTLogFileFd;              /**< start log */
KORX_API extern int g_iSTLogFileHeadFd;          /**< its header file */
KORX_API extern pthread_mutex_t g_unDLogMutex;   /**< diagnostic record log */
KORX_API extern pthread_mutex_t g_unSLogMutex;   /**< security event log */
KORX_API extern pthread_mutex_t g_unLLogMutex;   /**< life-cycle log */
/** Never called; set: KORX_DLog() writes nothing. */
KORX_API extern ORX_LOG_Hook g_pfOrxDiagLogHook;
/** Never called; set: no security event is written. */
KORX_API extern ORX_LOG_Hook g_pfOrxSafeLogHook;
KORX_API extern uint32_t g_uiOrxLocationId; /**< the "L:" field of every record */
KORX_API extern uint32_t g_uiOrxSelfSlotId; /**< slot of the board */
/** Set once the agent is bound, else null. */
KORX_API extern KORX_ImReportFunc g_KorxImAgentReportLogByIdFunc;

/** @} */
/** @name Set-up and identity
 *
 * To be called before other threads log.
 * @{ */

/** Sets the names and limits of all logs but the process logs from the configured log directory
 * and, unless "../conf/config/korx_sdk_init.conf" exists, seen from the working directory, binds
 * the agent library. Once it has succeeded further calls only warn. */
KORX_API void LOG_FileInit(void);
/** Sets the diagnostic record log's name and limit from g_acLogPath, as LOG_FileInit() does. */
KORX_API void DLOG_LogFileInit(void);
/** Sets the security event log's, likewise. */
KORX_API void SLOG_LogFileInit(void);
/** Sets the life-cycle log's, likewise. */
KORX_API void LLOG_LogFileInit(void);
/** Sets the two names of the start log, likewise. */
KORX_API void STLOG_LogFileInit(void);

/** Sets g_pfOrxDiagLogHook: a process that sends its diagnostic records elsewhere.
 *
 * @param hook null takes it back */
KORX_API void ORX_LOG_SetDiagLogHook(ORX_LOG_Hook hook);
/** Sets g_pfOrxSafeLogHook: a process that sends its security events elsewhere.
 *
 * @param hook null takes it back */
KORX_API void ORX_LOG_SetSafeLogHook(ORX_LOG_Hook hook);
/** Sets the "L:" field of every record.
 *
 * @param location_id a number of the platform's; 0 until set */
KORX_API void ORX_LOG_SetLocId(uint32_t location_id);
/** Sets the board's slot, which goes to the agent with diagnostic and start lines, and into the
 * records of the diagnostic log.
 *
 * @param slot_id a number of the platform's; 0 until set */
KORX_API void ORX_LOG_SetSlotId(uint32_t slot_id);
/** Reads the board's slot.
 *
 * @return what was set, else 0 */
KORX_API uint32_t ORX_LOG_GetSlotId(void);

/** Reads the log directory.
 *
 * @return g_acLogPath, the library's; "" before LOG_FileInit() */
KORX_API char* LOG_GetCurrPath(void);
/** Reads the diagnostic record log's name and limit.
 *
 * @return the address of g_stDLogInfo */
KORX_API LOG_INFO_S* DLOG_GetLogInfo(void);
/** Reads the security event log's.
 *
 * @return the address of g_stSLogInfo */
KORX_API LOG_INFO_S* SLOG_GetLogInfo(void);
/** Reads the life-cycle log's.
 *
 * @return the address of g_stLifeLogInfo */
KORX_API LOG_INFO_S* LLOG_GetLogInfo(void);

/** The number of a process.
 *
 * @param process_name compared exactly; not null
 * @return ORX_PLOG_COMP_... */
KORX_API uint32_t ORX_PLOG_GetCompType(const char* process_name);
/** The name of the first process whose log is configured.
 *
 * @param[out] buffer empty where the name does not fit, untouched where none is configured
 * @param size        of the buffer; 16 is always enough
 * @return 0; 0xFFFFFFFF when none is configured; ERANGE (34) when the name does not fit; EINVAL
 * (22) for a null buffer or size 0 */
KORX_API uint32_t ORX_PLOG_GetProcName(char* buffer, uint32_t size);

/** @} */
/** @} */

/** @defgroup korx_log_files What the product logs are made of
 *
 * Reports to the system log, locks, descriptors and records.
 *
 * For code that keeps a log of its own in the same way; a process that only logs needs none of it.
 * @{ */

/** Sends a text to the system log at a priority, and again at LOG_INFO behind the priority's name.
 * Flushes standard output. Keeps errno.
 *
 * @param priority LOG_...; one outside 0 to 7 reports at LOG_ERR
 * @param format   as for printf(); a text of more than 599 characters is not reported */
KORX_API void DBG_SysLog(int priority, const char* format, ...) KORX_PRINTF(2, 3);

/** Makes one record-lock request. Waiting goes on after a signal and after EDEADLK, which the
 * kernel also gives where several threads of several processes use several files without any
 * deadlock.
 *
 * @param fd      open for writing
 * @param command DBG_LOCK_SET or DBG_LOCK_SET_WAIT
 * @param type    DBG_LOCK_WRITE or DBG_LOCK_RELEASE
 * @param start   of the range, in bytes
 * @param whence  seen from where: SEEK_SET, SEEK_CUR or SEEK_END
 * @param length  of the range, in bytes; 0: to the end of the file, however it grows
 * @return 0 or #ORX_PLOG_ERR_LOCK with errno */
KORX_API uint32_t DBG_LockReg(int fd, int command, short type, off_t start, short whence,
                              off_t length);

/** Makes a descriptor close-on-exec.
 *
 * @param fd which
 * @return 0, or the negative result of fcntl() */
KORX_API int LOG_SetCloexecFlag(int fd);

/** Opens the file that a path resolves to, close-on-exec and never on descriptors 0 to 2.
 *
 * @param path    with its directory, which must exist
 * @param flags   as for open(); a new file gets the mode 0640
 * @param[out] fd the descriptor, the caller's
 * @return 0; #ORX_PLOG_ERR_OPEN with -1 in `*fd`; 0xFFFFFFFF */
KORX_API uint32_t LOG_OpenFile(const char* path, int flags, int* fd);

/** Makes sure that a log is open: one that is not, or whose file is no longer what path names, is
 * closed and opened anew at the file's end, with the directories it needs.
 *
 * @param path       of the log
 * @param[in,out] fd its descriptor; 0 or less: not open
 * @return 0; #ORX_PLOG_ERR_NULL_PARA; 0xFFFFFFFF */
KORX_API uint32_t LOG_CheckAndCreateFile(const char* path, int* fd);

/** One write().
 *
 * @param fd     where to
 * @param length of data, in bytes
 * @param data   what
 * @return its result; -1 for a negative descriptor or null data */
KORX_API int LOG_Write(int fd, uint32_t length, const void* data);

/** Cuts a file longer than a limit to it and moves to its start.
 *
 * @param fd    of the file
 * @param limit in bytes
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t LOG_CheckAndTruncate(int fd, uint32_t limit);

/** LOG_CheckAndTruncate() and one write, under the file lock.
 *
 * @param fd     of the file
 * @param data   what
 * @param length of data, in bytes
 * @param limit  in bytes
 * @return 0, always */
KORX_API uint32_t LOG_Buff2File(int fd, const void* data, uint32_t length, uint32_t limit);

/** Writes the record time stamp, 28 characters.
 *
 * @param[out] buffer takes it
 * @param size        of the buffer, at least 29
 * @return the number of characters, or -1 */
KORX_API int LOG_GetCurTime(char* buffer, uint32_t size);

/** Writes the time stamp and a formatted text.
 *
 * @param[out] buffer takes both
 * @param size        of the buffer
 * @param[out] length their characters
 * @param format      as for vprintf()
 * @param args        its arguments; undefined after the call
 * @return 0, or 0xFFFFFFFF when they do not fit */
KORX_API uint32_t LOG_BuffAddTime(char* buffer, int size, uint32_t* length, const char* format,
                                  va_list args) KORX_PRINTF(4, 0);

/** @} */

/** @defgroup korx_process_log Process log
 *
 * One plain file for each process, written again from its start where it is full.
 * @{ */

/** Sets the file "<process>.log" in the log directory and its limit. To be called before other
 * threads log.
 *
 * @param unused       not consulted
 * @param process_name one of those of ORX_PLOG_GetCompType(); another one sets nothing, and that is
 * reported
 * @param max_size     in bytes; 0: 262144 */
KORX_API void KORX_PLogInit(uint32_t unused, const char* process_name, uint32_t max_size);
/** Writes a line into the log of the first process that is configured here: the own one.
 *
 * Two processes that write one process log keep positions of their own and overwrite each other's
 * lines. A write that fails is not told.
 *
 * @param level   KORX_LEVEL_...; any above FATAL is FATAL
 * @param m_value a number of the caller's, printed behind "M:"
 * @param value   a number of the caller's, such as an error code, printed before the message
 * @param format  the message, as for printf(), without a line end
 * @return 0; 0xFFFFFFFF: the message is too long, no process log is configured or it cannot be
 * opened */
KORX_API uint32_t KORX_PLog(uint32_t level, uint32_t m_value, uint32_t value, const char* format,
                            ...) KORX_PRINTF(4, 5);
/** Writes a line into the log of a process that KORX_PLogInit() was called for here. Its fields
 * stand in another order than those of KORX_PLog().
 *
 * @param level        KORX_LEVEL_...; any above FATAL is FATAL
 * @param process_name whose log
 * @param m_value      a number of the caller's, printed behind "M:"
 * @param value        a number of the caller's, such as an error code, printed before the message
 * @param format       the message, as for printf(), without a line end
 * @return that of KORX_PLog() */
KORX_API uint32_t KORX_PLogByProcName(uint32_t level, const char* process_name, uint32_t m_value,
                                      uint32_t value, const char* format, ...) KORX_PRINTF(5, 6);
/** Writes a line of any form, with the time stamp before it.
 *
 * @param process_name whose log
 * @param format       as for printf(), with its line end
 * @return that of KORX_PLog() */
KORX_API uint32_t PLOG_LogFile(const char* process_name, const char* format, ...) KORX_PRINTF(2, 3);
/** Writes a record at the descriptor's position, under the file lock.
 *
 * @param fd     of the log
 * @param record a whole line
 * @param length of record, in bytes
 * @param limit  of the file, in bytes
 * @return 0, always */
KORX_API uint32_t PLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/** Moves to the start, after cutting or extending the file to its limit, when a record would end
 * beyond that.
 *
 * @param fd     of the log
 * @param length of the record, in bytes
 * @param limit  of the file, in bytes
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t PLOG_CheckAndTruncate(int fd, uint32_t length, uint32_t limit);

/** @} */

/** @defgroup korx_diag_log Diagnostic record log
 *
 * The ring "KORX_DIAG_LOG", which all processes write and which overwrites its oldest records.
 * @{ */

/** Writes a record, or hands the message to the bound agent with the log type 9, whose result is
 * not looked at.
 *
 * @param app_cid number of the application component, printed behind "AppCid:"
 * @param index   number of the message, printed behind "Index:"; the agent's log id
 * @param level   KORX_LEVEL_...; any above FATAL is FATAL
 * @param m_value a number of the caller's, printed behind "M:"
 * @param value   a number of the caller's, such as an error code, printed before the message
 * @param format  the message, as for printf(), without a line end
 * @return 0; #ORX_PLOG_ERR_HOOK; 0xFFFFFFFF */
KORX_API uint32_t KORX_DLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                            uint32_t value, const char* format, ...) KORX_PRINTF(6, 7);
/** Brings the records that this process wrote, and all others in the file, to the disk. Takes no
 * lock.
 *
 * @return 0, also when the log is not open; 0xFFFFFFFF when fsync() fails, with errno */
KORX_API uint32_t KORX_DLogFsync(void);
/** Writes a record of any form, with the time stamp before it.
 *
 * @param format as for printf(), with its line end
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t DLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);
/** Writes a record into the ring, under the file lock.
 *
 * @param fd     of the ring
 * @param record a whole line
 * @param length of record, in bytes
 * @param limit  of the file, in bytes
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t DLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/** Makes sure that a ring log is open, with a zero head if the file is new.
 *
 * @param path       of the log; its directory must exist
 * @param[in,out] fd its descriptor; 0 or less: not open
 * @return 0; #ORX_PLOG_ERR_NULL_PARA; 0xFFFFFFFF */
KORX_API uint32_t DLOG_CheckAndCreateFile(const char* path, int* fd);
/** Writes a ring's head. The caller holds the file lock.
 *
 * @param fd   of the ring
 * @param head what
 * @return the bytes written, 12, or -1 when the seek or write failed */
KORX_API int DLOG_WriteHead(int fd, const LOG_HEAD_S* head);
/** Reads a ring's head. The caller holds the file lock.
 *
 * @param fd        of the ring
 * @param[out] head left as it was behind what the file has
 * @return the bytes read, 12 for a whole head, or -1 when the seek or read failed */
KORX_API int DLOG_ReadHead(int fd, LOG_HEAD_S* head);

/** @} */

/** @defgroup korx_security_log Security event log
 *
 * The ring "korx_safe.log", which never overwrites records that no reader has taken.
 *
 * Without a reader it fills once and then refuses.
 * @{ */

/** Writes an event, or hands the message to the bound agent with the log type 1.
 *
 * @param app_cid number of the application component, printed behind "AppCid:"
 * @param index   number of the message, printed behind "Index:"; the agent's log id
 * @param level   KORX_LEVEL_...; any above FATAL is FATAL
 * @param m_value a number of the caller's, printed behind "M:"
 * @param value   a number of the caller's, such as an error code, printed before the message
 * @param format  the message, as for printf(), without a line end
 * @return 0; #ORX_PLOG_ERR_DISCARDED (a warning then stands in the diagnostic record log); the
 * agent's result; 0xFFFFFFFF, also when a hook is set */
KORX_API uint32_t KORX_SecurityEventLog(uint32_t app_cid, uint32_t index, uint32_t level,
                                        uint32_t m_value, uint32_t value, const char* format, ...)
    KORX_PRINTF(6, 7);
/** Writes an event of any form, with the time stamp before it.
 *
 * @param format as for printf(), with its line end
 * @return 0; #ORX_PLOG_ERR_DISCARDED; 0xFFFFFFFF */
KORX_API uint32_t SLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);
/** Writes a record into a ring that keeps unread ones. The caller holds the file lock.
 *
 * @param fd     of the ring
 * @param record a whole line
 * @param length of record, in bytes
 * @param limit  of the file, in bytes
 * @return 0; #ORX_PLOG_ERR_DISCARDED; 0xFFFFFFFF */
KORX_API uint32_t SLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/** Whether a record would overwrite records that no reader has taken yet. With uiLogLen equal to
 * uiDumpLen it takes everything as read; see LOG_HEAD_S.
 *
 * @param head   of the ring
 * @param length of the record, in bytes
 * @param limit  of the file, in bytes
 * @return 1 or 0 */
KORX_API uint32_t LOG_IsReachUndump(LOG_HEAD_S head, uint32_t length, uint32_t limit);

/** @} */

/** @defgroup korx_life_log Life-cycle log
 *
 * The ring "korx_life.log", which never overwrites records that no reader has taken.
 *
 * Without a reader it fills once and then refuses.
 * @{ */

/** Writes an event if "../conf/config/korx_sdk_init.conf" exists, seen from the working directory;
 * else hands the message to the agent, with the log type 22, if it is bound; else does nothing.
 *
 * @param app_cid number of the application component, printed behind "AppCid:"
 * @param index   number of the message, printed behind "Index:"; the agent's log id
 * @param level   KORX_LEVEL_...; any above FATAL is FATAL
 * @param m_value a number of the caller's, printed behind "M:"
 * @param value   a number of the caller's, such as an error code, printed before the message
 * @param format  the message, as for printf(), without a line end
 * @return 0, also when the event goes nowhere; #ORX_PLOG_ERR_DISCARDED (a warning then stands in
 * the diagnostic record log); #ORX_PLOG_ERR_LOCK; the agent's result; 0xFFFFFFFF */
KORX_API uint32_t KORX_LifeCycleLog(uint32_t app_cid, uint32_t index, uint32_t level,
                                    uint32_t m_value, uint32_t value, const char* format, ...)
    KORX_PRINTF(6, 7);
/** Writes an event of any form, with the time stamp before it.
 *
 * @param format as for printf(), with its line end
 * @return 0; #ORX_PLOG_ERR_DISCARDED; #ORX_PLOG_ERR_LOCK; 0xFFFFFFFF */
KORX_API uint32_t LLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);

/** @} */

/** @defgroup korx_start_log Start log
 *
 * What happens while the component starts: "KORX_START_LOG", four rings side by side in one file,
 * with their cursors in ".korxloghdr".
 *
 * The calls below whose caller holds the locks work on the open files of the process. File locks do
 * not keep its other threads out: call them while no other thread uses the start log.
 * @{ */

/** Writes a line into a module's section, or hands it to the bound agent with the log type 9 and
 * the log id 0x37741005, whose result is not looked at.
 *
 * @param module STLOG_SECTION_...; the agent takes any
 * @param level  KORX_LEVEL_...; any above FATAL is FATAL
 * @param value  a number of the caller's, such as an error code, printed before the message
 * @param format the message, as for printf(), without a line end
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t KORX_STLog(uint32_t module, uint32_t level, uint32_t value, const char* format,
                             ...) KORX_PRINTF(4, 5);
/** Writes a line of any form, with the time stamp before it.
 *
 * @param section STLOG_SECTION_...
 * @param format  as for printf(), with its line end
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t STLOG_LogFile(uint32_t section, const char* format, ...) KORX_PRINTF(2, 3);
/** Opens or reopens both files.
 *
 * @return 0 or 0xFFFFFFFF */
KORX_API uint32_t STLOG_CheckFileHandle(void);
/** Writes a record at its section's cursor, under both file locks.
 *
 * @param section STLOG_SECTION_...
 * @param record  a whole line
 * @param length  of record, in bytes
 * @return 0; 0xFFFFFFFF, also when the files were never opened or the record does not fit behind
 * the cursor */
KORX_API uint32_t STLOG_LogBuff2File(uint32_t section, const void* record, uint32_t length);
/** Reads the header, resets the log file when it is not acceptable, and moves the log file to the
 * section's cursor. The caller holds the locks.
 *
 * @param section     STLOG_SECTION_...
 * @param[out] header as read, or the default one
 * @return 0; #ORX_PLOG_ERR_SEEK, also when a file is not open or there is no such section;
 * #ORX_PLOG_ERR_CUT */
KORX_API uint32_t STLOG_LogHdrGet(uint32_t section, STLOG_HDR_S* header);
/** Writes the header file. The caller holds its lock.
 *
 * @param header what
 * @return 0; #ORX_PLOG_ERR_SEEK; #ORX_PLOG_ERR_HEADER */
KORX_API uint32_t STLOG_LogHdrPut(const STLOG_HDR_S* header);
/** Fills in the default layout.
 *
 * @param[out] header all of it */
KORX_API void STLOG_LoghdrInit(STLOG_HDR_S* header);
/** Whether a header that was read has the magic and version of another one, which it then replaces.
 *
 * @param read           from the file
 * @param[in,out] header the default one
 * @return 1 or 0 */
KORX_API uint32_t STLOG_LogValidCheck(const STLOG_HDR_S* read, STLOG_HDR_S* header);
/** Writes the separator before each section's start. The caller holds the locks.
 *
 * @param header says where; null does nothing */
KORX_API void STLOG_LogSeperatorInit(const STLOG_HDR_S* header);
/** Writes blanks at the log file's position. The caller holds the locks.
 *
 * @param count how many, at most 600
 * @return that of the write; -1 when the log is not open */
KORX_API int STLOG_LogCleanupEnding(uint32_t count);
/** Copies the module name of a section.
 *
 * @param section     STLOG_SECTION_...; "DEFAULT" beyond the last
 * @param[out] buffer empty where the name does not fit
 * @param size        of the buffer; 8 is always enough
 * @return 0; ERANGE (34) when it does not fit; EINVAL (22) for a null buffer or size 0 */
KORX_API uint32_t STLOG_GetMoudleBySecIndex(uint32_t section, char* buffer, uint32_t size);

/** @} */

/** @defgroup korx_agent Agent reporting
 *
 * The platform's agent library, which takes the records on boards where it runs. Once it is bound
 * it stays so. It is called on the caller's thread; whether it bears several at once is its own
 * business.
 * @{ */

/** Loads "libimagent.so" and looks its report function up. LOG_FileInit() does it.
 * To be called before other threads log. */
KORX_API void KORX_ImDiagLogFuncInit(void);
/** Whether the agent is bound.
 *
 * @return 1 or 0 */
KORX_API uint32_t KORX_IsImLibInited(void);
/** Whether "/dev/shm/korx/PkgPoolReady" exists: then somebody collects the diagnostic records, and
 * the diagnostic log no longer writes its own file beside them.
 *
 * @return 1 or 0 */
KORX_API uint32_t KORX_IsPkgPoolReady(void);
/** Hands a text to the agent with the log type 9, with "[SlotId=%u]" behind it.
 *
 * @param log_id the agent's number for the kind of text
 * @param text   at most 1022 characters with its slot
 * @return the agent's result; 0xFFFFFFFF when it is not bound or the text is too long */
KORX_API uint32_t KORX_ReportLogByImLib(uint32_t log_id, const char* text);
/** Hands a text to the agent with the log type 9, as it is.
 *
 * @param log_id the agent's number for the kind of text
 * @param text   of any length
 * @return the agent's result; 0xFFFFFFFF when it is not bound */
KORX_API uint32_t KORX_ReportDiagLogByImLib(uint32_t log_id, const char* text);

/** @} */

KORX_END_DECLS

#endif
