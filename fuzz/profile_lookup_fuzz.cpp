// A value looked up in one scan against the loaded profile, searched: same result, same value, same
// reports. The input is the section's name, the key's and the file, with NULs between.
#include <stdio.h>

#include "ini/plain_lookup.h"
#include "support.h"

using namespace korx::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace korx::test;
    std::string_view rest = View(data, size);
    const std::string section = TakeText(&rest);
    const std::string key = TakeText(&rest);
    const std::string name = FileOf(rest);

    reports.clear();
    const Answer expected = LoadAndLookUp(fopen(name.c_str(), "re"), section.c_str(), key.c_str());
    const std::string expected_reports = std::move(reports);
    reports.clear();
    Require(LookUp(name.c_str(), section.c_str(), key.c_str()) == expected);
    Require(reports == expected_reports);
    return 0;
}
