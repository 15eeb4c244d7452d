// A command run and waited for, from a small process and from a large one.
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include <memory>
#include <vector>

#include "floor.h"
#include "korx/cmd.h"

namespace bench {
namespace {

void MustEndWell(pid_t pid) {
    int status = 0;
    MUST(pid > 0 && wait4(pid, &status, 0, nullptr) == pid && status == 0);
}

void SpawnFloor() {
    constexpr int kKept[] = {SIGINT, SIGQUIT, SIGCHLD};
    struct sigaction before[3];
    struct sigaction plain = {};
    for (int i = 0; i < 3; ++i)
        MUST(sigaction(kKept[i], &plain, &before[i]) == 0);
    sigset_t all;
    sigset_t mask;
    sigfillset(&all);
    MUST(sigprocmask(SIG_SETMASK, &all, &mask) == 0);
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    const pid_t pid = vfork();
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        close_range(3, 1023, 0);
        execvp(program, argv);
        _exit(127);
    }
    MUST(sigprocmask(SIG_SETMASK, &mask, nullptr) == 0);
    MustEndWell(pid);
    for (int i = 0; i < 3; ++i)
        MUST(sigaction(kKept[i], &before[i], nullptr) == 0);
}

void Spawn() {
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    pid_t pid = -1;
    MUST(posix_spawnp(&pid, program, nullptr, nullptr, argv, environ) == 0);
    MustEndWell(pid);
}

Contest Commands(size_t megabytes) {
    const auto from_large = [=](const char* name, Role role, void (*run)()) {
        return Contestant{name, role, [=]() -> Operation {
                              const size_t size = megabytes << 20;
                              const std::shared_ptr<char> memory(static_cast<char*>(malloc(size)),
                                                                 free);
                              memset(memory.get(), 1, size);
                              return [=] {
                                  Keep(memory.get());
                                  run();
                              };
                          }};
    };
    return {.name = "KORX_Execvp /bin/true, MB touched",
            .operations = 40,
            .size = megabytes,
            .contestants = {
                from_large("korx", Role::kOurs, [] { MUST(KORX_Execvp("/bin/true", " ") == 0); }),
                from_large("floor", Role::kFloor, SpawnFloor),
                from_large("posix_spawn", Role::kPeer, Spawn),
                from_large("system", Role::kPeer, [] { MUST(system("/bin/true") == 0); })}};
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    for (const size_t megabytes : {10, 1000})
        Hold(Commands(megabytes));
}
