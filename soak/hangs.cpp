// What is told where the soak stands still.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tickets.h"

namespace soak {
namespace {

constexpr unsigned kPatience = 30;  // in seconds

std::atomic<uint64_t> g_progress;

std::string ContentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// This process and all below it, the innermost last.
std::vector<pid_t> Family() {
    std::vector<pid_t> family{getpid()};
    for (size_t i = 0; i < family.size(); ++i) {
        std::error_code ignored;
        const std::string tasks = "/proc/" + std::to_string(family[i]) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks, ignored)) {
            std::ifstream children(task.path() / "children");
            for (pid_t child; children >> child;)
                family.push_back(child);
        }
    }
    return family;
}

void TellThreads(pid_t process) {
    const std::string place = "/proc/" + std::to_string(process);
    fprintf(stderr, "process %d %s", process, ContentOf(place + "/comm").c_str());
    std::error_code ignored;
    for (const auto& task : std::filesystem::directory_iterator(place + "/task", ignored))
        fprintf(stderr, "  thread %s: in %s, system call %s%s", task.path().filename().c_str(),
                ContentOf(task.path() / "wchan").c_str(),
                ContentOf(task.path() / "syscall").c_str(),
                ContentOf(task.path() / "stack").c_str());
    (void) !system(("gdb --batch -p " + std::to_string(process) +
                    " -ex 'thread apply all backtrace' 1>&2 2>/dev/null </dev/null")
                       .c_str());
}

[[noreturn]] void EndHang() {
    fprintf(stderr, "soak: a process does not end\n%s", ContentOf("/proc/locks").c_str());
    const std::vector<pid_t> family = Family();
    for (const pid_t process : family)
        TellThreads(process);
    for (size_t i = family.size() - 1; i > 0; --i)
        kill(family[i], SIGKILL);
    _exit(1);
}

}  // namespace

void NoteProgress() {
    ++g_progress;
}

void WatchForHangs() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // who outlives his parent is looked at, too
    std::thread([] {
        uint64_t seen = 0;
        for (unsigned still = 0; still < kPatience; sleep(1)) {
            const uint64_t progress = g_progress;
            still = progress == std::exchange(seen, progress) ? still + 1 : 0;
        }
        EndHang();
    }).detach();
}

}  // namespace soak
