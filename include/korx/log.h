/** @file
 * The diagnostic log. */
#ifndef KORX_LOG_H
#define KORX_LOG_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_log Diagnostic log
 *
 * One running log shared by the component's processes, its set-up, the reserved space-full log and
 * the crash dump.
 *
 * A line goes where the process-wide record g_stLogInfo says: to the system log (the default), to
 * the agent or the diagnostic record log and the process's log file, or to the log file only. The
 * log reports its own failures to the system log at LOG_ERR, never to itself: a line raised while
 * the thread is already inside a log writer goes to the system log as in #ORX_LOG_MODE_SYSLOG.
 *
 * Log file: a 4-byte count of text bytes in host byte order, then lines. Once the count has passed
 * the limit the next line starts again behind the count, over the oldest text.
 * @{ */

/** Where a line goes; any higher value silences the log. */
enum {
    ORX_LOG_MODE_SYSLOG_LINE = 0, /**< the full line to the system log at LOG_INFO */
    ORX_LOG_MODE_DIAG = 1,   /**< agent, or diagnostic record log and log file; set by set-up */
    ORX_LOG_MODE_SYSLOG = 2, /**< "[module id] message" to the system log; the default */
    ORX_LOG_MODE_FILE = 3    /**< the full line to the log file only */
};

/** The agent's module id; its log file is one of its own. */
#define ORX_LOG_MODULE_AGENT 80100u

/** What ORX_UpdatelogLen() does; any other value reads, too. */
enum {
    ORX_LOG_LENGTH_READ = 0, /**< reads the count */
    ORX_LOG_LENGTH_WRITE = 1 /**< writes it */
};

/** The log record, 464 bytes without gaps. Read freely; replace it with KORX_LogInit(). */
typedef struct ORX_LogInfo {
    uint32_t uiLogLevel;     /**< for the processes' own use; the library never filters by it */
    uint32_t uiLogMode;      /**< ORX_LOG_MODE_... */
    uint32_t uiModuleId;     /**< printed in every line; #ORX_LOG_MODULE_AGENT is the agent */
    uint32_t uiMaxLogLen;    /**< limit of the log file's text in bytes */
    char acProcName[64];     /**< for the processes' own use */
    char acLogDir[256];      /**< directory of the log file */
    char acLogFileName[128]; /**< its name in that directory */
} ORX_LogInfo;

/** The record in force. Before set-up: level 4, #ORX_LOG_MODE_SYSLOG, the rest zero. */
KORX_API extern ORX_LogInfo g_stLogInfo;

/** Set and read by callers; the library only answers ORX_IsCrcClosed() from it. */
KORX_API extern char* g_pcORXCrcEnv;
/** For callers; the library neither reads nor writes it. */
KORX_API extern void* g_pstOrxLogCfgHead;

/** Writes one line.
 *
 * How long a message may be depends on where it goes. In every mode it has at most 1021 characters,
 * and in the two that write the full line to a file at most 1022 with its prefix. In
 * #ORX_LOG_MODE_DIAG, which set-up chooses, the line must also fit where it is taken: a diagnostic
 * record has 599 characters, which leaves about 460 for the message, and the agent takes 1022 with
 * "[SlotId=%u]" behind the line. A longer message is dropped whole, from the log file too, and
 * reported to the system log.
 *
 * Keeps errno. Safe from any thread, between processes, and in a forked child, but not in a signal
 * handler. A thread is not cancelled while it writes.
 *
 * @param level  KORX_LEVEL_..., any above ERR is ERR; nothing is filtered
 * @param format as for printf(), without a line end */
KORX_API void ORX_Log2File(uint32_t level, const char* format, ...) KORX_PRINTF(2, 3);

/** Hands all to vsyslog(). Keeps errno.
 *
 * @param priority LOG_...
 * @param format   as for syslog() */
KORX_API void ORX_syslog(int priority, const char* format, ...) KORX_PRINTF(2, 3);

/** Writes the local time as "[yymmdd-hh:mm:ss.uuuuuu]", 24 characters.
 *
 * @param[out] buffer null is left alone, and reported to the system log
 * @param size        of the buffer, at least 26; a smaller one is emptied, and that is reported */
KORX_API void ORX_GetLogTimeStr(char* buffer, uint32_t size);

/** The syslog priority of a level.
 *
 * @param level KORX_LEVEL_...
 * @return 6, 6, 4, 3 for 0 to 3, else 6 */
KORX_API uint32_t ORX_LogLevelSwitch2SysLogLevel(uint32_t level);

/** Writes or reads the 4-byte count at the start of a log file, whose flock the caller holds. A
 * failed seek is silent, a short transfer is reported to the system log.
 *
 * @param fd             of the log file; its position moves
 * @param operation      ORX_LOG_LENGTH_...
 * @param[in,out] length the count, in bytes of text */
KORX_API void ORX_UpdatelogLen(int fd, uint32_t operation, uint32_t* length);

/** Makes an empty log (4 zero bytes, mode 0640), with the directories it needs; an existing file is
 * left untouched. Processes that race to create the same log keep each other's lines.
 *
 * @param directory absolute; missing parts are made with mode 0750
 * @param name      in that directory; both with a '/' between have at most 511 characters
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t ORX_CreateLogfile(const char* directory, const char* name);

/** Appends a text to a log file under its flock, starting again at its beginning once the text in
 * it has passed a limit. The file never grows beyond 4 + limit + one text.
 *
 * @param path  of the log file, which is made where it is missing; its directory must exist
 * @param limit in bytes
 * @param text  goes in as it is, with its line end
 * @return 0; 0x0FFFFFFF; the negative result of the failing ftruncate(), lseek() or write() as
 * uint32 */
KORX_API uint32_t ORX_WriteLogfile(const char* path, uint32_t limit, const char* text);

/** Whether g_pcORXCrcEnv is set.
 *
 * @return 1 or 0 */
KORX_API uint32_t ORX_IsCrcClosed(void);

/** Puts a log record of the caller's in force. Not safe against threads that already log: call it
 * at process start.
 *
 * @param record is copied; its strings must be terminated */
KORX_API void KORX_LogInit(const ORX_LogInfo* record);

/** Sets the log up for a process: #ORX_LOG_MODE_DIAG, "orx_agent.log" for the agent and
 * "orx_app.log" for any other, in the configured log directory, limit 524288. Call it at process
 * start, before other threads log. A failure leaves the record as it was.
 *
 * @param module_id    printed in every line; #ORX_LOG_MODULE_AGENT makes the process the agent
 * @param process_name at most 63 characters; stored in acProcName only
 * @return 0; the failing step's code: 0x71000001 or 0x71000007 of KORX_GetLogPath(), else an error
 * of the copy */
KORX_API uint32_t KORX_OrxLogInit(uint32_t module_id, const char* process_name);

/** Reserves the space-full log "orx_spacefull.log" in the log directory: 5120 blanks, mode 0640.
 * Records that it held are lost. Failures are logged. */
KORX_API void ORX_SpaceFullLogInit(void);

/** Logs the call stack, at most 32 frames, and ends the process with the status 0x71000005 (a
 * parent sees 5).
 *
 * Usable as the handler of fatal signals, on an alternate stack of 64 KiB too, and also when the
 * crash happened inside the log: a dump that hangs is ended with the same status after a few
 * seconds, and one that crashes itself at once. For that it takes over the handlers of the fatal
 * signals. Of several threads that crash, the first one dumps. */
KORX_API void KORX_DumpBacktraceHandler(void) __attribute__((noreturn));

/** @} */

KORX_END_DECLS

#endif
