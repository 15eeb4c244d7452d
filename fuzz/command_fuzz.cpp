// A command line's arguments and the filter against plain models. The input is the separators and
// the command line, with a NUL between.
#include "korx/cmd.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

std::vector<std::string> Arguments(const std::string& command, const std::string& separators) {
    std::vector<std::string> arguments;
    for (size_t at = command.find_first_not_of(separators); at != command.npos;) {
        const size_t end = std::min(command.find_first_of(separators, at), command.size());
        arguments.push_back(command.substr(at, end - at));
        at = command.find_first_not_of(separators, end);
    }
    return arguments;
}

// Up to 29 arguments share a block of 2048 bytes with 30 slots.
bool Fits(const std::vector<std::string>& arguments) {
    size_t bytes = 0;
    for (const std::string& argument : arguments)
        bytes += argument.size() + 1;
    return arguments.size() >= 30 || bytes <= 2048 - 30 * sizeof(char*);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const std::string separators = TakeText(&rest);
    const std::string command = TakeText(&rest);
    const auto expected = Arguments(command, separators);

    char** argv = nullptr;
    const uint32_t result = ORX_CommandConstructArgv(command.c_str(), separators.c_str(), &argv);
    Require((result == 0) == (!command.empty() && command.size() < 2048 && Fits(expected)));
    Require((result == 0) == (argv != nullptr));
    if (argv != nullptr) {
        for (size_t i = 0; i < expected.size(); ++i)
            Require(argv[i] != nullptr && expected[i] == argv[i]);
        Require(argv[expected.size()] == nullptr);
        free(argv);
    }
    const bool is_refused = command.find_first_of("|;&$<>()[]`\\\"'~?*!\n") != command.npos;
    const auto length = static_cast<uint32_t>(command.size());
    Require((ORX_CommandFilter(command.c_str(), length) != 0) == is_refused);
    Require((ORX_CommandFilter(command.c_str(), length + 1) != 0) == !command.empty());
    const std::string name = command.substr(command.rfind('/') + 1);
    const char* const shells[] = {"", "sh", "bash", "tcsh", "sash", "ksh", "zsh"};
    const bool is_shell = std::find(std::begin(shells) + (command.empty() ? 0 : 1),
                                    std::end(shells), name) != std::end(shells);
    Require((ORX_IsCommandForbidden(command.c_str()) == 1) == is_shell);
    return 0;
}
