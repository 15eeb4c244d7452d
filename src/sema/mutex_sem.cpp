// A mutex between processes: a System V set of one semaphore, 1 when free and 0 when held.
#include "korx/sema.h"

#include <errno.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include "base/codes.h"
#include "base/report.h"

namespace korx {
namespace {

constexpr int kSemaphores = 1;
constexpr int kPermissions = 0666;
constexpr int kFree = 1;

// The fourth argument of semctl, which every caller has to define for itself.
union SemctlArgument {
    int val;
    struct semid_ds* buf;
    unsigned short* array;
};

// The kernel takes the step back when the process ends.
int Step(uint32_t sema_id, short delta) {
    struct sembuf step = {.sem_num = 0, .sem_op = delta, .sem_flg = SEM_UNDO};
    return semop(static_cast<int>(sema_id), &step, 1);
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_MutexSemaGetKey(const char* path, uint32_t project_id, uint32_t* key) {
    if (path == nullptr || key == nullptr)
        return kFailed;
    const auto id = static_cast<int>(project_id);
    const key_t found = ftok(path, id);
    if (found == -1)
        return Fail(kFailed, "ftok unsuccessfully(path is %s, id=%d, errno=%d).", path, id, errno);
    *key = static_cast<uint32_t>(found);
    return kOk;
}

uint32_t KORX_MutexSemaCreate(uint32_t key, uint32_t* sema_id) {
    if (sema_id == nullptr)
        return kFailed;
    const auto ipc_key = static_cast<key_t>(key);
    int id = semget(ipc_key, 0, 0);
    if (id >= 0) {
        *sema_id = static_cast<uint32_t>(id);
        return kOk;
    }

    id = semget(ipc_key, kSemaphores, IPC_CREAT | IPC_EXCL | kPermissions);
    if (id < 0)
        return Fail(kFailed, "create mutex-semaphore unsuccessfully(key=%d, errno=%d).", ipc_key,
                    errno);
    Log(kLevelInfo, "create mutex-semaphore ok(key=%d, id=%d).", ipc_key, id);
    if (semctl(id, 0, SETVAL, SemctlArgument{.val = kFree}) < 0) {
        Log(kLevelErr, "init mutex-semaphore unsuccessfully(id=%d, errno=%d).", id, errno);
        (void) KORX_MutexSemaDestroy(static_cast<uint32_t>(id));
        return kFailed;
    }
    *sema_id = static_cast<uint32_t>(id);
    return kOk;
}

uint32_t KORX_MutexSemaDestroy(uint32_t sema_id) {
    const auto id = static_cast<int>(sema_id);
    if (semctl(id, 0, IPC_RMID) < 0)
        return Fail(kFailed, "destroy mutex-semaphore unsuccessfully(id=%d, errno=%d).", id, errno);
    Log(kLevelInfo, "destroy mutex-semaphore ok(id=%d).", id);
    return kOk;
}

uint32_t KORX_MutexSemaP(uint32_t sema_id) {
    if (Step(sema_id, -1) < 0)
        return Fail(kFailed, "operate mutex-semaphore(P) unsuccessfully(id=%d, errno=%d).",
                    static_cast<int>(sema_id), errno);
    return kOk;
}

uint32_t KORX_MutexSemaV(uint32_t sema_id) {
    if (Step(sema_id, 1) < 0)
        return Fail(kFailed, "operate mutex-semaphore(V) unsuccessfully(id=%d, errno=%d).",
                    static_cast<int>(sema_id), errno);
    return kOk;
}
