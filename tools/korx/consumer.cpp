#include "consumer.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "signals.h"

namespace korx::tool {
namespace {

// What is ignored here would stay ignored there.
class SpawnSettings {
  public:
    explicit SpawnSettings(int input) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

pid_t Start(const std::vector<std::string>& words, int input) {
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const SpawnSettings settings(input);
    pid_t pid = 0;
    const int error =
        posix_spawnp(&pid, argv[0], &settings.actions, &settings.attributes, argv.data(), environ);
    if (error != 0)
        throw Failure{kOutput, SystemError(words[0], error)};
    return pid;
}

}  // namespace

std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    bool in_word = false;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool is_blank = quote == '\0' && (c == ' ' || c == '\t' || c == '\n');
        if (!is_blank && !std::exchange(in_word, true))
            words.emplace_back();
        if (is_blank)
            in_word = false;
        else if (c == quote)
            quote = '\0';
        else if (quote == '\0' && (c == '\'' || c == '"'))
            quote = c;
        else if (c == '\\' && quote != '\'' && i + 1 < line.size())
            words.back() += line[++i];
        else
            words.back() += c;
    }
    if (quote != '\0')
        throw Failure{kUsage, "--exec: a quote is not closed in: " + line};
    if (words.empty())
        throw Failure{kUsage, "--exec: there is no command"};
    return words;
}

Consumer::Consumer(Waits waits, const std::string& line) : waits_(waits), words_(SplitWords(line)) {
    // Whoever has started us may ignore it, and then no exit status would be left to wait for.
    signal(SIGCHLD, SIG_DFL);
}

void Consumer::begin() {
    was_started_ = false;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        throw Failure{kOutput, SystemError(words_[0], errno)};
    const UniqueFd input(ends[0]);
    input_.reset(ends[1]);
    pid_ = Start(words_, input.get());
    was_started_ = true;
    out_.emplace(input_.get(), words_[0]);
    if (waits_ == Waits::kInterruptibly)
        out_->set_interruptible();
}

void Consumer::commit(uint64_t) {
    out_->flush();
    input_.reset();
    const int status = wait_for_end();
    if (WIFSIGNALED(status))
        throw Failure{kOutput, words_[0] + ": ended by signal " + std::to_string(WTERMSIG(status))};
    if (status != 0)
        throw Failure{kOutput, words_[0] + ": exit status " + std::to_string(WEXITSTATUS(status))};
}

// Asked to stop, the command has its batch already: it is asked, too, and its answer counts.
int Consumer::wait_for_end() {
    if (waits_ == Waits::kInterruptibly) {
        const UniqueFd ended(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
        pollfd waiting{ended.get(), POLLIN, 0};
        if (ended && PollOrStop(&waiting, 1) == Wake::kStop)
            (void) kill(pid_, SIGTERM);
    }
    int status = 0;
    pid_t pid;
    do
        pid = waitpid(pid_, &status, 0);
    while (pid < 0 && errno == EINTR);
    const int error = errno;
    const bool is_known = pid == pid_;
    pid_ = 0;
    if (!is_known)
        throw Failure{kOutput, SystemError(words_[0], error)};
    return status;
}

bool Consumer::take_back() {
    // It must not take the end of half a batch for the end of a whole one.
    if (pid_ != 0) {
        (void) kill(pid_, SIGTERM);
        input_.reset();
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR)
            continue;
        pid_ = 0;
    }
    input_.reset();
    return !was_started_;
}

std::string Consumer::closed() const {
    return words_[0] + ": ended before it had read all";
}

}  // namespace korx::tool
