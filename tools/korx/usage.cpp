#include "usage.h"

#include <string.h>

#include <algorithm>
#include <vector>

namespace korx::tool {
namespace {

// The command that was meant, with the words that lead to it.
struct Meant {
    const CLI::App* command;
    std::string words;
};

Meant MeantBy(const CLI::App& app) {
    Meant meant{&app, app.get_name()};
    while (!meant.command->get_subcommands().empty()) {
        meant.command = meant.command->get_subcommands().front();
        meant.words += " " + meant.command->get_name();
    }
    return meant;
}

std::string CommandsOf(const CLI::App& command) {
    std::string names;
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; }))
        names += (names.empty() ? "" : ", ") + sub->get_name();
    return names;
}

// How people know it: "--since", or for an argument its type, "KIND|FILE".
std::string NameOf(const CLI::Option& option) {
    return option.get_positional() ? option.get_type_name() : option.get_name();
}

std::string UnknownWord(const Meant& meant, const std::string& word) {
    if (word.size() > 1 && word[0] == '-')
        return "'" + meant.words + "' has no option '" + word + "'";
    const std::string commands = CommandsOf(*meant.command);
    if (commands.empty())
        return "'" + word + "' is one word too many for '" + meant.words + "'";
    return "'" + word + "' is no command; '" + meant.words + "' has " + commands;
}

std::string Missing(const Meant& meant) {
    for (const CLI::Option* option : meant.command->get_options())
        if (option->get_required() && option->count() == 0)
            return "'" + meant.words + "' needs " + NameOf(*option);
    return "'" + meant.words + "' needs a command: " + CommandsOf(*meant.command);
}

// The option that the parser complains of: its messages begin with the name, or with a phrase that
// ends in a colon and then the name.
const CLI::Option* Culprit(const CLI::ParseError& error, const CLI::App& command) {
    std::string text = error.what();
    constexpr char kPhrase[] = "Could not convert: ";
    if (text.starts_with(kPhrase))
        text.erase(0, strlen(kPhrase));
    const CLI::Option* found = nullptr;
    for (const CLI::Option* option : command.get_options())
        if (text.starts_with(option->get_name()) &&
            (found == nullptr || found->get_name().size() < option->get_name().size()))
            found = option;
    return found;
}

std::string WrongValue(const CLI::Option& option) {
    const auto& values = option.results();
    const bool has_empty = std::find(values.begin(), values.end(), "") != values.end();
    if (has_empty || values.empty())
        return NameOf(option) + " must not be empty";
    // Only numbers are checked for more.
    return NameOf(option) + ": '" + values.back() + "' is no number from 0 on";
}

std::string WrongCount(const CLI::Option& option) {
    if (option.get_type_name().empty())
        return NameOf(option) + " takes no value";
    if (option.results().size() > 1)
        return NameOf(option) + " is given more than once";
    return NameOf(option) + " needs " + option.get_type_name();
}

std::string Sentence(const CLI::ParseError& error, const CLI::App& app, const Meant& meant) {
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const CLI::Option* const culprit = Culprit(error, *meant.command);
    if (culprit != nullptr &&
        (code == CLI::ExitCodes::ConversionError || code == CLI::ExitCodes::ValidationError))
        return WrongValue(*culprit);
    if (culprit != nullptr && code == CLI::ExitCodes::ArgumentMismatch)
        return WrongCount(*culprit);
    if (const auto unknown = app.remaining(true); !unknown.empty())
        return UnknownWord(meant, unknown.front());
    if (code == CLI::ExitCodes::RequiredError)
        return Missing(meant);
    return error.what();
}

}  // namespace

const CLI::Validator kNotEmpty(
    [](const std::string& text) { return std::string(text.empty() ? "is empty" : ""); }, "");

const CLI::Validator kCount(
    [](const std::string& text) {
        const bool is_number = text.find_first_not_of("0123456789") == std::string::npos;
        return std::string(is_number ? "" : "is no number");
    },
    "");

std::string UsageComplaint(const CLI::ParseError& error, const CLI::App& app) {
    const Meant meant = MeantBy(app);
    return Sentence(error, app, meant) + "; try '" + meant.words + " --help'";
}

}  // namespace korx::tool
