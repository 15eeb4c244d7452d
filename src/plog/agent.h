// Handing records to the platform's agent.
#pragma once

#include <stdint.h>

namespace korx {

// The agent's numbers of the logs.
enum class AgentLog : uint32_t { kSecurity = 1, kDiag = 9, kLife = 22 };

// Gives a text to the bound agent as it is. Result: the agent's.
uint32_t HandToAgent(AgentLog log, uint32_t id, const char* text);

}  // namespace korx
