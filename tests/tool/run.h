// Runs the command as its users do.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
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

// Given one by one, or as a line of words.
struct Args : std::vector<std::string> {
    using vector::vector;
    Args(const char* line) : Args(std::string(line)) {}
    Args(const std::string& line) {
        std::istringstream words(line);
        assign(std::istream_iterator<std::string>(words), {});
    }
};

// A running command whose output goes to the descriptor, or to a file that is read at its end.
class Command {
  public:
    explicit Command(const Args& args, int out_fd = -1, uid_t user = 0) : pid_(fork()) {
        if (pid_ != 0)
            return;
        constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
        dup2(out_fd >= 0 ? out_fd : open("cmd.out", kNew, 0600), STDOUT_FILENO);
        dup2(open("cmd.err", kNew, 0600), STDERR_FILENO);
        if (user != 0 && (setgid(user) != 0 || setuid(user) != 0))
            _exit(126);
        std::vector<char*> argv{const_cast<char*>(KORX_TOOL)};
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(KORX_TOOL, argv.data());
        _exit(127);
    }
    ~Command() { stop(SIGKILL); }

    pid_t pid() const { return pid_; }
    int stop(int signal) { return pid_ > 0 && kill(pid_, signal) == 0 ? wait() : -1; }
    int wait() {
        int status = 0;
        waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

  private:
    pid_t pid_;
};

inline Result Korx(const Args& args, int out_fd = -1, uid_t user = 0) {
    unlink("cmd.out");
    unlink("cmd.err");
    const int status = Command(args, out_fd, user).wait();
    return {status, ReadFile("cmd.out"), ReadFile("cmd.err")};
}

struct Pipe {
    int ends[2];
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
};

// Into a pipe that nobody reads.
inline Result KorxUnheard(const Args& args) {
    const Pipe pipe;
    close(pipe.ends[0]);
    const Result result = Korx(args, pipe.ends[1]);
    close(pipe.ends[1]);
    return result;
}

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The command ends with the status, and its output or complaint has the text in it.
inline void Expect(const Result& result, int status, const std::string& text) {
    EXPECT_EQ(result.status, status) << text << "\n" << result.err;
    EXPECT_TRUE(Has(status < 2 ? result.out : result.err, text)) << text << "\n" << result.err;
    EXPECT_TRUE(status < 2 || status > 3 || result.out.empty()) << result.out;
}

inline void Expect(const Args& args, int status, const std::string& text = "") {
    SCOPED_TRACE(testing::PrintToString(args));
    Expect(Korx(args), status, text);
}

// A board whose configuration names the log directory "log" of the test's tree.
struct BoardTest : RoomTest {
    BoardTest() {
        for (const char* directory : {"log", "data", "conf/config", "run"})
            MakeDirs(directory);
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
