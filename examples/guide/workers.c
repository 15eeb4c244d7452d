/* Threads and a child that log at the same time, into the same files. */
#include <korx/basic.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

static void* work(void* name) {
    for (uint32_t i = 0; i < 100; ++i)
        KORX_DLog(7, 0x1002, KORX_LEVEL_INFO, 0, i, "%s at work", (const char*) name);
    return NULL;
}

int main(void) {
    char names[2][8] = {"left", "right"};
    pthread_t threads[2];
    pid_t child;

    if (KORX_OrxLogInit(80101, "zelk") != KORX_OK) /* set-up first, then threads */
        return 1;
    LOG_FileInit();
    ORX_Log2File(KORX_LEVEL_INFO, "at work"); /* makes the log directory; rings do not */

    for (int i = 0; i < 2; ++i) {
        if (pthread_create(&threads[i], NULL, work, names[i]) != 0)
            return 1;
    }
    child = fork();
    if (child == 0) { /* it may log at once: no lock is left behind by the threads that it lacks */
        work((char[]){"child"});
        _exit(0);
    }
    for (int i = 0; i < 2; ++i)
        pthread_join(threads[i], NULL);
    if (child < 0 || waitpid(child, NULL, 0) != child)
        return 1;
    return KORX_DLogFsync() == KORX_OK ? 0 : 1; /* on disk before we say that we are done */
}
