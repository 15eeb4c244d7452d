// What the targets share.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "korx/ini.h"

namespace korx::fuzz {

inline void Require(bool holds) {
    if (!holds)
        abort();
}

inline std::string_view View(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// The text before the next NUL.
inline std::string TakeText(std::string_view* rest) {
    const size_t end = std::min(rest->find('\0'), rest->size());
    const std::string text(rest->substr(0, end));
    rest->remove_prefix(std::min(end + 1, rest->size()));
    return text;
}

inline unsigned TakeByte(std::string_view* rest) {
    if (rest->empty())
        return 0;
    const auto byte = static_cast<unsigned char>(rest->front());
    rest->remove_prefix(1);
    return byte;
}

// The library's reports since it was last cleared.
extern std::string reports;

// A file in memory that holds the bytes; the same one each time.
std::string FileOf(std::string_view bytes);

// The path of a file below a folder in memory that goes when the process ends.
std::string PathBelowScratch(const char* name);
void WriteFile(const std::string& path, std::string_view bytes);
std::string ReadFile(const std::string& path);

// A profile as the library's loader reads it.
struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
    bool operator==(const Section&) const = default;
};
using Profile = std::vector<Section>;

// Nothing where the loader refuses the file.
Profile Load(const std::string& path);

}  // namespace korx::fuzz
