// What the tests of all logs share: the structs in a file, writers side by side, whole records.
#pragma once

#include <string.h>

#include <algorithm>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture.h"

namespace korx::test {

template <typename T>
std::string BytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// The struct at the beginning of a file; zeros stand for what the file lacks.
template <typename T>
T HeadOf(const std::string& file) {
    T head = {};
    const std::string bytes = ReadFile(file);
    memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    return head;
}

inline void SetLogPath(const std::string& path) {
    WriteFile("/etc/base.d/base.conf", "[PATH]\nLOG_PATH=" + path + "\n");
}

// Runs body(0) to body(n - 1), each in a thread.
template <typename Body>
void RunThreads(int n, Body body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < n; ++i)
        threads.emplace_back(body, i);
    for (auto& thread : threads)
        thread.join();
}

// The first groups of the form's matches, of which the text must consist, in their order.
inline std::vector<std::string> Matches(const std::string& text, const std::string& form) {
    const std::regex regex(form);
    std::vector<std::string> found;
    size_t matched = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), regex), end; it != end; ++it) {
        found.push_back(it->str(1));
        matched += static_cast<size_t>(it->length());
    }
    EXPECT_EQ(matched, text.size()) << "something else stands between the records";
    return found;
}

}  // namespace korx::test
