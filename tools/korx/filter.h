// Which records are wanted.
#pragma once

#include <regex.h>

#include <memory>
#include <optional>
#include <string>

#include "korx/reader.h"

namespace korx::tool {

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
    // Throws Failure for a time, level or expression that is none.
    explicit Filter(const FilterOptions& options);

    bool selects_all() const;
    bool has_since() const { return since_.has_value(); }
    bool matches(const korx_record& record) const;

  private:
    struct FreeRegex {
        void operator()(regex_t* expression) const {
            regfree(expression);
            delete expression;
        }
    };

    bool matches_expression(const korx_record& record) const;

    std::optional<int64_t> since_;
    std::optional<int64_t> until_;
    uint32_t level_ = 0;
    std::unique_ptr<regex_t, FreeRegex> expression_;
    std::string section_;
    std::string process_;
    bool unread_;
};

}  // namespace korx::tool
