// How --help looks: in the words of korx(1), and no wider than the terminal.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace korx::tool {

class Help : public CLI::Formatter {
  public:
    explicit Help(size_t width);

    std::string make_description(const CLI::App* app) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
    // Lines that begin with a blank are examples, which are not broken but where a remark begins.
    std::string make_footer(const CLI::App* app) const override;

  private:
    std::string row(const std::string& name, const std::string& what) const;

    const size_t width_;
};

// The columns for what people read: those of the terminal on standard output, but not so many that
// lines are hard to follow; 80 where it is none.
size_t HelpWidth();

}  // namespace korx::tool
