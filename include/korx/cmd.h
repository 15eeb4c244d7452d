/* External programs. Two guards: a filter that refuses text with one of the characters
 * |;&$<>()[]`\"'~?*! or a newline, and a list of shells that may not be started directly.
 *
 * Failures are 0xFFFFFFFF, reported in the diagnostic log at ERR. A run blocks the calling thread
 * until the program has ended; its result is the program's exit status, 0 to 255, or 0xFFFFFFFF
 * when a signal ended it. */
#ifndef KORX_CMD_H
#define KORX_CMD_H

#include <stdarg.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/* Decodes a wait status: the exit status, or 0xFFFFFFFF and a line for a child that was killed or
 * stopped. */
KORX_API uint32_t KORX_GetExitStatus(int32_t wait_status);

/* 1 when the base name of program is sh, bash, tcsh, sash, ksh or zsh, or when program is null or
 * empty; else 0. Logs nothing. */
KORX_API uint32_t ORX_IsCommandForbidden(const char* program);

/* Splits a command line of 1 to 2047 characters at any of the separator characters into a
 * null-terminated vector and stores its address in *argv. Vector and texts are one block, which the
 * caller gives back with one free. Up to 29 tokens the block has 2048 bytes: 30 slots, then 1808
 * bytes of text, and a text that does not fit is refused; more tokens get a larger block. Result: 0
 * or 0xFFFFFFFF with *argv untouched. */
KORX_API uint32_t ORX_CommandConstructArgv(const char* command, const char* separators,
                                           char*** argv);

/* Runs argv[0], looked up in PATH, without a shell and without the character filter; a forbidden
 * program is refused. The program starts with the caller's signal mask, SIGQUIT, SIGINT and SIGCHLD
 * at their default, and without the descriptors 3 to 1023. A program that cannot be executed gives
 * 127, as one that exits with 127 does, and a line with the errno.
 *
 * While any run of the process lasts, SIGQUIT and SIGINT are ignored, and SIGCHLD is at its default
 * while a program runs: its handler misses the children that end meanwhile. Then what was there
 * before the first of the runs comes back, with flags and mask; what other code sets in between is
 * lost, and a system() of its own beside a run may leave the two signals ignored. A child that is
 * forked meanwhile inherits what it finds. Threads may run programs at the same time; each waits
 * for its own child only and is not cancelled before that has ended. */
KORX_API uint32_t KORX_SystemExecvp(char** argv);

/* 0xFFFFFFFF when one of the first length bytes of text is a refused character or the terminating
 * NUL, or when text is null; 0 for an empty text, length 0 and everything else. Logs nothing. */
KORX_API uint32_t ORX_CommandFilter(const char* text, uint32_t length);

/* Filters a whole command line, splits it at the separator characters and runs it as
 * KORX_SystemExecvp does. Any result but 0 is logged. */
KORX_API uint32_t KORX_Execvp(const char* command, const char* separators);

/* 0xFFFFFFFF when one of the count strings in texts is null or holds a refused character; else 0.
 * Logs nothing. */
KORX_API uint32_t ORX_IsStrParaHasInvalidChar(uint32_t count, va_list texts);

/* Runs a command line through the shell after filtering the count strings that follow. The command
 * line itself is not filtered: pass every part of it that comes from outside as one of them. The
 * shell is run as system() does it: it inherits the descriptors that are not close-on-exec and the
 * signals that were ignored before, and fails where SIGCHLD is ignored, the command having run.
 * SIGQUIT and SIGINT are shared with the runs above, and the thread is not cancelled either. */
KORX_API uint32_t KORX_SystemWithFilter(const char* command, uint32_t count, ...);

KORX_END_DECLS

#endif
