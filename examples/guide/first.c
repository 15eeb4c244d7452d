/* A process of the component: sets itself up, logs, and goes on until it is told to stop. */
#include <korx/basic.h>
#include <signal.h>

static int set_up(void) {
    if (KORX_OrxLogInit(80101, "zelk") != KORX_OK) /* the running log, and the directories */
        return -1;
    LOG_FileInit();          /* the record logs, and the agent where there is one */
    ORX_LOG_SetLocId(80101); /* who and where we are: printed into every record */
    ORX_LOG_SetSlotId(1);
    KORX_PLogInit(0, "zelk", 0); /* the log of this process alone */
    return 0;
}

/* A crash leaves its call stack in the running log. It needs a stack of its own: the thread's may
 * be what is used up. */
static void crashed(int signal) {
    (void) signal;
    KORX_DumpBacktraceHandler();
}

static void catch_crashes(void) {
    static char stack[64 * 1024];
    const int fatal[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
    stack_t alternate = {.ss_sp = stack, .ss_size = sizeof stack};
    struct sigaction action = {.sa_handler = crashed, .sa_flags = SA_ONSTACK};
    sigaltstack(&alternate, NULL);
    for (unsigned i = 0; i < sizeof fatal / sizeof *fatal; ++i)
        sigaction(fatal[i], &action, NULL);
}

int main(void) {
    sigset_t stops;
    int signal = 0;

    /* Before any thread is there: no handler, no flag, and nothing is interrupted. */
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    sigprocmask(SIG_BLOCK, &stops, NULL);

    if (set_up() != 0)
        return 1;
    catch_crashes();

    ORX_Log2File(KORX_LEVEL_INFO, "%s is up", "zelk");
    KORX_STLog(STLOG_SECTION_FRAME, KORX_LEVEL_INFO, 0, "all rooms are open");
    if (KORX_LifeCycleLog(7, 0x1001, KORX_LEVEL_INFO, 0, 0, "started") == ORX_PLOG_ERR_DISCARDED)
        ORX_Log2File(KORX_LEVEL_ERR, "nobody takes the life-cycle records");

    sigwait(&stops, &signal);
    ORX_Log2File(KORX_LEVEL_INFO, "stopped by signal %d", signal);
    return 0;
}
