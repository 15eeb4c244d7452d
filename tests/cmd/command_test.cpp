#include "base/unique.h"
#include "korx/cmd.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

constexpr uint32_t kAllBits = 0xFFFFFFFF;
using Lines = std::vector<std::string>;

struct Command : RoomTest {
    // What has been logged since the last call, without the "[0] " of the default log mode.
    Lines logged() {
        Lines lines;
        for (const std::string& text : syslog.texts())
            lines.push_back(text.substr(4, text.size() - 5));
        syslog.clear();
        return lines;
    }
};

TEST_F(Command, DecodesWaitStatus) {
    const std::string ended = "Child process terminate by signal, signal number = ";
    struct Row {
        int32_t status;
        uint32_t result;
        std::string line;
    };
    for (const Row& row :
         {Row{0x1FF00, 255, ""}, Row{0x86, kAllBits, ended + "6."},
          Row{0x7E, kAllBits, ended + "126."},
          Row{0x137F, kAllBits, "Child process stopped, signal number = 19."},
          Row{0xFFFF, kAllBits, "Child process unusual termination, exit status = 0."}}) {
        EXPECT_EQ(KORX_GetExitStatus(row.status), row.result) << row.status;
        EXPECT_EQ(logged(), row.line.empty() ? Lines{} : Lines{row.line}) << row.status;
    }
}

TEST_F(Command, ForbidsShellsByBaseName) {
    for (const char* program : {"", "sh", "/bin/bash", "./tcsh", "a/sash", "ksh", "//zsh",
                                static_cast<const char*>(nullptr)})
        EXPECT_EQ(ORX_IsCommandForbidden(program), 1u);
    for (const char* program : {"shell", "/usr/bin/sh2", "SH", "bash/", "dash", "-sh"})
        EXPECT_EQ(ORX_IsCommandForbidden(program), 0u) << program;
}

TEST_F(Command, FiltersEveryRefusedCharacter) {
    const std::string refused = "|;&$<>()[]`\\\"'~?*!\n";
    for (int c = 1; c < 256; ++c) {
        const std::string text = std::string("a") + char(c);
        const bool hit = refused.find(char(c)) != std::string::npos;
        EXPECT_EQ(ORX_CommandFilter(text.c_str(), 2), hit ? kAllBits : 0u) << c;
        EXPECT_EQ(ORX_CommandFilter(text.c_str(), 1), 0u) << c;
    }
    EXPECT_EQ(ORX_CommandFilter("ab", 3), kAllBits) << "the NUL is a member";

    EXPECT_EQ(KORX_Execvp("touch x;y", " "), kAllBits);
    EXPECT_FALSE(Exists("x"));
    EXPECT_EQ(logged(), Lines{"Command is illegal, cmd=touch x;y, split=' ', uiRet=4294967295."});
}

TEST_F(Command, SplitsIntoOneBlock) {
    const auto words = [](size_t count, size_t length) {
        std::string line;
        for (size_t i = 0; i < count; ++i)
            line += std::string(length, char('a' + i % 26)) + " ";
        return line;
    };
    const std::pair<std::string, size_t> rows[] = {
        {" a \tb  c ", 3},  {"  \t ", 0},           {words(29, 3), 29},
        {words(30, 3), 30}, {words(1000, 1), 1000}, {std::string(1807, 't'), 1}};
    for (const auto& [line, tokens] : rows) {
        char** argv = nullptr;
        ASSERT_EQ(ORX_CommandConstructArgv(line.c_str(), " \t", &argv), 0u) << line;
        std::istringstream expected(line);
        size_t count = 0;
        for (std::string word; expected >> word; ++count)
            ASSERT_STREQ(argv[count], word.c_str()) << count << " of " << line;
        EXPECT_EQ(count, tokens);
        EXPECT_EQ(argv[count], nullptr);
        if (count != 0 && count < 30) {
            EXPECT_EQ(argv[0] - reinterpret_cast<char*>(argv), 240);
        }
        free(argv);
    }
}

TEST_F(Command, RefusesWhatTheBlockCannotHold) {
    const std::string full(1807, 't'), blanks(2048, ' ');
    using Row = std::pair<std::string, std::string>;
    char** argv = nullptr;
    for (const auto& [line, refused] :
         {Row{"", "pcCommand = "}, Row{blanks, "pcCommand = " + blanks},
          Row{full + "t", "pcToken = " + full + "t"}, Row{full + " x", "pcToken = x"}}) {
        EXPECT_EQ(ORX_CommandConstructArgv(line.c_str(), " ", &argv), kAllBits);
        // Longer lines than the log takes are left out.
        const Lines lines = logged();
        EXPECT_TRUE(refused.size() > 1000 ||
                    lines == Lines{"Print " + refused + " unsuccessfully"});
    }
    for (const auto& [nth, buffer] : {std::pair(1u, "acCommand"), {2u, "pcBuf"}}) {
        const Fault fault("malloc", nth, ENOMEM);
        EXPECT_EQ(ORX_CommandConstructArgv("a", " ", &argv), kAllBits);
        EXPECT_EQ(logged(), Lines{"Malloc " + std::string(buffer) + " unsuccessfully."});
    }
    EXPECT_EQ(argv, nullptr);
}

TEST_F(Command, RunsAndReports) {
    struct Row {
        const char* line;
        uint32_t result;
        Lines reasons;
    };
    for (const Row& row :
         {Row{"touch,made", 0, {}}, Row{"false", 1, {}},
          Row{"no/such/program", 127, {"QRN system execvp command unsuccessfully, errno=2."}},
          Row{"/bin/sh,-c,true", kAllBits, {"Forbidden command : /bin/sh."}},
          Row{",,", kAllBits, {"Forbidden command : ."}}}) {
        Lines expected = row.reasons;
        if (row.result != 0)
            expected.push_back(std::string("Command can't execvp, cmd=") + row.line +
                               ", split=',', uiRet=" + std::to_string(row.result) + ".");
        EXPECT_EQ(KORX_Execvp(row.line, ","), row.result) << row.line;
        EXPECT_EQ(logged(), expected);
    }
    EXPECT_TRUE(Exists("made"));
}

TEST_F(Command, FiltersOnlyTheParametersOfAShellCommand) {
    EXPECT_EQ(KORX_SystemWithFilter("echo x > made; exit 7", 1, "x"), 7u);
    EXPECT_EQ(ReadFile("made"), "x\n");
    EXPECT_EQ(logged(), Lines{});
    EXPECT_EQ(KORX_SystemWithFilter("touch a", 2, "a", "f;g"), kAllBits);
    EXPECT_EQ(KORX_SystemWithFilter("touch a", 2, "a", nullptr), kAllBits);
    EXPECT_EQ(logged(), Lines(2, "Command has illegal char, cmd=touch a."));
    EXPECT_FALSE(Exists("a"));
    EXPECT_EQ(KORX_SystemWithFilter("-e", 0), 127u) << "a command, no option of the shell";
    EXPECT_EQ(KORX_SystemWithFilter("kill -9 $$", 0), kAllBits);
    signal(SIGCHLD, [](int) { (void) waitpid(-1, nullptr, WNOHANG); });
    EXPECT_EQ(KORX_SystemWithFilter("exit 7", 0), 7u) << "the handler must not reap the shell";
}

TEST_F(Command, GivesTheChildACleanStart) {
    sigset_t mask, after;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    for (const int number : {SIGINT, SIGQUIT, SIGCHLD, SIGPIPE})
        signal(number, SIG_IGN);
    std::vector<UniqueFd> open;
    for (const int fd : {10, 500, 1023})
        open.emplace_back(dup2(STDOUT_FILENO, fd));

    EXPECT_EQ(KORX_Execvp("cp /proc/self/status status", " "), 0u);
    const std::string status = ReadFile("status");  // the program's own view
    EXPECT_NE(status.find("SigBlk:\t0000000000000800\n"), std::string::npos) << status;
    EXPECT_NE(status.find("SigIgn:\t0000000000001000\n"), std::string::npos) << status;
    signal(SIGCHLD, SIG_DFL);  // where it is ignored, no shell can be waited for
    EXPECT_EQ(KORX_SystemWithFilter("cp /proc/self/status status", 0), 0u);
    EXPECT_NE(ReadFile("status").find("1006\nSigCgt"), std::string::npos)
        << "a shell inherits what is ignored";
    EXPECT_EQ(KORX_Execvp("find /proc/self/fd -fprint descriptors", " "), 0u);
    const std::string descriptors = ReadFile("descriptors");
    for (const std::string fd : {"/fd/1\n", "/fd/10\n", "/fd/500\n", "/fd/1023\n"})
        EXPECT_EQ(descriptors.find(fd) == std::string::npos, fd != "/fd/1\n") << fd;
    pthread_sigmask(SIG_UNBLOCK, &mask, &after);
    EXPECT_TRUE(sigismember(&after, SIGUSR2));
    EXPECT_FALSE(sigismember(&after, SIGINT) || sigismember(&after, SIGCHLD));
}

void OnSignal(int, siginfo_t*, void*) {
}

// What the test installs must come back with its flags and its mask.
void Install(int number) {
    struct sigaction action = {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaddset(&action.sa_mask, SIGUSR1);
    sigaction(number, &action, nullptr);
}

void ExpectInstalled(int number) {
    struct sigaction action;
    ASSERT_EQ(sigaction(number, nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, OnSignal) << number;
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_NODEFER), SA_SIGINFO | SA_NODEFER);
    EXPECT_TRUE(sigismember(&action.sa_mask, SIGUSR1));
}

constexpr int kRunSignals[] = {SIGINT, SIGQUIT, SIGCHLD};

uint32_t RunProgram(const std::string& line) {
    return KORX_Execvp(line.c_str(), " ");
}
uint32_t RunShell(const std::string& line) {
    return KORX_SystemWithFilter(line.c_str(), 0);
}
using Road = uint32_t (*)(const std::string& line);

struct ConcurrentRuns : Command {
    ConcurrentRuns() {
        WriteFile("lasting",
                  "#!/bin/sh\ngrep SigIgn /proc/self/status > $1.new; mv $1.new $1.runs\n"
                  "while [ ! -e $1.stop ]; do sleep 0.01; done\n");
        chmod("lasting", 0755);
        for (const int number : kRunSignals)
            Install(number);
    }
};

// A program that runs in a thread of its own until it is told to stop.
class Lasting {
  public:
    Lasting(Road road, const std::string& name)
        : name_(name), thread_([road, name] { EXPECT_EQ(road("./lasting " + name), 0u); }) {
        while (!Exists(name_ + ".runs"))
            usleep(1000);
    }
    // Which of SIGINT and SIGQUIT it ignores.
    unsigned long ignored() const {
        return std::stoul(ReadFile(name_ + ".runs").substr(8), nullptr, 16) & 6;
    }
    void cancel() { pthread_cancel(thread_.native_handle()); }
    void stop() {
        WriteFile(name_ + ".stop", "");
        thread_.join();
        for (const char* file : {".runs", ".stop"})
            unlink((name_ + file).c_str());
    }

  private:
    const std::string name_;
    std::thread thread_;
};

TEST_F(ConcurrentRuns, LastOneRestoresDispositions) {
    using Roads = std::pair<Road, Road>;
    for (const auto& [first, second] : {Roads{RunProgram, RunProgram}, Roads{RunProgram, RunShell},
                                        Roads{RunShell, RunProgram}}) {
        Lasting ends_first(first, "a"), ends_last(second, "b");
        EXPECT_EQ(ends_last.ignored(), 0u) << "that is the parent's business";
        ends_first.stop();
        for (const int number : {SIGINT, SIGQUIT}) {
            struct sigaction action;
            sigaction(number, nullptr, &action);
            EXPECT_EQ(action.sa_handler, SIG_IGN) << number;
        }
        ends_last.stop();
        for (const int number : kRunSignals)
            ExpectInstalled(number);
    }
}

TEST_F(ConcurrentRuns, OutlastACancelledThread) {
    for (const Road road : {RunProgram, RunShell}) {
        Lasting cancelled(road, "c");
        cancelled.cancel();
        cancelled.stop();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0) << "a child was left behind";
        for (const int number : kRunSignals)
            ExpectInstalled(number);
    }
}

TEST_F(ConcurrentRuns, AreNotCountedInAForkedChild) {
    Lasting run(RunProgram, "p");
    EXPECT_EQ(RunChild([] {
                  Install(SIGINT);
                  EXPECT_EQ(RunProgram("true"), 0u);
                  ExpectInstalled(SIGINT);
                  return 0;
              }),
              0);
    run.stop();
}

TEST_F(Command, WaitsForItsOwnChildOnly) {
    const pid_t other = fork();
    if (other == 0)
        _exit(42);
    {
        const Fault interrupted("wait4", 1, EINTR, 3);
        EXPECT_EQ(KORX_Execvp("true", " "), 0u);
        EXPECT_EQ(interrupted.hits(), 3u);
    }
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 42);

    Install(SIGINT);
    char program[] = "true";
    char* argv[] = {program, nullptr};
    for (const auto& [call, error] : {std::pair("wait4", ECHILD), {"vfork", EAGAIN}}) {
        const Fault fault(call, 1, error);
        EXPECT_EQ(KORX_SystemExecvp(argv), kAllBits);
    }
    EXPECT_EQ(logged(), (Lines{"QRN execvp call wait4 unsuccessfully, status is 0, errno is 10.",
                               "QRN system execvp vfork unsuccessfully, errno=11."}));
    const Fault fault("vfork", 1, EAGAIN);
    EXPECT_EQ(KORX_SystemWithFilter("true", 0), kAllBits);
    EXPECT_EQ(logged(), Lines{"Command can't system with filter, cmd=true, errno=11."});
    ExpectInstalled(SIGINT);
}

// Parent and child of a vfork share their memory, so a handler that runs in the child would count.
std::atomic<int> handled_in_child;
pid_t runner;

TEST_F(Command, RunsNoHandlerOfTheParentInTheChild) {
    const auto run = [] {
        setpgid(0, 0);
        runner = getpid();
        signal(SIGUSR1, [](int) { handled_in_child += getpid() != runner; });
        std::atomic<bool> done = false;
        std::thread storm([&] {
            while (!done)
                kill(0, SIGUSR1);
        });
        for (int i = 0; i < 200; ++i)
            (void) KORX_Execvp("no/such/program", " ");
        done = true;
        storm.join();
        return handled_in_child.load();
    };
    EXPECT_EQ(RunChild(run), 0);
}

}  // namespace
}  // namespace korx::test
