// soak SECONDS SEED KORX: eight processes of four threads write all logs, small ones, while others
// read, take, kill and remove. In rounds: a calm one, one of kills, one of removals, and again.
// Runs inside scripts/sandbox. Its status says whether all was as it must be.
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "tickets.h"

namespace soak {

namespace fs = std::filesystem;

Shared* g_shared;
const char* const kProcessNames[5] = {"QTMON", "zelk_agent", "ZELK_QR9T", "zelk", "DXN"};

const char* FileOf(unsigned log) {
    static const char* const kFiles[] = {"orx_app.log",   "KORX_DIAG_LOG",  "korx_safe.log",
                                         "korx_life.log", "KORX_START_LOG", "zelk.log"};
    return kFiles[log];
}

// Long ones fill the protected rings in a few dozen steps, and seldom to the byte.
std::string MessageOf(const Name& name) {
    const bool is_long = name.log == kSecurity || name.log == kLife;
    const unsigned mixed = (name.writer * 7919 + name.number) * 2654435761u >> 16;
    const unsigned length = is_long ? 220 + mixed % 220 : 10 + mixed % 150;
    std::string message = "<" + std::to_string(name.log) + "." + std::to_string(name.writer) + "." +
                          std::to_string(name.number) + ":";
    for (unsigned i = 0; i < length; ++i)
        message += static_cast<char>('a' + (mixed + i) % 26);
    return message + ">";
}

bool ParseMessage(std::string_view message, Name* name) {
    return sscanf(std::string(message).c_str(), "<%u.%u.%u:", &name->log, &name->writer,
                  &name->number) == 3 &&
           name->log < kLogs && name->writer < kWriters && name->number < kMostCalls &&
           MessageOf(*name) == message;
}

void Complain(const char* format, ...) {
    constexpr unsigned kMostSaid = 20;
    if (++g_shared->errors > kMostSaid)
        return;
    va_list args;
    va_start(args, format);
    char text[1024];
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    fprintf(stderr, "soak: %s\n", text);
}

size_t Descriptors::count() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

void Descriptors::judge(const char* whose, size_t more) const {
    if (const size_t now = count(); now > before_ + more)
        Complain("%s: %zu descriptors at first, %zu at last", whose, before_, now);
}

namespace {

using Random = std::mt19937;

constexpr const char* kRoundNames[] = {"calm", "kills", "removals"};

pid_t Start(const auto& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
    }
    if (child < 0)
        Complain("cannot fork");
    return child;
}

// All processes of the round and their children, also of those that were killed. Slow ones are
// waited for as long as any call begins or ends.
void AwaitAll() {
    uint32_t tickets = 0;
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) >= 0; usleep(1000)) {
        if (child > 0 && status != 0)
            Complain("a process has ended with status %x", status);
        if (child > 0 || tickets != g_shared->tickets)
            NoteProgress();
        tickets = g_shared->tickets;
    }
}

void KillOne(std::vector<pid_t>* writers, Random* random) {
    const unsigned process = (*random)() % kProcesses;
    pid_t& writer = (*writers)[process];
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    const unsigned seed = (*random)();
    JudgePlaces();
    NoteStart(process);
    writer = Start([=] { RunWriter(process, seed); });
}

// Takes a log away, or puts an empty one in its place.
void RemoveOne(Random* random) {
    const std::string path = std::string("../log/") + FileOf((*random)() % kLogs);
    std::error_code ignored;
    switch ((*random)() % 3) {
        case 0:
            fs::remove(path, ignored);
            break;
        case 1:
            fs::rename(path, path + ".old", ignored);
            break;
        default:
            std::ofstream("new.log").flush();
            fs::rename("new.log", path, ignored);
    }
    g_shared->disturbed = ++g_shared->tickets;
}

void Disturb(std::vector<pid_t>* writers, Random* random) {
    usleep((*random)() % 60000);
    if (g_shared->round == Round::kKills)
        KillOne(writers, random);
    if (g_shared->round == Round::kRemovals && (*random)() % 8 == 0)
        RemoveOne(random);
    if ((*random)() % 8 == 0)
        JudgeWindows();
    NoteProgress();
}

void LayOut() {
    for (const char* path : {"../log", "taken.reader", "taken.command"})
        fs::remove_all(path);
    fs::create_directories("../log");
    memset(static_cast<void*>(g_shared->drawn), 0, sizeof g_shared->drawn);
    memset(static_cast<void*>(g_shared->calls), 0, sizeof g_shared->calls);
    for (auto& laps : g_shared->hidden_laps)
        laps = 0;
    for (auto& bytes : g_shared->bytes)
        bytes = 0;
    g_shared->disturbed = 0;
    g_shared->stops = false;
}

void RunRound(Round round, double seconds, const char* korx, Random* random) {
    g_shared->round = round;
    LayOut();
    std::vector<pid_t> writers;
    for (unsigned process = 0; process < kProcesses; ++process)
        NoteStart(process);
    for (unsigned process = 0; process < kProcesses; ++process)
        writers.push_back(Start([&, seed = (*random)()] { RunWriter(process, seed); }));
    Start(RunTaker);
    Start(RunSampler);
    Start([&, seed = (*random)()] { RunCommand(korx, seed); });
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double end = double(now.tv_sec) + double(now.tv_nsec) / 1e9 + seconds;
    do {
        Disturb(&writers, random);
        clock_gettime(CLOCK_MONOTONIC, &now);
    } while (double(now.tv_sec) + double(now.tv_nsec) / 1e9 < end);
    g_shared->stops = true;
    AwaitAll();
    JudgeWindows();
    TakeRest();
    JudgeTaken();
    printf("soak: %-8s", kRoundNames[static_cast<int>(round)]);
    for (const unsigned log : {kText, kDiag, kSecurity, kLife, kProcess})
        printf(" %s %.0f laps", FileOf(log), double(g_shared->bytes[log]) / kRingLimit);
    printf(", %u wrong\n", g_shared->errors.load());
    fflush(stdout);
}

// On a disk each line waits for it, with its lock; in memory there are many times more.
std::string SetUpBoard(const char* where) {
    std::string root = std::string(where) + "/korx-soak-XXXXXX";
    if (getenv("KORX_SANDBOX") == nullptr || mkdtemp(&root[0]) == nullptr ||
        chdir(root.c_str()) != 0) {
        fprintf(stderr, "soak: runs through scripts/soak\n");
        exit(2);
    }
    for (const char* directory : {"log", "run", "conf/config"})
        fs::create_directories(directory);
    std::ofstream("conf/config/korx_sdk_init.conf").flush();
    return root;
}

void EnterBoard(const std::string& root) {
    std::ofstream("/etc/base.d/base.conf") << "[PATH]\nLOG_PATH=" << root << "/log\n";
    fs::current_path(root + "/run");
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
    using namespace soak;
    if (argc != 4)
        return 2;
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return 2;
    g_shared = static_cast<Shared*>(memory);
    const std::string boards[] = {SetUpBoard("/tmp"), SetUpBoard("/dev/shm")};
    snprintf(g_shared->kept, sizeof g_shared->kept, "%s", boards[0].c_str());
    WatchForHangs();
    const double seconds = atof(argv[1]);
    Random random(static_cast<unsigned>(strtoul(argv[2], nullptr, 0)));
    const int rounds =
        static_cast<int>(std::size(kRoundNames)) * std::max(2, static_cast<int>(seconds / 30));
    for (int i = 0; i < rounds; ++i) {
        EnterBoard(boards[i / std::size(kRoundNames) % std::size(boards)]);
        RunRound(static_cast<Round>(i % std::size(kRoundNames)), seconds / rounds, argv[3],
                 &random);
    }
    const bool is_sound = g_shared->errors == 0;
    for (const std::string& board : boards)
        if (is_sound || board != g_shared->kept)
            fs::remove_all(board);
    if (!is_sound)
        fprintf(stderr, "soak: logs that were wrong are kept in %s\n", g_shared->kept);
    return is_sound ? 0 : 1;
}
