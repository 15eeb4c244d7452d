// Runs the command as its users do.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "korx/basic.h"
#include "support/fixture.h"

namespace korx::test {

struct Result {
    int status = -1;  // 128 + signal for a killed one
    std::string out;
    std::string err;

    std::vector<nlohmann::json> json() const {
        std::vector<nlohmann::json> objects;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);)
            objects.push_back(nlohmann::json::parse(line));
        return objects;
    }
};

using Args = std::vector<std::string>;

// A running command whose output goes to the descriptor, or to a file that is read at its end.
class Command {
  public:
    explicit Command(const Args& args, int out_fd = -1, uid_t user = 0) {
        const std::string out = out_fd < 0 ? "cmd.out" : "";
        pid_ = fork();
        if (pid_ != 0)
            return;
        const int target =
            out_fd >= 0 ? out_fd : open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int error = open("cmd.err", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(target, STDOUT_FILENO);
        dup2(error, STDERR_FILENO);
        if (user != 0 && (setgid(user) != 0 || setuid(user) != 0))
            _exit(126);
        std::vector<char*> argv{const_cast<char*>(KORX_TOOL)};
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(KORX_TOOL, argv.data());
        _exit(127);
    }
    ~Command() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
    }

    pid_t pid() const { return pid_; }
    int wait() {
        int status = 0;
        waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

  private:
    pid_t pid_;
};

inline Result Korx(const Args& args, int out_fd = -1, uid_t user = 0) {
    Result result;
    unlink("cmd.out");
    unlink("cmd.err");
    result.status = Command(args, out_fd, user).wait();
    result.out = ReadFile("cmd.out");
    result.err = ReadFile("cmd.err");
    return result;
}

// A board whose configuration names the log directory "log" of the test's tree.
struct BoardTest : RoomTest {
    BoardTest() {
        MakeDirs("log");
        MakeDirs("data");
        MakeDirs("conf/config");
        MakeDirs("run");
        WriteFile("conf/config/korx_sdk_init.conf", "");
        WriteFile("/etc/base.d/base.conf", "[PATH]\nLOG_PATH=" + tree.path("log") +
                                               "\nDATA_PATH=" + tree.path("data") + "\n");
        EXPECT_EQ(chdir("run"), 0);
        LOG_FileInit();
        ORX_LOG_SetLocId(7);
    }

    std::string log(const std::string& file) const { return tree.path("log/" + file); }
};

}  // namespace korx::test
