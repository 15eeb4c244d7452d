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
// Each refusal leaves a warning in the diagnostic record log, which must not fill up with them.
constexpr useconds_t kRefusedPauseUs = 50000;

struct Counts {
    std::atomic<int> diag, record, process, security, life, start, refused, failed;
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

void Crash() {
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;  // cppcheck-suppress nullPointer; this is what it is there for
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

// Events that would overwrite unread ones are refused. The first refusal is what the reader waits
// for; then it needs a moment.
template <typename Event>
uint32_t UntilTaken(Counts* counts, Event event) {
    uint32_t result;
    while ((result = event()) == kDiscarded) {
        if (++counts->refused == 1)
            KORX_CreateFile(kRefusedFile.c_str());
        usleep(kRefusedPauseUs);
    }
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
            count(counts->security, UntilTaken(counts, [&] {
                      return KORX_SecurityEventLog(1, kIndex, kInfo, 0, 0, "<%s.%d.%d>", who,
                                                   thread, i);
                  }));
        count(counts->life, UntilTaken(counts, [&] {
                  return KORX_LifeCycleLog(1, kIndex, kInfo, 0, 0, "<%s.%d.%d>", who, thread, i);
              }));
    }
    for (uint32_t module = 0; module < 4; ++module) {
        for (int i = 0; i < (module == 0 ? kFirstModuleLines : kStartLines); ++i)
            count(counts->start,
                  KORX_STLog(module, kInfo, 0, "<%s.%d.%u%02d>", who, thread, module, i));
    }
}

// What one process does besides logging, while the others log: files, profiles and commands. Each
// step is written down with its result.
class Steps {
  public:
    Steps() : out_(fopen(kStepsFile.c_str(), "we")) {}
    ~Steps() { fclose(out_); }
    Steps(const Steps&) = delete;
    Steps& operator=(const Steps&) = delete;

    void expect(const char* what, uint32_t result, uint32_t wanted = 0) {
        fprintf(out_, "  %-46s result %10s   %s\n", what, Hex(result).c_str(),
                result == wanted ? "ok" : "WRONG");
        wrong_ += result != wanted;
    }
    int wrong() const { return wrong_; }

  private:
    static std::string Hex(uint32_t result) {
        char text[16];
        snprintf(text, sizeof text, result < 100 ? "%u" : "0x%08X", result);
        return text;
    }

    FILE* out_;
    int wrong_ = 0;
};

void UseFilesAndCommands(Steps* steps) {
    const std::string profile = kWorkDir + "/state.ini";
    const std::string tree = kWorkDir + "/copies";
    const std::string copy = tree + "/state.ini";
    const std::string archive = kWorkDir + "/state.zip";
    const std::string unpacked = kWorkDir + "/unpacked";
    const std::string compare = "cmp " + profile + " " + unpacked + "/state.ini";
    char value[16];

    steps->expect("create a profile", KORX_CreateFile(profile.c_str()));
    steps->expect("set a value", KORX_IniSetOrAddValue(profile.c_str(), "[BOOT]", "count", "7"));
    steps->expect("read it back",
                  KORX_IniGetValue(profile.c_str(), "[BOOT]", "count", value, sizeof value));
    steps->expect("is it 7?", ORX_IsStringEqual(value, "7"), 1);
    steps->expect("copy it into a new directory",
                  KORXFS_CopyFile(profile.c_str(), 0, copy.c_str(), 0, 0));
    steps->expect("copy it again, not to overwrite (refused)",
                  KORXFS_CopyFile(profile.c_str(), 0, copy.c_str(), 0, 0), ORXFS_ERR_ALREADY_EXIST);
    steps->expect("protect the copy", ORXFS_ProtectFile(copy.c_str(), 0));
    steps->expect("is it protected?", KORX_IsFileProtected(copy.c_str()), 1);
    steps->expect("link to the copy",
                  KORX_LinkFilesSafe(tree.c_str(), "state.ini", kWorkDir.c_str(), "link.ini"));
    steps->expect("link out of the directory",
                  KORX_LinkFilesSafe(kWorkDir.c_str(), "state.ini", tree.c_str(), "outside.ini"));
    steps->expect("pack the directory", ORX_ZipFile(tree.c_str(), archive.c_str(), 0));
    steps->expect("unpack it elsewhere", ORX_UnZipFile(archive.c_str(), unpacked.c_str()));
    steps->expect("compare by running a program", KORX_Execvp(compare.c_str(), " "));
    steps->expect("run a shell (refused)", KORX_Execvp("/bin/sh script", " "), KORX_ERR_ALL_BITS);
    steps->expect("run \"ls; rm\" (refused)", KORX_Execvp("ls; rm", " "), KORX_ERR_ALL_BITS);
    steps->expect("remove the directory, protected file included",
                  ORX_RmParentDir(tree.c_str(), 1));
    steps->expect("is it gone?", KORX_IsDirExist(tree.c_str()), 0);
    steps->expect("is what its link led to still there?", KORX_IsFileExist(profile.c_str()), 1);
}

// The profile is a mount point, so that its replacement by rename really fails: the message then
// goes the whole way into the diagnostic record log and "orx_app.log".
void ChangeAProfileThatCannotBeReplaced(Steps* steps) {
    if (!HasMounts())
        return;
    steps->expect("change a profile whose rename fails",
                  KORX_IniSetOrAddValue(kMountedProfile.c_str(), "[BOOT]", "count", "2"),
                  KORX_ERR_FAILED);
}

bool WriteCounts(const Process& process, const Counts& counts) {
    FILE* const file = fopen((kResultDir + "/" + process.name).c_str(), "we");
    if (file == nullptr)
        return false;
    fprintf(file, "diag %d\nrecord %d\nprocess %d\nsecurity %d\nlife %d\nstart %d\n",
            counts.diag.load(), counts.record.load(), counts.process.load(), counts.security.load(),
            counts.life.load(), counts.start.load());
    fprintf(file, "refused %d\nfailed %d\n", counts.refused.load(), counts.failed.load());
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
    if (process.name == kBusyProcess) {
        Steps steps;
        UseFilesAndCommands(&steps);
        ChangeAProfileThatCannotBeReplaced(&steps);
        counts.failed += steps.wrong();
    }
    for (std::thread& thread : threads)
        thread.join();
    if (process.name == kBusyProcess)
        ORX_GetAndSaveAllDfInfo();
    if (!WriteCounts(process, counts))
        return 1;
    if (process.name == kCrashingProcess)
        Crash();
    return 0;
}

}  // namespace demo
