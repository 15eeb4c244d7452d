// What the parts of the example share: where things are and who takes part.
#pragma once

#include <cstdint>
#include <string>

namespace demo {

// Below /opt, which scripts/demo makes the demo's own.
inline const std::string kRoot = "/opt/demo";
inline const std::string kLogDir = kRoot + "/log";
inline const std::string kWorkDir = kRoot + "/work";
inline const std::string kResultDir = kRoot + "/results";
inline const std::string kTakenDir = kRoot + "/taken";  // what the outside reader took away
inline const std::string kAgentFile = kRoot + "/agent.received";

struct Process {
    const char* name;  // the name of its process log
    uint32_t module_id;
};
inline constexpr Process kProcesses[] = {
    {"zelk_agent", 80100}, {"zelk", 80101}, {"QTMON", 80102}, {"DXN", 80103}};

inline constexpr int kThreads = 3;

// Runs as one process of the component; returns its exit status.
int RunComponent(const Process& process);
// Takes the records of the security and life-cycle logs away until the file kRoot/stop exists.
int RunReader();
// Prints what is in the logs and gives the verdict.
int Report(bool agent_mode);

}  // namespace demo
