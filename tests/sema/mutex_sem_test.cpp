#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include "korx/sema.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

using Lines = std::vector<SyslogLine>;

struct Semaphore : RoomTest {
    Semaphore() {
        EXPECT_EQ(KORX_MutexSemaGetKey(tree.root().c_str(), 7, &key), 0u);
        EXPECT_EQ(KORX_MutexSemaCreate(key, &id), 0u);
    }
    ~Semaphore() override { (void) semctl(static_cast<int>(id), 0, IPC_RMID); }

    int control(int command) { return semctl(static_cast<int>(id), 0, command); }
    std::string number() { return std::to_string(id); }
    std::string key_number() { return std::to_string(static_cast<int>(key)); }

    uint32_t key = 0, id = 0;
};

TEST_F(Semaphore, StartsFreeAndIsSharedAsItIs) {
    EXPECT_EQ(syslog.lines(), (Lines{{LOG_INFO, "[0] create mutex-semaphore ok(key=" +
                                                    key_number() + ", id=" + number() + ").\n"}}));
    semid_ds info = {};
    EXPECT_EQ(semctl(static_cast<int>(id), 0, IPC_STAT, &info), 0);
    EXPECT_EQ(info.sem_perm.mode & 0777, 0666);
    EXPECT_EQ(control(GETVAL), 1);

    EXPECT_EQ(KORX_MutexSemaP(id), 0u);
    uint32_t same_key = 0, same_id = 0;
    EXPECT_EQ(KORX_MutexSemaGetKey(tree.root().c_str(), 0x107, &same_key), 0u);
    EXPECT_EQ(same_key, key);
    EXPECT_EQ(KORX_MutexSemaCreate(same_key, &same_id), 0u);
    EXPECT_EQ(same_id, id);
    EXPECT_EQ(control(GETVAL), 0);
    {
        const Fault not_yet("semget", 1, ENOENT);  // another process makes it right then
        EXPECT_NE(KORX_MutexSemaCreate(same_key, &same_id), 0u);
        EXPECT_EQ(control(GETVAL), 0);
    }
    EXPECT_EQ(KORX_MutexSemaV(id), 0u);
    EXPECT_EQ(control(GETVAL), 1);
    EXPECT_EQ(syslog.lines().size(), 2u);
}

TEST_F(Semaphore, ExcludesProcessesAndOutlivesAHolder) {
    EXPECT_EQ(RunChild([this] { return KORX_MutexSemaP(id) == 0 ? 0 : 1; }), 0);
    EXPECT_EQ(control(GETVAL), 1);  // its end gave it back

    auto* const count = static_cast<volatile int*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    constexpr int kProcesses = 4, kRounds = 200;
    const auto increment = [&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(KORX_MutexSemaP(id), 0u);
            const int before = *count;
            sched_yield();
            *count = before + 1;
            EXPECT_EQ(KORX_MutexSemaV(id), 0u);
        }
        return 0;
    };
    EXPECT_EQ(RunChildren(kProcesses, increment), 0);
    EXPECT_EQ(*count, kProcesses * kRounds);
}

TEST_F(Semaphore, FailsAnInterruptedWait) {
    ASSERT_EQ(KORX_MutexSemaP(id), 0u);
    syslog.clear();
    const auto wait = [this] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, nullptr);
        const itimerval timer = {{0, 20000}, {0, 20000}};
        setitimer(ITIMER_REAL, &timer, nullptr);
        return KORX_MutexSemaP(id) == 0x0FFFFFFF ? 0 : 1;
    };
    EXPECT_EQ(RunChild(wait), 0);
    EXPECT_EQ(syslog.lines(), (Lines{{LOG_ERR, "[0] operate mutex-semaphore(P) unsuccessfully(id=" +
                                                   number() + ", errno=4).\n"}}));
}

TEST_F(Semaphore, ReportsEachFailure) {
    const std::string by_id = "unsuccessfully(id=" + number();
    syslog.clear();
    EXPECT_EQ(KORX_MutexSemaDestroy(id), 0u);
    for (const auto call : {KORX_MutexSemaDestroy, KORX_MutexSemaP, KORX_MutexSemaV})
        EXPECT_EQ(call(id), 0x0FFFFFFFu);
    uint32_t out = 7;
    EXPECT_EQ(KORX_MutexSemaGetKey("missing", 9, &out), 0x0FFFFFFFu);
    {
        const Fault race{"semget", 2, EEXIST};
        EXPECT_EQ(KORX_MutexSemaCreate(key, &out), 0x0FFFFFFFu);
    }
    EXPECT_EQ(out, 7u);
    EXPECT_EQ(syslog.lines(),
              (Lines{{LOG_INFO, "[0] destroy mutex-semaphore ok(id=" + number() + ").\n"},
                     {LOG_ERR, "[0] destroy mutex-semaphore " + by_id + ", errno=22).\n"},
                     {LOG_ERR, "[0] operate mutex-semaphore(P) " + by_id + ", errno=22).\n"},
                     {LOG_ERR, "[0] operate mutex-semaphore(V) " + by_id + ", errno=22).\n"},
                     {LOG_ERR, "[0] ftok unsuccessfully(path is missing, id=9, errno=2).\n"},
                     {LOG_ERR, "[0] create mutex-semaphore unsuccessfully(key=" + key_number() +
                                   ", errno=17).\n"}}));
}

TEST_F(Semaphore, RemovesWhatItCouldNotInitialise) {
    ASSERT_EQ(control(IPC_RMID), 0);
    for (bool removed : {true, false}) {
        syslog.clear();
        uint32_t out = 7;
        {
            const Fault fault{"semctl", 1, EPERM, removed ? 1 : 2};
            EXPECT_EQ(KORX_MutexSemaCreate(key, &out), 0x0FFFFFFFu);
        }
        EXPECT_EQ(out, 7u);
        const int left = semget(static_cast<key_t>(key), 0, 0);
        EXPECT_EQ(left < 0, removed);
        id = static_cast<uint32_t>(left);

        EXPECT_EQ(syslog.lines().back().priority, removed ? LOG_INFO : LOG_ERR);
    }
}

}  // namespace
}  // namespace korx::test
