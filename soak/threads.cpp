// Without arguments it calls everything from sixteen threads at once, to be run below the thread
// sanitizer; with --list it says the functions that it calls, one a line.
//
// Each call is made by all threads at the same moment, which meets what two calls of one function
// share; then all calls are made in an order that differs from thread to thread. That each call
// answers as it must shows that it came as far as its work.
#include "threads.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

namespace threads {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kThreads = 16;
constexpr char kPlace[] = "/dev/shm/korx/threads";
constexpr char kRecord[] = "[2026-11-24 12:00:00.000001][Index:0x1][AppCid:1][INFO][L:1 M:1][1]a\n";

void Write(const std::string& path, const char* content) {
    std::ofstream(path) << content;
}

[[noreturn]] void GiveUp(const char* what) {
    perror(what);
    exit(2);
}

void LayOut() {
    for (const char* const directory : {"/dev/shm/korx/conf/config", kPlace})
        fs::create_directories(directory);
    fs::current_path(kPlace);
    Write("../conf/config/korx_sdk_init.conf", "");  // there is no agent
    Write("shared.ini", "[A]\nx=1\n");
    fs::create_directories("tree/sub");
    Write("tree/f", "content\n");
    Write("tree/sub/g", "content\n");
    if (ORX_ZipFile("tree", "a.zip", 0) != 0)
        GiveUp("zip");
}

// What a process does before it has threads.
void SetUp() {
    LayOut();
    if (KORX_OrxLogInit(1, "zelk") != 0)
        GiveUp("KORX_OrxLogInit");
    LOG_FileInit();
    (void) KORX_Mkdir(g_acLogPath, 0750);
    for (const char* const process : {"zelk", "DXN"})
        KORX_PLogInit(0, process, 4096);
    (void) STLOG_CheckFileHandle();
}

std::vector<Call> AllCalls() {
    std::vector<Call> all;
    for (const std::span<const Call> some : {CallsOnFiles(), OtherCalls()})
        all.insert(all.end(), some.begin(), some.end());
    return all;
}

// Removes what the next records go to, so that they open their files anew.
void RemoveLogs() {
    for (const char* const name : {"KORX_DIAG_LOG", "korx_safe.log", "korx_life.log",
                                   "KORX_START_LOG", "zelk.log", "DXN.log", "orx_app.log"})
        (void) unlink((std::string(g_acLogPath) + '/' + name).c_str());
}

class Run {
  public:
    bool is_clean() {
        std::vector<std::thread> threads;
        for (unsigned thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([=, this] { call_all(thread); });
        for (std::thread& thread : threads)
            thread.join();
        return failures_ == 0;
    }

  private:
    void call_all(unsigned thread) {
        for (const Call& call : calls_) {
            Scene at(thread);
            meet_.arrive_and_wait();
            make(call, at);
        }
        std::vector<Call> mixed = calls_;
        std::shuffle(mixed.begin(), mixed.end(), std::minstd_rand(thread + 1));
        for (const Call& call : mixed) {
            if (thread == 0)
                RemoveLogs();
            Scene at(thread);
            make(call, at);
        }
    }

    void make(const Call& call, Scene& at) {
        if (call.answers(at))
            return;
        ++failures_;
        fprintf(stderr, "threads: %s has not answered as it must\n", call.function);
    }

    const std::vector<Call> calls_ = AllCalls();
    std::barrier<> meet_{kThreads};
    std::atomic<unsigned> failures_ = 0;
};

}  // namespace

Scene::Scene(unsigned thread) : directory_(kPlace + ("/" + std::to_string(thread))) {
    list = {{&nodes[0], &nodes[1], nullptr}, 2};
    nodes[0] = {&nodes[1], &list.stNode, nullptr};
    nodes[1] = {&list.stNode, &nodes[0], nullptr};
    (void) ORX_AppendTLV(tlv, &room, 7, 5, "value");
    fs::create_directories(directory_ + "/d/sub");
    for (const char* const name : {"/f", "/d/f", "/d/sub/f"})
        Write(directory_ + name, "content\n");
    if (!fs::exists(directory_ + "/p"))
        Write(directory_ + "/p", "");
    (void) unlink(path("l"));
    (void) symlink("f", path("l"));
}

Scene::~Scene() {
    if (semaphore_ != -1)
        (void) KORX_MutexSemaDestroy(static_cast<uint32_t>(semaphore_));
    KORX_FreeProfile(profile_);
    ORX_DestroyStack(stack_);
    ORX_FreeVectorNodes(vector_);
    ORX_VEC_VectorFree(vector_);
    korx_reader_close(reader_);
    korx_reader_close(ring_reader_);
    for (const int fd : {fd_, ring_})
        if (fd >= 0)
            (void) close(fd);
}

const char* Scene::path(const char* name) {
    return paths_.emplace_back(directory_ + '/' + name).c_str();
}

char* Scene::text(const char* content) {
    return strcpy(in, content);
}

int Scene::fd() {
    if (fd_ < 0)
        fd_ = open(path("f"), O_RDWR | O_CLOEXEC);
    return fd_;
}

int Scene::ring() {
    if (ring_ < 0) {
        (void) unlink(path("korx_safe.log"));
        (void) unlink(path("korx_safe.log.cursor"));
        if (DLOG_CheckAndCreateFile(path("korx_safe.log"), &ring_) != 0 ||
            SLOG_Buff2File(ring_, kRecord, sizeof kRecord - 1, 4096) != 0)
            GiveUp("ring");
    }
    return ring_;
}

uint32_t Scene::semaphore() {
    uint32_t id = 0;
    if (KORX_MutexSemaCreate(IPC_PRIVATE, &id) != 0)
        GiveUp("semaphore");
    semaphore_ = static_cast<int>(id);
    return id;
}

KORX_IniSection* Scene::profile() {
    return profile_ = KORX_IniLoadProfile(fopen("shared.ini", "re"));
}

ORX_StackNode* Scene::stack() {
    if (stack_ == nullptr) {
        stack_ = ORX_CreateStack();
        (void) ORX_PushStack(stack_, malloc(1));
    }
    return stack_;
}

ORX_VEC_Vector* Scene::vector() {
    if (vector_ == nullptr) {
        vector_ = ORX_VEC_VectorInit(nullptr, 1);
        (void) ORX_VEC_VectorSet(vector_, malloc(1));
    }
    return vector_;
}

korx_reader* Scene::reader() {
    if (reader_ == nullptr) {
        (void) ring();
        std::ifstream file(path("korx_safe.log"), std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(file), {});
        (void) korx_reader_open_memory(bytes_.data(), bytes_.size(), KORX_LOG_SECURITY, nullptr,
                                       &reader_, nullptr);
    }
    return reader_;
}

korx_reader* Scene::ring_reader() {
    if (ring_reader_ == nullptr) {
        (void) ring();
        (void) korx_reader_open(path("korx_safe.log"), KORX_LOG_SECURITY, nullptr, &ring_reader_,
                                nullptr);
    }
    return ring_reader_;
}

}  // namespace threads

int main(int count, char** arguments) {
    using namespace threads;
    if (count == 2 && strcmp(arguments[1], "--list") == 0) {
        for (const Call& call : AllCalls())
            puts(call.function);
        return 0;
    }
    SetUp();
    return Run().is_clean() ? 0 : 1;
}
