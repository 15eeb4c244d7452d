// Objects as the command prints them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace korx::tool {

// One object on a line of its own. Bytes that are not UTF-8, which names and values may hold,
// become U+FFFD.
inline std::string JsonLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace korx::tool
