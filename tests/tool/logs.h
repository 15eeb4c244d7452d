// Logs of a board, written by the library and read through the command.
#pragma once

#include <poll.h>

#include <string>
#include <utility>
#include <vector>

#include "run.h"

namespace korx::test {

inline std::vector<std::string> Messages(const Result& result) {
    std::vector<std::string> messages;
    for (const auto& record : result.json())
        messages.push_back(record.value("message", ""));
    return messages;
}

inline void WriteSecurity(int first, int count) {
    for (int i = first; i < first + count; ++i)
        ASSERT_EQ(KORX_SecurityEventLog(1, 2, 1, 3, 4, "event %d", i), 0u);
}

// Writes a line of its own.
inline void SetUpText(const std::string& directory) {
    ORX_LogInfo info = {};
    info.uiLogMode = 3;
    info.uiModuleId = 80101;
    info.uiMaxLogLen = 0x80000;
    strcpy(info.acLogDir, directory.c_str());
    strcpy(info.acLogFileName, "orx_app.log");
    KORX_LogInit(&info);
}

inline void WriteText(const std::string& directory, int first, int count) {
    SetUpText(directory);
    unlink((directory + "/orx_app.log").c_str());
    for (int i = first; i < first + count; ++i)
        ORX_Log2File(2, "event %d", i);
}

inline std::vector<std::string> Events(int first, int count) {
    std::vector<std::string> events;
    for (int i = first; i < first + count; ++i)
        events.push_back("event " + std::to_string(i));
    return events;
}

inline uint64_t Unread(const std::string& kind) {
    uint64_t unread = 0;
    for (const auto& log : Korx("log list --json").json())
        if (log["kind"] == kind && log["present"])
            unread += log["unread"].get<uint64_t>();
    return unread;
}

class Follow : Pipe, public Command {
  public:
    explicit Follow(const Args& args) : Command(args, ends[1]) {
        close(ends[1]);
        setbuf(lines_, nullptr);  // or poll would not see what the stream has read ahead
    }
    ~Follow() { close_output(); }

    // The next line's message; "" when none comes in time.
    std::string next() {
        pollfd waiting{ends[0], POLLIN, 0};
        char line[4096];
        if (poll(&waiting, 1, 5000) <= 0 || fgets(line, sizeof line, lines_) == nullptr)
            return "";
        return nlohmann::json::parse(line).value("message", "");
    }
    void close_output() {
        if (FILE* const lines = std::exchange(lines_, nullptr))
            fclose(lines);
    }
    std::string switches() const {
        const auto status = ReadFile("/proc/" + std::to_string(pid()) + "/status");
        return status.substr(status.find("voluntary_ctxt_switches"));
    }

  private:
    FILE* lines_ = fdopen(ends[0], "r");
};

}  // namespace korx::test
