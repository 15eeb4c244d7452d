// Every call that can fail is made to fail, in its turn and in every way, under one scenario after
// another; before each the process is killed, too, and names are exchanged for links to outside.
#pragma once

#include <stdint.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace korx::test {

constexpr uint32_t kFailed = 0x0FFFFFFF;

// What a call does not promise. Each is a rule of its contract.
enum Excuse : unsigned {
    kNone = 0,
    kSilent = 1 << 0,       // it may fail without a line
    kUntold = 1 << 1,       // it has no result for it, or answers 0 where only a line tells
    kLoses = 1 << 2,        // what it was about to replace or remove may be gone
    kShortCounts = 1 << 3,  // a short write counts as a whole one
    kOwnRights = 1 << 4,    // where rights cannot be read, the new file is its owner's
    kForgets = 1 << 5,      // where a log's length cannot be read, its older lines are gone
    kAbandons = 1 << 6,     // an open log that cannot be examined may be somebody else's: it stays
};

struct Scenario {
    const char* name;
    void (*prepare)();                        // makes what there is, in an empty working directory
    uint32_t (*call)();                       // what is tried
    std::set<uint32_t> failures = {kFailed};  // its documented codes for calls that fail
    unsigned excuses = kNone;
    std::set<std::string> leftovers = {};  // names that a failure may leave until the next call
    std::vector<std::string> swapped =
        {};  // names that must not be followed when they become links
};

// To this a call adds what it has read for its caller. Where it must not follow a name, nothing
// from outside may be there.
std::string& Returned();

inline void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

// In each trial: no crash, a documented code, a line for a failure, nothing left open or locked,
// each file the old or the new one and with success the new one, and the next call works as ever.
void Torture(const Scenario& scenario);

}  // namespace korx::test
