// What is wrong with a log.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "korx/reader.h"
#include "reader/array.h"

namespace korx {

constexpr size_t kMaxDamage = 4096;  // more is counted, but not listed

class DamageList {
  public:
    // length bytes at offset in the log.
    [[gnu::format(printf, 5, 6)]] void report(korx_damage_rule rule, uint64_t offset,
                                              uint64_t length, const char* format, ...);
    // The same in the file beside the log: the start log's header, or the cursor.
    [[gnu::format(printf, 5, 6)]] void report_beside(korx_damage_rule rule, uint64_t offset,
                                                     uint64_t length, const char* format, ...);
    // Takes back what was reported about the log since first were listed, if it reaches beyond
    // offset. Returns how much that was.
    size_t withdraw(size_t first, uint64_t offset);

    size_t listed() const { return list_.size(); }
    const korx_damage& operator[](size_t index) const { return list_[index]; }
    uint64_t count() const { return count_; }
    bool out_of_memory() const { return list_.out_of_memory(); }

  private:
    [[gnu::format(printf, 3, 0)]] void add(const korx_damage& damage, const char* format,
                                           va_list args);

    Array<korx_damage> list_;
    uint64_t count_ = 0;
};

// Null for a number that is no rule.
const char* DamageName(korx_damage_rule rule);

}  // namespace korx
