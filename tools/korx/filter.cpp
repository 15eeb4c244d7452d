#include "filter.h"

#include <string.h>

#include <string_view>

#include "common.h"
#include "format/start.h"
#include "when.h"

namespace korx::tool {
namespace {

// Of the two moments of a repeated hour, the one that leaves more records.
std::optional<int64_t> Time(const std::string& option, const std::string& text, Twice twice) {
    if (text.empty())
        return std::nullopt;
    const auto time = ParseWhen(text, NowMicroseconds(), twice);
    if (!time)
        throw Failure{kUsage, "--" + option + ": '" + text +
                                  "' is no time; try \"2024-03-05 14:07\", \"14:07\", \"2h\" "
                                  "or \"yesterday\""};
    return time;
}

uint32_t Level(const std::string& text) {
    static constexpr struct {
        const char* name;
        uint32_t level;
    } kLevels[] = {{"debug", 0}, {"info", 1}, {"warning", 2}, {"warn", 2}, {"error", 3}, {"err", 3},
                   {"fatal", 4}, {"0", 0},    {"1", 1},       {"2", 2},    {"3", 3},     {"4", 4}};
    for (const auto& row : kLevels)
        if (strcasecmp(row.name, text.c_str()) == 0)
            return row.level;
    throw Failure{kUsage, "--level: '" + text + "' is none of debug, info, warning, error, fatal"};
}

std::string Section(const std::string& text) {
    std::string names;
    for (const char* name : kModules) {
        if (strcasecmp(name, text.c_str()) == 0)
            return text;
        names += std::string(names.empty() ? "" : ", ") + name;
    }
    throw Failure{kUsage, "--section: '" + text + "' is none of " + names};
}

bool SameName(const std::string& wanted, const korx_record& record) {
    return (record.fields & KORX_FIELD_NAME) != 0 && wanted.size() == record.name_length &&
           strncasecmp(wanted.data(), record.name, record.name_length) == 0;
}

}  // namespace

Expression::Expression(const std::string& option, const std::string& text, bool ignore_case) {
    auto expression = std::make_unique<regex_t>();
    const int flags = REG_EXTENDED | REG_NOSUB | (ignore_case ? REG_ICASE : 0);
    const int failed = regcomp(expression.get(), text.c_str(), flags);
    if (failed != 0) {
        char reason[128] = {};
        regerror(failed, expression.get(), reason, sizeof reason);
        throw Failure{kUsage, option + ": '" + text + "': " + reason};
    }
    expression_.reset(expression.release());
}

bool Expression::matches(const korx_record& record) const {
    const bool has_message = (record.fields & KORX_FIELD_MESSAGE) != 0;
    const char* const text = has_message ? record.message : record.text;
    // A copy, because not every regexec leaves what is behind the end alone.
    const std::string copy(text, has_message ? record.message_length : record.length);
    regmatch_t range;
    range.rm_so = 0;
    range.rm_eo = static_cast<regoff_t>(copy.size());
    return regexec(expression_.get(), copy.c_str(), 1, &range, REG_STARTEND) == 0;
}

Filter::Filter(const FilterOptions& options)
    : since_(Time("since", options.since, Twice::kEarlier)),
      until_(Time("until", options.until, Twice::kLater)),
      process_(options.process),
      unread_(options.unread) {
    if (since_ && until_ && *since_ > *until_)
        throw Failure{kUsage, "--since '" + options.since + "' is later than --until '" +
                                  options.until + "'"};
    if (!options.level.empty())
        level_ = Level(options.level);
    if (!options.section.empty())
        section_ = Section(options.section);
    if (!options.grep.empty())
        expression_.emplace("--grep", options.grep, options.ignore_case);
}

bool Filter::selects_all() const {
    return !since_ && !until_ && level_ == 0 && !expression_ && section_.empty() &&
           process_.empty() && !unread_;
}

bool Filter::matches(const korx_record& record) const {
    if (unread_ && (record.flags & KORX_RECORD_UNREAD) == 0)
        return false;
    if (since_ || until_) {
        if ((record.fields & KORX_FIELD_TIME) == 0)
            return false;
        const int64_t time = Microseconds(record.time);
        if ((since_ && time < *since_) || (until_ && time > *until_))
            return false;
    }
    if (level_ > 0 && ((record.fields & KORX_FIELD_LEVEL) == 0 || record.level < level_))
        return false;
    if (!section_.empty() && (record.kind != KORX_LOG_START || !SameName(section_, record)))
        return false;
    if (!process_.empty() && (record.kind != KORX_LOG_PROCESS || !SameName(process_, record)))
        return false;
    return !expression_ || expression_->matches(record);
}

}  // namespace korx::tool
