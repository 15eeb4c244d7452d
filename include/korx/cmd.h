/** @file
 * External programs. */
#ifndef KORX_CMD_H
#define KORX_CMD_H

#include <stdarg.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_cmd External programs
 *
 * Runs programs without a shell, and command lines through one.
 *
 * Two guards: a filter that refuses text with a line end or one of the characters
 *
 *     | ; & $ < > ( ) [ ] ` \ " ' ~ ? * !
 *
 * and a list of shells that may not be started directly.
 *
 * Failures are 0xFFFFFFFF, reported in the diagnostic log at ERR. A run blocks the calling thread
 * until the program has ended; its result is the program's exit status, 0 to 255, or 0xFFFFFFFF
 * when a signal ended it.
 * @{ */

/** Decodes a wait status.
 *
 * @param wait_status as waitpid() stores it
 * @return the exit status, 0 to 255; 0xFFFFFFFF, and a line, for a child that was killed or
 * stopped */
KORX_API uint32_t KORX_GetExitStatus(int32_t wait_status);

/** Whether a program is a shell, which may not be started directly. Logs nothing.
 *
 * @param program name or path; only what stands behind the last '/' counts
 * @return 1 for sh, bash, tcsh, sash, ksh and zsh, and where program is null or empty; else 0 */
KORX_API uint32_t ORX_IsCommandForbidden(const char* program);

/** Splits a command line into an argument vector.
 *
 * Vector and texts are one block, which the caller gives back with one free(). Up to 29 tokens the
 * block has 2048 bytes: 30 slots, then 1808 bytes of text, and a text that does not fit is refused;
 * more tokens get a larger block.
 *
 * @param command    1 to 2047 characters
 * @param separators the characters that part tokens; several in a row part them once
 * @param[out] argv  where the address of the vector goes; a null pointer ends the vector
 * @return 0; 0xFFFFFFFF with `*argv` untouched */
KORX_API uint32_t ORX_CommandConstructArgv(const char* command, const char* separators,
                                           char*** argv);

/** Runs a program, looked up in PATH, without a shell and without the character filter.
 *
 * A forbidden program is refused. The program starts with the caller's signal mask, SIGQUIT, SIGINT
 * and SIGCHLD at their default, and without the descriptors 3 to 1023.
 *
 * While any run of the process lasts, SIGQUIT and SIGINT are ignored, and SIGCHLD is at its default
 * while a program runs: its handler misses the children that end meanwhile. Then what was there
 * before the first of the runs comes back, with flags and mask; what other code sets in between is
 * lost, and a system() of its own beside a run may leave the two signals ignored. A child that is
 * forked meanwhile inherits what it finds. Threads may run programs at the same time; each waits
 * for its own child only and is not cancelled before that has ended.
 *
 * @param argv the program and its arguments, ended by a null pointer
 * @return the exit status, 0 to 255; 127 also for a program that cannot be executed, with a line
 * that has the errno; 0xFFFFFFFF */
KORX_API uint32_t KORX_SystemExecvp(char** argv);

/** The character filter for a part of a text. Logs nothing.
 *
 * @param text   what is looked at
 * @param length how many bytes of it; 0: none, which is in order
 * @return 0; 0xFFFFFFFF when one of the bytes is a refused character or the terminating NUL, or
 * when text is null */
KORX_API uint32_t ORX_CommandFilter(const char* text, uint32_t length);

/** Filters a whole command line, splits it and runs it as KORX_SystemExecvp() does.
 *
 * @param command    the command line, 1 to 2047 characters
 * @param separators the characters that part tokens
 * @return that of KORX_SystemExecvp(), any but 0 being logged; 0xFFFFFFFF for a line that is
 * refused */
KORX_API uint32_t KORX_Execvp(const char* command, const char* separators);

/** The character filter for several texts. Logs nothing.
 *
 * @param count how many texts there are
 * @param texts that many `const char*`; undefined after the call, as after any use of a va_list
 * @return 0; 0xFFFFFFFF when a text is null or holds a refused character */
KORX_API uint32_t ORX_IsStrParaHasInvalidChar(uint32_t count, va_list texts);

/** Runs a command line through the shell after filtering its foreign parts.
 *
 * The command line itself is not filtered: pass every part of it that comes from outside as one of
 * the texts. The shell is run as system() does it: it inherits the descriptors that are not
 * close-on-exec and the signals that were ignored before, and fails where SIGCHLD is ignored, the
 * command having run. SIGQUIT and SIGINT are shared with the runs above, and the thread is not
 * cancelled either.
 *
 * @param command what the shell gets
 * @param count   how many texts follow, each a `const char*`
 * @return the shell's exit status, 0 to 255; 0xFFFFFFFF, also when a text is refused: nothing has
 * run then */
KORX_API uint32_t KORX_SystemWithFilter(const char* command, uint32_t count, ...);

/** @} */

KORX_END_DECLS

#endif
