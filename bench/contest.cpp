#include "contest.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>

namespace bench {
namespace {

int g_rounds = 31;
std::string g_pattern;

int64_t Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// What the referee and its workers share.
struct Board {
    std::atomic<unsigned> ready;
    std::atomic<bool> go;
    int64_t begin[64];
    int64_t end[64];
};

template <typename T>
class Shared {
  public:
    explicit Shared(size_t count)
        : bytes_(count * sizeof(T)),
          memory_(
              mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        MUST(memory_ != MAP_FAILED);
    }
    ~Shared() { munmap(memory_, bytes_); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T* get() { return static_cast<T*>(memory_); }

  private:
    size_t bytes_;
    void* memory_;
};

void Work(const Operation& operation, size_t count, uint32_t* latencies) {
    if (latencies == nullptr) {
        for (size_t i = 0; i < count; ++i)
            operation();
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        const int64_t begin = Now();
        operation();
        latencies[i] = static_cast<uint32_t>(std::min<int64_t>(Now() - begin, UINT32_MAX));
    }
}

[[noreturn]] void BeWorker(const Contest& contest, const Contestant& contestant, unsigned index,
                           Board* board, uint32_t* latencies) {
    const Operation operation = contestant.enter();
    board->ready.fetch_add(1);
    while (!board->go.load())
        usleep(20);
    board->begin[index] = Now();
    Work(operation, contest.operations, latencies);
    board->end[index] = Now();
    _exit(0);
}

// The time from the first start to the last end, in ns. latencies: room for those of all
// operations, or null.
int64_t RunOnce(const Contest& contest, const Contestant& contestant, uint32_t* latencies) {
    if (contestant.lay_out)
        contestant.lay_out();
    Shared<Board> board(1);
    std::vector<pid_t> workers;
    for (unsigned i = 0; i < contest.processes; ++i) {
        uint32_t* const own = latencies == nullptr ? nullptr : latencies + i * contest.operations;
        const pid_t pid = fork();
        MUST(pid >= 0);
        if (pid == 0)
            BeWorker(contest, contestant, i, board.get(), own);
        workers.push_back(pid);
    }
    while (board.get()->ready.load() < contest.processes && waitpid(-1, nullptr, WNOHANG) == 0)
        usleep(50);
    board.get()->go = true;
    for (const pid_t worker : workers) {
        int status = 0;
        Must(waitpid(worker, &status, 0) == worker && status == 0, contestant.name.c_str());
    }
    if (contestant.is_done)
        Must(contestant.is_done(contest.operations * contest.processes), contestant.name.c_str());
    const Board& result = *board.get();
    return *std::max_element(result.end, result.end + contest.processes) -
           *std::min_element(result.begin, result.begin + contest.processes);
}

const char* NameOf(Role role) {
    return role == Role::kOurs ? "ours" : role == Role::kFloor ? "floor" : "peer";
}

void Print(const Contest& contest, const Contestant& contestant, const char* what, int round,
           double value) {
    printf(
        "{\"contest\":\"%s\",\"size\":%zu,\"processes\":%u,\"contestant\":\"%s\",\"role\":\"%s\","
        "\"round\":%d,\"%s\":%.2f}\n",
        contest.name.c_str(), contest.size, contest.processes, contestant.name.c_str(),
        NameOf(contestant.role), round, what, value);
    fflush(stdout);
}

void PrintTail(const Contest& contest, const Contestant& contestant, int round) {
    const size_t count = contest.operations * contest.processes;
    Shared<uint32_t> latencies(count);
    RunOnce(contest, contestant, latencies.get());
    uint32_t* const all = latencies.get();
    std::sort(all, all + count);
    Print(contest, contestant, "p50", round, all[count / 2]);
    Print(contest, contestant, "p99", round, all[count * 99 / 100]);
    Print(contest, contestant, "worst", round, all[count - 1]);
}

class Folder {
  public:
    explicit Folder(std::string pattern) : path_(std::move(pattern)) {
        MUST(mkdtemp(path_.data()) != nullptr);
    }
    ~Folder() {
        if (getpid() == owner_)
            std::filesystem::remove_all(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
    const pid_t owner_ = getpid();
};

}  // namespace

void Must(bool done, const char* what) {
    if (done)
        return;
    fprintf(stderr, "did not do its work: %s (errno %s)\n", what, strerror(errno));
    abort();
}

void Begin(int argc, char** argv) {
    if (argc > 1)
        g_rounds = std::max(atoi(argv[1]), 1);
    if (argc > 2)
        g_pattern = argv[2];
}

// The first round warms up and doesn't count. Who begins changes from round to round: the one
// behind a contestant that leaves the caches cold shall not always be the same.
void Hold(const Contest& contest) {
    if (contest.name.find(g_pattern) == std::string::npos)
        return;
    const size_t count = contest.contestants.size();
    for (int round = 0; round <= g_rounds; ++round) {
        for (size_t i = 0; i < count; ++i) {
            const Contestant& contestant = contest.contestants[(i + round) % count];
            const auto elapsed = static_cast<double>(RunOnce(contest, contestant, nullptr));
            const auto operations = static_cast<double>(contest.operations * contest.processes);
            if (round > 0)
                Print(contest, contestant, "ns", round, elapsed / operations);
        }
    }
    if (contest.measure != Measure::kMeanAndTail)
        return;
    for (int round = 1; round <= std::max(g_rounds / 4, 1); ++round) {
        for (const Contestant& contestant : contest.contestants)
            PrintTail(contest, contestant, round);
    }
}

const std::string& InMemory() {
    static const Folder folder("/dev/shm/korx-bench-XXXXXX");
    return folder.path();
}

const std::string& OnDisk() {
    static const Folder folder(std::filesystem::canonical("/proc/self/exe").parent_path() /
                               "korx-bench-XXXXXX");
    return folder.path();
}

}  // namespace bench
