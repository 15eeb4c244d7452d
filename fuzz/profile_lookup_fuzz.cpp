// A value looked up in one scan against the loaded profile, searched: same result, same value, same
// reports. The input is the section's name, the key's and the file, with NULs between.
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "base/report.h"
#include "ini/plain_lookup.h"

namespace {
std::string reports;
}

// The log is not part of this: its end is here.
namespace korx {

void LogV(uint32_t, const char* format, va_list args) {
    char text[1024];
    reports.append(text, static_cast<size_t>(vsnprintf(text, sizeof text, format, args)));
    reports += '\n';
}

void SysLogV(const char* format, va_list args) {
    LogV(kLevelErr, format, args);
}

}  // namespace korx

namespace {

void Require(bool holds) {
    if (!holds)
        abort();
}

std::string TakeName(std::string_view* rest) {
    const size_t end = std::min(rest->find('\0'), rest->size());
    const std::string name(rest->substr(0, end));
    rest->remove_prefix(std::min(end + 1, rest->size()));
    return name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace korx::test;
    static const int file = memfd_create("profile", MFD_CLOEXEC);
    static const std::string name = "/proc/self/fd/" + std::to_string(file);
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string section = TakeName(&rest);
    const std::string key = TakeName(&rest);
    Require(ftruncate(file, 0) == 0 &&
            pwrite(file, rest.data(), rest.size(), 0) == static_cast<ssize_t>(rest.size()));

    reports.clear();
    const Answer expected = LoadAndLookUp(fopen(name.c_str(), "re"), section.c_str(), key.c_str());
    const std::string expected_reports = std::move(reports);
    reports.clear();
    Require(LookUp(name.c_str(), section.c_str(), key.c_str()) == expected);
    Require(reports == expected_reports);
    return 0;
}
