// A contest: several ways to do the same work, measured in turn.
//
// Only ratios say anything: machines differ, and so does the same machine an hour later. So each
// round lets every contestant run once, one after the other, and what counts is the ratio of two
// contestants in the same round. Every one runs in processes of its own, which start together, so
// that none inherits the state of another; and its work is looked at afterwards: who does nothing
// is fast.
//
// A program holds its contests and prints a line of JSON for each contestant and round;
// bench/report.py makes the table of them.
#pragma once

#include <stddef.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

// The floor is what has to be done in any case: the system calls that the effect needs, in a bare
// loop.
enum class Role { kOurs, kFloor, kPeer };

using Operation = std::function<void()>;

struct Contestant {
    std::string name;
    Role role = Role::kPeer;
    // In the worker, before the clock starts. What it returns is done again and again.
    std::function<Operation()> enter;
    // Whether so many operations left what they should have. None: the operation checks itself.
    std::function<bool(size_t operations)> is_done = {};
    // Before each round, for contestants that use things up.
    std::function<void()> lay_out = {};
};

enum class Measure { kMean, kMeanAndTail };

struct Contest {
    std::string name;
    size_t operations = 1;  // of each process in each round
    unsigned processes = 1;
    size_t size = 0;  // what its growth is a function of; 0: it is not looked at
    Measure measure = Measure::kMean;
    std::vector<Contestant> contestants = {};
};

// Reads the number of rounds from the command line: bench_x [ROUNDS [PATTERN]]. Contests whose name
// lacks the pattern are left out.
void Begin(int argc, char** argv);
void Hold(const Contest& contest);

// Ends the program: a contestant that fails must not look fast.
void Must(bool done, const char* what);
#define MUST(condition) ::bench::Must((condition), #condition)

// Folders of this program, gone when it ends: in memory, so that no disk hides what the library
// costs, and on the disk that holds the program.
const std::string& InMemory();
const std::string& OnDisk();

// Keeps the optimizer from dropping what nobody looks at.
template <typename T>
void Keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace bench
