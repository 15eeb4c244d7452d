#include "help.h"

#include <stdint.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string_view>

#include "text.h"

namespace korx::tool {
namespace {

constexpr size_t kNames = 28;   // the column behind the names
constexpr size_t kNarrow = 72;  // on less, what they mean stands below the names
constexpr size_t kNarrowIndent = 6;

// "korx log list          what it does" in two lines, if it has to be.
std::string Example(const std::string& line, size_t width) {
    const size_t gap = line.find("  ", line.find_first_not_of(' '));
    if (line.size() <= width || gap == std::string::npos)
        return line + "\n";
    const std::string remark = line.substr(line.find_first_not_of(' ', gap));
    return line.substr(0, gap) + "\n" + std::string(kNarrowIndent, ' ') + remark + "\n";
}

bool TakesSeveral(const CLI::Option& option) {
    return option.get_expected_max() >= CLI::detail::expected_max_vector_size;
}

std::string Argument(const CLI::Option& option) {
    return option.get_type_name() + (TakesSeveral(option) ? "..." : "");
}

// "-n, --lines N". The parser knows more than people need: a flag's value stands in braces.
std::string Names(const CLI::Option& option) {
    std::string names = option.get_name(false, true);
    names.erase(std::min(names.find('{'), names.size()));
    const size_t comma = names.find(',');
    names = comma == std::string::npos ? "    " + names : names.replace(comma, 1, ", ");
    const std::string value =
        option.get_option_text().empty() ? option.get_type_name() : option.get_option_text();
    return option.get_type_size() == 0 || value.empty() ? names : names + " " + value;
}

}  // namespace

Help::Help(size_t width) : width_(width) {
    label("Positionals", "Arguments");
}

std::string Help::row(const std::string& name, const std::string& what) const {
    std::string out = "  " + name;
    if (width_ < kNarrow) {
        out += "\n" + std::string(kNarrowIndent, ' ');
        return out + Wrapped(what, width_, kNarrowIndent, kNarrowIndent);
    }
    if (out.size() + 2 > kNames)
        out += "\n" + std::string(kNames, ' ');
    else
        out.append(kNames - out.size(), ' ');
    return out + Wrapped(what, width_, kNames, kNames);
}

std::string Help::make_description(const CLI::App* app) const {
    return Wrapped(app->get_description(), width_, 0, 0) + "\n";
}

std::string Help::make_usage(const CLI::App* app, std::string name) const {
    std::string words = name + " [OPTION...]";
    for (const CLI::Option* option : app->get_options())
        if (option->get_positional())
            words +=
                option->get_required() ? " " + Argument(*option) : " [" + Argument(*option) + "]";
    if (!app->get_subcommands([](const CLI::App*) { return true; }).empty())
        words += " COMMAND";
    constexpr std::string_view kUsage = "Usage: ";
    return std::string(kUsage) + Wrapped(words, width_, kUsage.size(), kUsage.size());
}

std::string Help::make_option(const CLI::Option* option, bool is_positional) const {
    return row(is_positional ? Argument(*option) : Names(*option), option->get_description());
}

std::string Help::make_subcommand(const CLI::App* command) const {
    return row(command->get_name(), command->get_description());
}

std::string Help::make_footer(const CLI::App* app) const {
    std::istringstream lines(app->get_footer());
    std::string out;
    for (std::string line; std::getline(lines, line);)
        out += line.starts_with(' ') ? Example(line, width_) : Wrapped(line, width_, 0, 0);
    return out;
}

size_t HelpWidth() {
    constexpr size_t kMost = 100;
    constexpr size_t kUsual = 80;
    const size_t width = TerminalWidth(STDOUT_FILENO);
    return width == SIZE_MAX ? kUsual : std::min(width, kMost);
}

}  // namespace korx::tool
