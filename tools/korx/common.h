// What all commands share: how they end, and how they fail.
#pragma once

#include <string>
#include <utility>

namespace korx::tool {

// Exit statuses, as korx(1) lists them.
enum Status : int {
    kWell = 0,       // done, and nothing found
    kFinding = 1,    // done, and something found: damage, an absent key, a board that is not well
    kUsage = 2,      // the command line is wrong
    kInput = 3,      // something cannot be read: missing, no permission, locked, not a log
    kOutput = 4,     // the output failed; nothing of it was acknowledged
    kUnchanged = 5,  // the records were printed but not acknowledged; the profile was not changed
    kNotCome = 6,    // the record that was waited for has not come
    kNoLog = 7,      // there is no log to verify
};

// Whether another try is worth it: kBusy is a writer that held the log for too long.
enum class Trouble { kLasting, kBusy };

// Ends the command: main prints the text behind "korx: " and exits with the status.
struct Failure {
    int status;
    std::string text;  // empty: nothing to say
    Trouble trouble = Trouble::kLasting;
};

// The reader at the other end of standard output has gone.
struct ClosedPipe {};

// SIGINT or SIGTERM while following.
struct Stopped {};

// Prints "korx: text" to standard error.
void Complain(const std::string& text);

struct Globals {
    bool json = false;
    std::string directory;  // --dir: where the logs are; empty: as configured
    std::string board;      // --board: before the ids of records; empty: see BoardName
};

// "path: why" for errno as it stands.
std::string SystemError(const std::string& path, int error);

}  // namespace korx::tool
