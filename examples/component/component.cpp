// One process of the component: it sets itself up as the library wants it and then logs from
// several threads into every log at once. What was accepted is counted, line by line.
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "demo.h"
#include "korx/basic.h"

namespace demo {
namespace {

constexpr uint32_t kInfo = 1;
constexpr uint32_t kIndex = 0x1000;
constexpr uint32_t kDiscarded = 99;

// Lines for each thread. The events are more than their logs hold: the reader has to keep up.
constexpr int kDiagLines = 50;
constexpr int kSecurityEvents = 240;
constexpr int kLifeEvents = 480;
constexpr int kStartLines = 20;  // for each of the four modules but the small first one
constexpr int kFirstModuleLines = 5;
// Pause between events, so that a log's lap takes far longer than the reader's round.
constexpr useconds_t kEventPauseUs = 2000;

struct Counts {
    std::atomic<int> diag, record, process, security, life, start, failed;
};

// A crash leaves its call stack in the diagnostic log, on a stack of its own.
void InstallCrashDump() {
    static char stack[64 * 1024];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = [](int) { KORX_DumpBacktraceHandler(); };
    action.sa_flags = SA_ONSTACK;
    for (const int fatal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigaction(fatal, &action, nullptr);
}

bool SetUp(const Process& process) {
    if (KORX_OrxLogInit(process.module_id, process.name) != 0)
        return false;
    ORX_SpaceFullLogInit();
    LOG_FileInit();
    ORX_LOG_SetLocId(process.module_id);
    ORX_LOG_SetSlotId(1);
    KORX_PLogInit(0, process.name, 0);
    InstallCrashDump();
    return true;
}

// Events that would overwrite unread ones are refused: the reader needs a moment.
template <typename Event>
uint32_t UntilTaken(Event event) {
    uint32_t result;
    while ((result = event()) == kDiscarded)
        usleep(2000);
    return result;
}

void LogFromThread(const Process& process, int thread, Counts* counts) {
    const auto count = [counts](std::atomic<int>& log, uint32_t result) {
        ++(result == 0 ? log : counts->failed);
    };
    const char* const who = process.name;
    for (int i = 0; i < kDiagLines; ++i) {
        ORX_Log2File(kInfo, "<%s.%d.%d>", who, thread, i);
        ++counts->diag;
        count(counts->record, KORX_DLog(1, kIndex, kInfo, 0, 0, "<%s.%d.%d>", who, thread, i));
        count(counts->process, KORX_PLog(kInfo, 0, 0, "<%s.%d.%d>", who, thread, i));
    }
    for (int i = 0; i < kLifeEvents; ++i, usleep(kEventPauseUs)) {
        if (i < kSecurityEvents)
            count(counts->security, UntilTaken([&] {
                      return KORX_SecurityEventLog(1, kIndex, kInfo, 0, 0, "<%s.%d.%d>", who,
                                                   thread, i);
                  }));
        count(counts->life, UntilTaken([&] {
                  return KORX_LifeCycleLog(1, kIndex, kInfo, 0, 0, "<%s.%d.%d>", who, thread, i);
              }));
    }
    for (uint32_t module = 0; module < 4; ++module) {
        for (int i = 0; i < (module == 0 ? kFirstModuleLines : kStartLines); ++i)
            count(counts->start,
                  KORX_STLog(module, kInfo, 0, "<%s.%d.%u%02d>", who, thread, module, i));
    }
}

// The profile is a mount point, so that its replacement by rename really fails: the message then
// goes the whole way into the diagnostic record log and "orx_app.log".
void ChangeAProfileThatCannotBeReplaced() {
    const std::string profile = kWorkDir + "/mounted.ini";
    const uint32_t result = KORX_IniSetOrAddValue(profile.c_str(), "[BOOT]", "count", "2");
    printf("  %-44s 0x%08X\n", "profile change whose rename fails", result);
}

void ShowResult(const char* what, uint32_t result, bool right) {
    printf("  %-44s %-10u %s\n", what, result, right ? "ok" : "WRONG");
}

void UseFilesAndCommands(Counts* counts) {
    const std::string profile = kWorkDir + "/state.ini";
    const std::string copy = kWorkDir + "/copies/state.ini";
    const std::string tree = kWorkDir + "/copies";
    const std::string archive = kWorkDir + "/state.zip";
    const auto expect = [counts](const char* what, uint32_t result, uint32_t wanted = 0) {
        ShowResult(what, result, result == wanted);
        counts->failed += result != wanted;
    };
    KORX_CreateFile(profile.c_str());
    expect("set a profile value", KORX_IniSetOrAddValue(profile.c_str(), "[BOOT]", "count", "7"));
    char value[16];
    expect("read it back", KORX_IniGetValue(profile.c_str(), "[BOOT]", "count", value, 16));
    expect("copy to a directory that is not there",
           KORXFS_CopyFile(profile.c_str(), 0, copy.c_str(), 0, 0));
    expect("protect the copy", ORXFS_ProtectFile(copy.c_str(), 0));
    expect("is it protected?", KORX_IsFileProtected(copy.c_str()), 1);
    expect("link it relatively",
           KORX_LinkFilesSafe(tree.c_str(), "state.ini", kWorkDir.c_str(), "link.ini"));
    expect("pack the directory", ORX_ZipFile(tree.c_str(), archive.c_str(), 0));
    expect("unpack it elsewhere", ORX_UnZipFile(archive.c_str(), (kWorkDir + "/out").c_str()));
    expect("run a program", KORX_Execvp("test -s " KORX_DEMO_PROFILE, " "));
    expect("refuse a shell", KORX_Execvp("/bin/sh -c true", " "), 0xFFFFFFFF);
    expect("refuse shell characters", KORX_Execvp("ls; rm -r /", " "), 0xFFFFFFFF);
    expect("remove the tree, protected file included", ORX_RmParentDir(tree.c_str(), 1));
    ORX_GetAndSaveAllDfInfo();
    const std::string space = kLogDir + "/orx_spacefull.log";
    expect("record the file systems' usage", KORX_IsFileExist(space.c_str()), 1);
}

bool WriteCounts(const Process& process, const Counts& counts) {
    FILE* const file = fopen((kResultDir + "/" + process.name).c_str(), "we");
    if (file == nullptr)
        return false;
    fprintf(file, "diag %d\nrecord %d\nprocess %d\nsecurity %d\nlife %d\nstart %d\nfailed %d\n",
            counts.diag.load(), counts.record.load(), counts.process.load(), counts.security.load(),
            counts.life.load(), counts.start.load(), counts.failed.load());
    return fclose(file) == 0;
}

}  // namespace

int RunComponent(const Process& process) {
    if (!SetUp(process))
        return 1;
    Counts counts = {};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back(LogFromThread, std::cref(process), thread, &counts);
    if (process.module_id == 80101) {
        UseFilesAndCommands(&counts);
        ChangeAProfileThatCannotBeReplaced();
    }
    for (std::thread& thread : threads)
        thread.join();
    return WriteCounts(process, counts) ? 0 : 1;
}

}  // namespace demo
