// Which records are wanted.
#pragma once

#include <regex.h>

#include <memory>
#include <optional>
#include <string>

#include "korx/reader.h"

namespace korx::tool {

// A POSIX extended regular expression for the messages of records.
class Expression {
  public:
    // option: its name in complaints. Throws Failure for a text that is none.
    Expression(const std::string& option, const std::string& text, bool ignore_case);

    // Looks at the message; at the whole text of what has none.
    bool matches(const korx_record& record) const;

  private:
    struct FreeRegex {
        void operator()(regex_t* expression) const {
            regfree(expression);
            delete expression;
        }
    };

    std::unique_ptr<regex_t, FreeRegex> expression_;
};

// Empty texts: not asked for.
struct FilterOptions {
    std::string since;
    std::string until;
    std::string level;
    std::string grep;
    std::string section;
    std::string process;
    bool ignore_case = false;
    bool unread = false;
};

class Filter {
  public:
    // Throws Failure for a time, level, name or expression that is none.
    explicit Filter(const FilterOptions& options);

    bool selects_all() const;
    bool has_since() const { return since_.has_value(); }
    bool matches(const korx_record& record) const;

  private:
    std::optional<int64_t> since_;
    std::optional<int64_t> until_;
    uint32_t level_ = 0;
    std::optional<Expression> expression_;
    std::string section_;
    std::string process_;
    bool unread_;
};

}  // namespace korx::tool
