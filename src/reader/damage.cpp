#include "reader/damage.h"

#include <algorithm>
#include <iterator>

#include "base/arguments.h"
#include "base/bounded.h"

namespace korx {
namespace {

// By rule; there is no rule 0.
constexpr const char* kRuleNames[] = {nullptr,         "head-short", "head-length",  "head-order",
                                      "dump-position", "header",     "separator",    "not-a-record",
                                      "stamp",         "fields",     "unterminated", "too-long",
                                      "zeros",         "cut",        "uncommitted",  "cursor"};
static_assert(std::size(kRuleNames) == KORX_DAMAGE_CURSOR + 1, "the last rule has the last name");

}  // namespace

void DamageList::add(const korx_damage& damage, const char* format, va_list args) {
    ++count_;
    if (list_.size() >= kMaxDamage)
        return;
    korx_damage entry = damage;
    (void) vsnprintf_s(entry.text, sizeof entry.text, sizeof entry.text - 1, format, args);
    list_.push(entry);
}

void DamageList::report(korx_damage_rule rule, uint64_t offset, uint64_t length, const char* format,
                        ...) {
    Arguments args;
    va_start(args.list, format);
    add({.rule = rule, .in_header = 0, .offset = offset, .length = length, .text = {}}, format,
        args.list);
}

void DamageList::report_beside(korx_damage_rule rule, uint64_t offset, uint64_t length,
                               const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    add({.rule = rule, .in_header = 1, .offset = offset, .length = length, .text = {}}, format,
        args.list);
}

size_t DamageList::withdraw(size_t first, uint64_t offset) {
    korx_damage* const begin = list_.begin() + std::min(first, list_.size());
    korx_damage* const kept = std::remove_if(begin, list_.end(), [=](const korx_damage& entry) {
        return entry.in_header == 0 && entry.offset + entry.length > offset;
    });
    const auto count = static_cast<size_t>(list_.end() - kept);
    list_.truncate(list_.size() - count);
    count_ -= count;
    return count;
}

const char* DamageName(korx_damage_rule rule) {
    const bool known = rule > 0 && static_cast<size_t>(rule) < std::size(kRuleNames);
    return known ? kRuleNames[rule] : nullptr;
}

}  // namespace korx
