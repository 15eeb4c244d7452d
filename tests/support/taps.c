/* The libc calls that tests can make fail. Each is defined here under its own name, asks the armed
 * faults, and goes on to the definition that would have been called (libc's or a sanitizer's).
 * Nothing here may depend on constructors: malloc is called before any of them. */

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

/* True when the call is to fail, with errno set; may lower *bytes. Else errno is kept. */
int KorxTap(const char* name, const void* caller, size_t* bytes);

/* Ends the test when one of the libraries opens something that a child's program would inherit. */
void KorxExpectCloseOnExec(const char* name, const char* what, int closes, const void* caller);

/* Keeps a journal, if the test has one, informed of what is on disk from now on. */
__attribute__((weak)) void KorxSynced(int fd);

static void* Next(const char* symbol) {
    const int saved = errno;
    void* const next = dlsym(RTLD_NEXT, symbol);
    errno = saved;
    return next;
}

#define FIND_NEXT(result, name, parameters) \
    static result(*next) parameters;        \
    if (!next)                              \
    next = Next(#name)
#define FAILS(name, bytes) KorxTap(#name, __builtin_return_address(0), bytes)

/* limit is the byte count that a fault may lower, or null. */
#define TAP_LIMIT(limit, result, name, failure, parameters, arguments) \
    result name parameters {                                           \
        FIND_NEXT(result, name, parameters);                           \
        return FAILS(name, limit) ? failure : next arguments;          \
    }
#define TAP(...) TAP_LIMIT(NULL, __VA_ARGS__)

/* A call that releases its argument even when it fails. */
#define TAP_RELEASE(name, failure, parameters, arguments) \
    int name parameters {                                 \
        FIND_NEXT(int, name, parameters);                 \
        const int fails = FAILS(name, NULL);              \
        const int error = errno;                          \
        const int result = next arguments;                \
        errno = fails ? error : errno;                    \
        return fails ? failure : result;                  \
    }

#define TAP_SYNC(name)                                        \
    int name(int fd) {                                        \
        FIND_NEXT(int, name, (int) );                         \
        const int result = FAILS(name, NULL) ? -1 : next(fd); \
        if (result == 0 && KorxSynced)                        \
            KorxSynced(fd);                                   \
        return result;                                        \
    }

/* A call with an optional last argument; reading it when there is none is harmless. Whatever the
 * libraries open must not reach a child's program, whoever starts it. */
#define TAP_OPEN(name, closes, what, type, last, parameters, arguments)          \
    int name parameters {                                                        \
        va_list rest;                                                            \
        va_start(rest, last);                                                    \
        type argument = va_arg(rest, type);                                      \
        va_end(rest);                                                            \
        FIND_NEXT(int, name, parameters);                                        \
        KorxExpectCloseOnExec(#name, what, closes, __builtin_return_address(0)); \
        return FAILS(name, NULL) ? -1 : next arguments;                          \
    }
#define TAP_VARIADIC(name, ...) TAP_OPEN(name, 1, "", __VA_ARGS__)

/* Opening */
TAP_OPEN(open, flags& O_CLOEXEC, path, mode_t, flags, (const char* path, int flags, ...),
         (path, flags, argument))
TAP_OPEN(openat, flags& O_CLOEXEC, path, mode_t, flags, (int dir, const char* path, int flags, ...),
         (dir, path, flags, argument))
TAP_OPEN(fcntl, command != F_DUPFD, "a copy", void*, command, (int fd, int command, ...),
         (fd, command, argument))
TAP_RELEASE(close, -1, (int fd), (fd))
/* openat2 has no function of its own. Six arguments are what the longest call takes. */
long syscall(long number, ...) {
    FIND_NEXT(long, syscall, (long number, ...));
    va_list rest;
    va_start(rest, number);
    long arguments[6];
    for (int i = 0; i < 6; ++i)
        arguments[i] = va_arg(rest, long);
    va_end(rest);
    const struct open_how* const how = (const struct open_how*) arguments[2];
    if (number == SYS_openat2 && how != NULL)
        KorxExpectCloseOnExec("openat2", (const char*) arguments[1], (how->flags & O_CLOEXEC) != 0,
                              __builtin_return_address(0));
    return FAILS(syscall, NULL) ? -1
                                : next(number, arguments[0], arguments[1], arguments[2],
                                       arguments[3], arguments[4], arguments[5]);
}

/* Descriptors */
TAP_LIMIT(&count, ssize_t, read, -1, (int fd, void* data, size_t count), (fd, data, count))
TAP_LIMIT(&count, ssize_t, write, -1, (int fd, const void* data, size_t count), (fd, data, count))
TAP_LIMIT(&count, ssize_t, pread, -1, (int fd, void* data, size_t count, off_t offset),
          (fd, data, count, offset))
TAP_LIMIT(&count, ssize_t, pwrite, -1, (int fd, const void* data, size_t count, off_t offset),
          (fd, data, count, offset))
TAP_LIMIT(&count, ssize_t, sendfile, -1, (int out, int in, off_t* offset, size_t count),
          (out, in, offset, count))
TAP(off_t, lseek, -1, (int fd, off_t offset, int whence), (fd, offset, whence))
TAP(int, ftruncate, -1, (int fd, off_t length), (fd, length))
TAP_SYNC(fsync)
TAP_SYNC(fdatasync)
TAP(int, flock, -1, (int fd, int operation), (fd, operation))
TAP(int, fchmod, -1, (int fd, mode_t mode), (fd, mode))
TAP(int, fchown, -1, (int fd, uid_t owner, gid_t group), (fd, owner, group))
TAP(int, fstat, -1, (int fd, struct stat* st), (fd, st))
TAP_VARIADIC(ioctl, void*, request, (int fd, unsigned long request, ...), (fd, request, argument))

/* Names */
TAP(int, stat, -1, (const char* path, struct stat* st), (path, st))
TAP(int, access, -1, (const char* path, int mode), (path, mode))
TAP(int, rename, -1, (const char* from, const char* to), (from, to))
TAP(int, renameat2, -1,
    (int from_dir, const char* from, int to_dir, const char* to, unsigned flags),
    (from_dir, from, to_dir, to, flags))
TAP(int, link, -1, (const char* from, const char* to), (from, to))
TAP(int, symlink, -1, (const char* target, const char* path), (target, path))
TAP(ssize_t, readlink, -1, (const char* path, char* data, size_t count), (path, data, count))
TAP(int, unlink, -1, (const char* path), (path))
TAP(int, unlinkat, -1, (int dir, const char* path, int flags), (dir, path, flags))
TAP(int, remove, -1, (const char* path), (path))
TAP(int, mkdir, -1, (const char* path, mode_t mode), (path, mode))
TAP(int, rmdir, -1, (const char* path), (path))
TAP(char*, realpath, NULL, (const char* path, char* resolved), (path, resolved))
TAP(DIR*, opendir, NULL, (const char* path), (path))
TAP(DIR*, fdopendir, NULL, (int fd), (fd))
struct dirent* readdir(DIR* dir) {
    FIND_NEXT(struct dirent*, readdir, (DIR*) );
    size_t type = DT_WHT; /* a fault may leave it untold */
    struct dirent* const entry = FAILS(readdir, &type) ? NULL : next(dir);
    if (entry && type == DT_UNKNOWN)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

/* Streams */
FILE* fopen(const char* path, const char* mode) {
    FIND_NEXT(FILE*, fopen, (const char*, const char*) );
    KorxExpectCloseOnExec("fopen", path, strchr(mode, 'e') != NULL, __builtin_return_address(0));
    return FAILS(fopen, NULL) ? NULL : next(path, mode);
}
TAP(FILE*, fdopen, NULL, (int fd, const char* mode), (fd, mode))
TAP_RELEASE(fclose, EOF, (FILE * file), (file))
TAP(int, fflush, EOF, (FILE * file), (file))
char* fgets(char* text, int size, FILE* file) {
    FIND_NEXT(char*, fgets, (char*, int, FILE*) );
    if (!FAILS(fgets, NULL))
        return next(text, size, file);
    file->_flags |= _IO_ERR_SEEN; /* which ferror asks about */
    return NULL;
}

/* Memory, time, processes, semaphores */
TAP(void*, malloc, NULL, (size_t size), (size))
TAP(void*, realloc, NULL, (void* memory, size_t size), (memory, size))
int usleep(useconds_t microseconds) {
    FIND_NEXT(int, usleep, (useconds_t));
    size_t asked = microseconds;
    return FAILS(usleep, &asked) ? -1 : next((useconds_t) asked);
}
/* Goes on by another name: dlsym would free what dlerror has told, and that may be in the text. */
void vsyslog(int priority, const char* format, va_list args) {
    char text[2048];
    (void) FAILS(vsyslog, NULL);
    (void) vsnprintf(text, sizeof text, format, args);
    syslog(priority, "%s", text);
}
TAP(int, nanosleep, -1, (const struct timespec* asked, struct timespec* rest), (asked, rest))
TAP(int, sigaction, -1, (int number, const struct sigaction* action, struct sigaction* before),
    (number, action, before))
TAP(pid_t, wait4, -1, (pid_t pid, int* status, int options, struct rusage* usage),
    (pid, status, options, usage))
TAP(int, semget, -1, (key_t key, int count, int flags), (key, count, flags))
TAP_VARIADIC(semctl, void*, command, (int id, int number, int command, ...),
             (id, number, command, argument))

/* What the compiler makes of a call whose flags or sizes it doesn't know; the size that it appends
 * needs no looking at. */
#define FORTIFIED(fortified, name) __asm__(".globl " fortified "\n.set " fortified ", " name "\n")
FORTIFIED("__open_2", "open");
FORTIFIED("__openat_2", "openat");
FORTIFIED("__read_chk", "read");
FORTIFIED("__pread_chk", "pread");
FORTIFIED("__readlink_chk", "readlink");
FORTIFIED("__realpath_chk", "realpath");
void __vsyslog_chk(int priority, int level, const char* format, va_list args);
void __vsyslog_chk(int priority, int level, const char* format, va_list args) {
    (void) level;
    vsyslog(priority, format, args);
}

/* A function that returns twice cannot be wrapped: the child would return from the wrapper and
 * leave the parent its stack in ruins. So the wrapper is gone before the real one runs. */
void* KorxTapVfork(const void* caller);
void* KorxTapVfork(const void* caller) {
    static void* next;
    if (!next)
        next = Next("vfork");
    return KorxTap("vfork", caller, NULL) ? NULL : next;
}

#define VFORK(type, code) \
    __asm__(".globl vfork\n.type vfork, " type "\nvfork:\n" code "ret\n.size vfork, .-vfork\n")
#if defined(__x86_64__)
VFORK("@function",
      "movq (%rsp), %rdi\n subq $8, %rsp\n call KorxTapVfork\n addq $8, %rsp\n"
      "testq %rax, %rax\n jz 1f\n jmp *%rax\n"
      "1: movl $-1, %eax\n");
#elif defined(__aarch64__)
VFORK("%function",
      "stp x29, x30, [sp, -16]!\n mov x0, x30\n bl KorxTapVfork\n ldp x29, x30, [sp], 16\n"
      "cbz x0, 1f\n mov x16, x0\n br x16\n"
      "1: mov w0, -1\n");
#endif
