/* Preloaded into the command: the taps of tests/support, told what to do by the environment.
 *
 * KORX_FAULT "NAME NTH ERROR [+]": the nth call of that name, and with + all after it, fails with
 * the errno value. If that is 0 it never happens: the process ends there. If it is -1 the process
 * stops before it, until SIGCONT. The name * is any call but malloc. KORX_CALLS FILE: gets the name
 * of every tapped call but malloc, one a line. */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

int KorxTap(const char* name, const void* caller, size_t* bytes);
void KorxExpectCloseOnExec(const char* name, const char* what, int closes, const void* caller);

/* What the command itself keeps open for its children is its own choice. */
void KorxExpectCloseOnExec(const char* name, const char* what, int closes, const void* caller) {
    (void) name;
    (void) what;
    (void) closes;
    (void) caller;
}

/* By system calls, which go through a tap of their own. */
static void Note(const char* name) {
    const char* const file = getenv("KORX_CALLS");
    if (file == NULL)
        return;
    char line[32];
    const int length = snprintf(line, sizeof line, "%s\n", name);
    const long fd = syscall(SYS_openat, AT_FDCWD, file, O_WRONLY | O_APPEND | O_CREAT, 0600);
    (void) !syscall(SYS_write, fd, line, (size_t) length);
    (void) syscall(SYS_close, fd);
}

int KorxTap(const char* name, const void* caller, size_t* bytes) {
    static unsigned calls;
    static int is_noting;
    const int saved = errno;
    char wanted[32];
    unsigned nth = 0;
    int error = 0;
    char onwards = ' ';
    (void) caller;
    (void) bytes;
    if (is_noting || strcmp(name, "malloc") == 0)
        return 0;
    is_noting = 1;
    Note(name);
    is_noting = 0;
    errno = saved;
    const char* const fault = getenv("KORX_FAULT");
    if (fault == NULL || sscanf(fault, "%31s %u %d %c", wanted, &nth, &error, &onwards) < 3 ||
        (strcmp(wanted, "*") != 0 && strcmp(wanted, name) != 0) ||
        (++calls != nth && (onwards != '+' || calls < nth)))
        return 0;
    if (error == 0)
        _exit(99);
    if (error < 0)
        return raise(SIGSTOP);
    errno = error;
    return 1;
}
