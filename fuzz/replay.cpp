// Feeds a target with the files of its corpus, without a fuzzer and so with any compiler.
#include <stdio.h>

#include <filesystem>

#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int, char** argv) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        const std::string input = korx::fuzz::ReadFile(entry.path());
        fprintf(stderr, "%s\n", entry.path().c_str());  // the last one is what a crash is about
        (void) LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        ++count;
    }
    return count == 0 ? 1 : 0;
}
