// What the parts of the example share: where things are and who takes part.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace demo {

// Below /opt, which scripts/demo makes the demo's own.
inline const std::string kRoot = "/opt/demo";
inline const std::string kLogDir = kRoot + "/log";
inline const std::string kWorkDir = kRoot + "/work";
inline const std::string kResultDir = kRoot + "/results";
inline const std::string kTakenDir = kRoot + "/taken";  // what the outside reader took away
inline const std::string kAgentFile = kRoot + "/agent.received";
inline const std::string kSyslogFile = kRoot + "/syslog";     // what came to /dev/log
inline const std::string kStepsFile = kResultDir + "/steps";  // of files, profiles and commands
inline const std::string kMountedProfile = kWorkDir + "/mounted.ini";
inline const std::string kRefusedFile = kRoot + "/refused";  // there once an event was refused
inline const std::string kStopFile = kRoot + "/stop";        // there once the processes have ended

struct Process {
    const char* name;  // the name of its process log
    uint32_t module_id;
};
inline constexpr Process kProcesses[] = {
    {"zelk_agent", 80100}, {"zelk", 80101}, {"QTMON", 80102}, {"DXN", 80103}};

inline constexpr std::string_view kBusyProcess = "zelk";     // works on files besides
inline constexpr std::string_view kCrashingProcess = "DXN";  // crashes when its work is done

inline constexpr int kThreads = 3;

// False where scripts/sandbox could not mount anything: then kMountedProfile is a file like others.
inline bool HasMounts() {
    const char* const sandbox = std::getenv("KORX_SANDBOX");
    return sandbox == nullptr || std::string_view(sandbox) != "in-place";
}

// Runs as one process of the component; returns its exit status.
int RunComponent(const Process& process);
// Takes the records of the security and life-cycle logs away until kStopFile exists.
int RunReader();
// Stands in for the system log until kStopFile exists.
int RunSyslog();
// Prints what is in the logs and gives the verdict.
int Report(bool agent_mode);

}  // namespace demo
