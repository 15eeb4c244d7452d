/* The product logs: five record logs that the component's processes write side by side into the log
 * directory, and the binding to the platform's agent library.
 *
 * A record is one line that begins with the local time "[yyyy-mm-dd hh:mm:ss.uuuuuu]" and has at
 * most 599 characters; a longer one is refused, never cut. Levels are KORX_LEVEL_... Every
 * read-modify-write of a file happens under a POSIX record lock on the whole file, and inside a
 * process under a mutex taken before it, so any thread of any process may log, a forked child too,
 * and no thread is cancelled while it does. A process must not open and close these files on its
 * own: closing any descriptor of a file drops the process's lock on it.
 *
 * A file that is removed or replaced gets the next record under its name. A process may close the
 * library's descriptors, as daemons close all they have: the next record opens its file again, and
 * whatever has the number by then is left alone. A FIFO under a log's name is refused.
 * The rings and the start log's header are read and written at offsets: the positions of their
 * descriptors say nothing. The process logs and the start log itself go on where they stand.
 *
 * Functions of this header report their failures to the system log through DBG_SysLog, once the
 * locks are free. Where a result is "0xFFFFFFFF", it is KORX_ERR_ALL_BITS.
 *
 * Lock order: a log's mutex, then its file lock. A security or life-cycle record that is discarded
 * takes the diagnostic record log's mutex and lock inside them, never the reverse. */
#ifndef KORX_PLOG_H
#define KORX_PLOG_H

#include <pthread.h>
#include <stdarg.h>
#include <sys/types.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/* The results besides those of common.h. */
#define ORX_PLOG_ERR_NULL_PARA 1u  /* a required argument is null */
#define ORX_PLOG_ERR_HOOK 2u       /* a hook is set: nothing was written */
#define ORX_PLOG_ERR_OPEN 6u       /* the file could not be opened */
#define ORX_PLOG_ERR_LOCK 7u       /* the file could not be locked */
#define ORX_PLOG_ERR_SEEK 8u       /* start log: a seek failed, or there is nothing to seek in */
#define ORX_PLOG_ERR_CUT 9u        /* start log: the log file could not be cut */
#define ORX_PLOG_ERR_HEADER 11u    /* start log: the header could not be written whole */
#define ORX_PLOG_ERR_DISCARDED 99u /* the record was discarded to keep unread ones */

/* The component's processes, and the indexes of their logs in g_stPLogInfo and g_iPLogFileFd. */
enum {
    ORX_PLOG_COMP_QTMON = 0,
    ORX_PLOG_COMP_ZELK_AGENT = 1,
    ORX_PLOG_COMP_ZELK_QR9T = 2,
    ORX_PLOG_COMP_ZELK = 3,
    ORX_PLOG_COMP_DXN = 4,
    ORX_PLOG_COMP_COUNT = 5,
    ORX_PLOG_COMP_UNKNOWN = ORX_PLOG_COMP_COUNT /* any other name */
};

/* The sections of the start log, each for the lines of one module. */
enum {
    STLOG_SECTION_FRAME = 0,
    STLOG_SECTION_PATCH = 1,
    STLOG_SECTION_CFL = 2,
    STLOG_SECTION_DBG = 3,
    STLOG_SECTION_COUNT = 4
};

/* The commands and types of DBG_LockReg: fcntl's F_SETLK and F_SETLKW, F_WRLCK and F_UNLCK. */
enum { DBG_LOCK_SET = 6, DBG_LOCK_SET_WAIT = 7 };
enum { DBG_LOCK_WRITE = 1, DBG_LOCK_RELEASE = 2 };

/* --- Shared state ---
 *
 * All of it is zero at load and filled by the set-up functions. A descriptor counts as open when it
 * is 1 or more. */

/* One log file. */
typedef struct LOG_INFO_S {
    char acFileName[256]; /* full path; empty: not configured */
    uint32_t uiMaxSize;   /* size limit in bytes */
} LOG_INFO_S;

/* Head of the ring logs, 12 bytes at offset 0 in host byte order; the data area follows it.
 *
 * After a wrap [0, uiLogLen) holds the newest records and [uiLogLen, uiTotalLen) what is left of
 * the lap before, its first record perhaps partly overwritten.
 *
 * The head cannot tell "nothing unread" from "a whole lap unread" when uiLogLen equals uiDumpLen. A
 * reader that has taken everything and finds uiLogLen 0 with uiTotalLen not 0 therefore leaves
 * uiDumpLen at uiTotalLen, not at 0: the writers then know that a whole lap is free. A reader moves
 * uiDumpLen under the file's record lock and leaves the other fields alone. */
typedef struct LOG_HEAD_S {
    uint32_t uiLogLen;   /* end of the newest record in the data area */
    uint32_t uiDumpLen;  /* up to here an outside reader has taken the records away */
    uint32_t uiTotalLen; /* 0 before the first wrap, then the end of the previous lap */
} LOG_HEAD_S;

/* One section of the start log; offsets in its file. */
typedef struct STLOG_SEC_S {
    uint32_t uiMarker;
    uint32_t uiStart; /* first byte */
    uint32_t uiEnd;   /* just past the last */
    uint32_t uiCur;   /* where the next line goes */
} STLOG_SEC_S;

/* The start log's header file, 76 bytes in host byte order. */
typedef struct STLOG_HDR_S {
    uint32_t uiFlag;
    uint32_t uiMagic;
    uint32_t uiVersion;
    STLOG_SEC_S astSec[4]; /* by STLOG_SECTION_... */
} STLOG_HDR_S;

typedef void (*ORX_LOG_Hook)(void);
typedef uint32_t (*KORX_ImReportFunc)(uint32_t log_type, uint32_t log_id, const char* format, ...);

KORX_API extern char g_acLogPath[256];      /* the log directory, set by LOG_FileInit */
KORX_API extern LOG_INFO_S g_stDLogInfo;    /* diagnostic record log, 262144 bytes */
KORX_API extern LOG_INFO_S g_stSLogInfo;    /* security event log, 131072 bytes */
KORX_API extern LOG_INFO_S g_stLifeLogInfo; /* life-cycle log, 262144 bytes */
KORX_API extern LOG_INFO_S g_stPLogInfo[5]; /* process logs by component number */
KORX_API extern char g_acSTLogFileHeadName[256];
KORX_API extern char g_acSTLogFileName[256];
KORX_API extern int g_iPLogFileFd[5];
KORX_API extern int g_iDLogFileFd;
KORX_API extern int g_iSLogFileFd;
KORX_API extern int g_lifeLogFileFd;
KORX_API extern int g_iSTLogFileFd;
KORX_API extern int g_iSTLogFileHeadFd;
KORX_API extern pthread_mutex_t g_unDLogMutex;
KORX_API extern pthread_mutex_t g_unSLogMutex;
KORX_API extern pthread_mutex_t g_unLLogMutex;
KORX_API extern ORX_LOG_Hook g_pfOrxDiagLogHook; /* never called; set: KORX_DLog writes nothing */
KORX_API extern ORX_LOG_Hook
    g_pfOrxSafeLogHook;                     /* never called; set: no security event is written */
KORX_API extern uint32_t g_uiOrxLocationId; /* the "L:" field of every record */
KORX_API extern uint32_t g_uiOrxSelfSlotId; /* slot of the board */
KORX_API extern KORX_ImReportFunc g_KorxImAgentReportLogByIdFunc; /* set once the agent is bound */

/* --- Set-up and identity; call before other threads log --- */

/* Sets the names and limits of all logs but the process logs from the configured log directory and,
 * unless "../conf/config/korx_sdk_init.conf" exists, binds the agent library. Once it has succeeded
 * further calls only warn. */
KORX_API void LOG_FileInit(void);
/* Each sets one log's names from g_acLogPath as LOG_FileInit does. */
KORX_API void DLOG_LogFileInit(void);
KORX_API void SLOG_LogFileInit(void);
KORX_API void LLOG_LogFileInit(void);
KORX_API void STLOG_LogFileInit(void);

KORX_API void ORX_LOG_SetDiagLogHook(ORX_LOG_Hook hook);
KORX_API void ORX_LOG_SetSafeLogHook(ORX_LOG_Hook hook);
KORX_API void ORX_LOG_SetLocId(uint32_t location_id);
KORX_API void ORX_LOG_SetSlotId(uint32_t slot_id);
KORX_API uint32_t ORX_LOG_GetSlotId(void);

KORX_API char* LOG_GetCurrPath(void);
KORX_API LOG_INFO_S* DLOG_GetLogInfo(void);
KORX_API LOG_INFO_S* SLOG_GetLogInfo(void);
KORX_API LOG_INFO_S* LLOG_GetLogInfo(void);

/* The number of a process, ORX_PLOG_COMP_...: "QTMON", "zelk_agent", "ZELK_QR9T", "zelk" and "DXN"
 * have one, any other name is ORX_PLOG_COMP_UNKNOWN. */
KORX_API uint32_t ORX_PLOG_GetCompType(const char* process_name);
/* The name of the first process whose log is configured. Result: 0, or nonzero, with buffer empty
 * or untouched, when none is configured or the name does not fit. */
KORX_API uint32_t ORX_PLOG_GetProcName(char* buffer, uint32_t size);

/* --- What the logs are made of --- */

/* Sends a text of at most 599 characters to the system log at the priority, and again at LOG_INFO
 * behind the priority's name. A longer text is not reported; a priority outside 0 to 7 reports at
 * LOG_ERR. Flushes standard output. Keeps errno. */
KORX_API void DBG_SysLog(int priority, const char* format, ...) KORX_PRINTF(2, 3);

/* One record-lock request, DBG_LOCK_SET or DBG_LOCK_SET_WAIT with DBG_LOCK_WRITE or
 * DBG_LOCK_RELEASE. Waiting goes on after a signal and after EDEADLK, which the kernel also gives
 * where several threads of several processes use several files without any deadlock. Result: 0 or
 * ORX_PLOG_ERR_LOCK. */
KORX_API uint32_t DBG_LockReg(int fd, int command, short type, off_t start, short whence,
                              off_t length);

/* Result: the negative fcntl result, or 0. */
KORX_API int LOG_SetCloexecFlag(int fd);

/* Opens the file that path resolves to, mode 0640, close-on-exec and never on descriptors 0 to 2.
 * Result: 0; ORX_PLOG_ERR_OPEN (*fd is -1); 0xFFFFFFFF. */
KORX_API uint32_t LOG_OpenFile(const char* path, int flags, int* fd);

/* Makes *fd an open descriptor of the file at path: one that is not open, or whose file is no
 * longer what path names, is closed and opened anew at the file's end, with the directories it
 * needs. Result: 0; ORX_PLOG_ERR_NULL_PARA; 0xFFFFFFFF. */
KORX_API uint32_t LOG_CheckAndCreateFile(const char* path, int* fd);

/* One write. Result: its result; -1 for a negative descriptor or null data. */
KORX_API int LOG_Write(int fd, uint32_t length, const void* data);

/* Cuts a file longer than limit to it and moves to its start. Result: 0 or 0xFFFFFFFF. */
KORX_API uint32_t LOG_CheckAndTruncate(int fd, uint32_t limit);

/* The same and one write, under the file lock. Always 0. */
KORX_API uint32_t LOG_Buff2File(int fd, const void* data, uint32_t length, uint32_t limit);

/* Writes the record time stamp, 28 characters. Result: their number, or -1. */
KORX_API int LOG_GetCurTime(char* buffer, uint32_t size);

/* Writes the time stamp and the formatted text. length: the record's characters. Result: 0, or
 * 0xFFFFFFFF when they do not fit in size bytes. */
KORX_API uint32_t LOG_BuffAddTime(char* buffer, int size, uint32_t* length, const char* format,
                                  va_list args) KORX_PRINTF(4, 0);

/* --- Process log: one plain file per process, wrapping to its start --- */

/* Sets the file "<process>.log" and its limit (0: 262144). The first argument is ignored. */
KORX_API void KORX_PLogInit(uint32_t unused, const char* process_name, uint32_t max_size);
/* Write a line into the own or into a named process's log. Result: 0 or 0xFFFFFFFF. Two processes
 * that write one process log keep positions of their own and overwrite each other's lines. */
KORX_API uint32_t KORX_PLog(uint32_t level, uint32_t m_value, uint32_t value, const char* format,
                            ...) KORX_PRINTF(4, 5);
KORX_API uint32_t KORX_PLogByProcName(uint32_t level, const char* process_name, uint32_t m_value,
                                      uint32_t value, const char* format, ...) KORX_PRINTF(5, 6);
KORX_API uint32_t PLOG_LogFile(const char* process_name, const char* format, ...) KORX_PRINTF(2, 3);
/* Writes a record at the descriptor's position, under the file lock. Always 0. */
KORX_API uint32_t PLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/* Moves to the start, after cutting or extending the file to limit, when the record would end
 * beyond limit. Result: 0 or 0xFFFFFFFF. */
KORX_API uint32_t PLOG_CheckAndTruncate(int fd, uint32_t length, uint32_t limit);

/* --- Diagnostic record log: the ring "KORX_DIAG_LOG" --- */

/* Writes a record, or hands the message to the bound agent. Result: 0; ORX_PLOG_ERR_HOOK;
 * 0xFFFFFFFF. */
KORX_API uint32_t KORX_DLog(uint32_t app_cid, uint32_t index, uint32_t level, uint32_t m_value,
                            uint32_t value, const char* format, ...) KORX_PRINTF(6, 7);
/* Result: 0, also when the log is not open; 0xFFFFFFFF. Takes no lock. */
KORX_API uint32_t KORX_DLogFsync(void);
KORX_API uint32_t DLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);
/* Writes a record into the ring, under the file lock. Result: 0 or 0xFFFFFFFF. */
KORX_API uint32_t DLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/* Makes *fd an open descriptor of a ring log, with a zero head if the file is new. The directory
 * must exist. Result: 0; ORX_PLOG_ERR_NULL_PARA; 0xFFFFFFFF. */
KORX_API uint32_t DLOG_CheckAndCreateFile(const char* path, int* fd);
/* Result: the bytes written or read, or -1 when the seek failed. The caller holds the file lock. */
KORX_API int DLOG_WriteHead(int fd, const LOG_HEAD_S* head);
KORX_API int DLOG_ReadHead(int fd, LOG_HEAD_S* head);

/* --- Security event log: the ring "korx_safe.log", which never overwrites unread records --- */

/* Writes an event, or hands the message to the bound agent. Result: 0; ORX_PLOG_ERR_DISCARDED (a
 * warning then stands in the diagnostic record log); the agent's result; 0xFFFFFFFF, also when a
 * hook is set. */
KORX_API uint32_t KORX_SecurityEventLog(uint32_t app_cid, uint32_t index, uint32_t level,
                                        uint32_t m_value, uint32_t value, const char* format, ...)
    KORX_PRINTF(6, 7);
KORX_API uint32_t SLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);
/* Writes a record into the ring. The caller holds the file lock. Result: 0,
 * ORX_PLOG_ERR_DISCARDED or 0xFFFFFFFF. */
KORX_API uint32_t SLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit);
/* 1 when a record of this length would overwrite records that no reader has taken yet, else 0. With
 * uiLogLen equal to uiDumpLen it takes everything as read; see LOG_HEAD_S. */
KORX_API uint32_t LOG_IsReachUndump(LOG_HEAD_S head, uint32_t length, uint32_t limit);

/* --- Life-cycle log: the ring "korx_life.log", which never overwrites unread records --- */

/* Writes an event if "../conf/config/korx_sdk_init.conf" exists, else hands the message to the
 * agent if it is bound. Result: 0, also when the event goes nowhere; ORX_PLOG_ERR_DISCARDED as
 * above; ORX_PLOG_ERR_LOCK; the agent's result; 0xFFFFFFFF. */
KORX_API uint32_t KORX_LifeCycleLog(uint32_t app_cid, uint32_t index, uint32_t level,
                                    uint32_t m_value, uint32_t value, const char* format, ...)
    KORX_PRINTF(6, 7);
KORX_API uint32_t LLOG_LogFile(const char* format, ...) KORX_PRINTF(1, 2);

/* --- Start log: "KORX_START_LOG", four rings side by side, cursors in ".korxloghdr" --- */

/* Writes a line into a module's section, STLOG_SECTION_..., or hands it to the bound agent. Result:
 * 0 or 0xFFFFFFFF. */
KORX_API uint32_t KORX_STLog(uint32_t module, uint32_t level, uint32_t value, const char* format,
                             ...) KORX_PRINTF(4, 5);
KORX_API uint32_t STLOG_LogFile(uint32_t section, const char* format, ...) KORX_PRINTF(2, 3);
/* Opens or reopens both files. Result: 0 or 0xFFFFFFFF. */
KORX_API uint32_t STLOG_CheckFileHandle(void);
/* Writes a record at its section's cursor, under both file locks. Result: 0; 0xFFFFFFFF, also when
 * the files were never opened or the record does not fit behind the cursor. */
KORX_API uint32_t STLOG_LogBuff2File(uint32_t section, const void* record, uint32_t length);
/* Reads the header, resets both files when it is not acceptable, and moves the log file to the
 * section's cursor. Result: 0; ORX_PLOG_ERR_SEEK, also when a file is not open or there is no such
 * section; ORX_PLOG_ERR_CUT. The caller holds the locks. */
KORX_API uint32_t STLOG_LogHdrGet(uint32_t section, STLOG_HDR_S* header);
/* Result: 0, ORX_PLOG_ERR_SEEK or ORX_PLOG_ERR_HEADER. */
KORX_API uint32_t STLOG_LogHdrPut(const STLOG_HDR_S* header);
/* Fills in the default layout. */
KORX_API void STLOG_LoghdrInit(STLOG_HDR_S* header);
/* 1, with read copied over header, when magic and version match, else 0. */
KORX_API uint32_t STLOG_LogValidCheck(const STLOG_HDR_S* read, STLOG_HDR_S* header);
/* Writes the separator before each section's start. */
KORX_API void STLOG_LogSeperatorInit(const STLOG_HDR_S* header);
/* Writes at most 600 blanks at the log file's position. Result: that of the write. */
KORX_API int STLOG_LogCleanupEnding(uint32_t count);
/* Copies the module name of a section, "DEFAULT" beyond the last. Result: 0, or nonzero when it
 * does not fit. */
KORX_API uint32_t STLOG_GetMoudleBySecIndex(uint32_t section, char* buffer, uint32_t size);

/* --- Agent reporting --- */

/* Loads "libimagent.so" and looks its report function up. */
KORX_API void KORX_ImDiagLogFuncInit(void);
/* 1 when the agent is bound, else 0. */
KORX_API uint32_t KORX_IsImLibInited(void);
/* 1 when "/dev/shm/korx/PkgPoolReady" exists, else 0. */
KORX_API uint32_t KORX_IsPkgPoolReady(void);
/* Hand a text to the agent, the first with "[SlotId=%u]" behind it. Result: the agent's result;
 * 0xFFFFFFFF when it is not bound or the text with its slot exceeds 1022 characters. */
KORX_API uint32_t KORX_ReportLogByImLib(uint32_t log_id, const char* text);
KORX_API uint32_t KORX_ReportDiagLogByImLib(uint32_t log_id, const char* text);

KORX_END_DECLS

#endif
