// What all processes of the soak share: which calls have begun and ended, and in which order. A
// ticket is drawn before and after each call, so a record whose call began after another one's had
// ended must stand behind it.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>
#include <string_view>

namespace soak {

enum Log { kText, kDiag, kSecurity, kLife, kStart, kProcess, kLogs };

constexpr unsigned kProcesses = 8;
constexpr unsigned kThreads = 4;
constexpr unsigned kSlots = kThreads + 1;  // the last is for forked children
constexpr unsigned kWriters = kProcesses * kSlots;
constexpr unsigned kMostCalls = 1u << 14;  // of a writer into one log, in a round
constexpr uint32_t kRingLimit = 12000;

enum class Outcome : uint32_t { kNone, kAccepted, kRefused, kFailed };

struct Call {
    std::atomic<uint32_t> begun, ended;
    std::atomic<Outcome> outcome;
    // A call whose process was killed in it has not ended: nothing is known of its record.
    bool was_accepted(uint32_t since, uint32_t until) const {
        return outcome == Outcome::kAccepted && begun > since && ended != 0 && ended < until;
    }
};

enum class Round { kCalm, kKills, kRemovals };

struct Shared {
    Round round;
    char kept[64];  // the directory for logs that were wrong
    std::atomic<bool> stops;
    std::atomic<uint32_t> tickets;
    std::atomic<uint32_t> disturbed;           // the ticket behind the last removal
    std::atomic<uint32_t> hidden_laps[kLogs];  // the writer came to stand where the reader stands
    std::atomic<uint64_t> bytes[kLogs];
    std::atomic<uint32_t> errors;
    std::atomic<uint32_t> drawn[kLogs][kWriters];
    Call calls[kLogs][kWriters][kMostCalls];
};
extern Shared* g_shared;

struct Name {
    unsigned log, writer, number;
    Call& call() const { return g_shared->calls[log][writer][number]; }
};

// The whole message follows from its name, so that a torn one is known.
std::string MessageOf(const Name& name);
bool ParseMessage(std::string_view message, Name* name);

// Says what is wrong; the soak has then failed.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Who hangs in a call keeps the soak from its end. Once the soak has noted nothing for half a
// minute all threads below it say where they are, and it ends.
void WatchForHangs();
void NoteProgress();

// The process has at most so many more descriptors at its end than it had.
class Descriptors {
  public:
    void judge(const char* whose, size_t more) const;

  private:
    static size_t count();
    const size_t before_ = count();
};

const char* FileOf(unsigned log);  // in the log directory; that of a process: "%s.log"
extern const char* const kProcessNames[5];

// A process that logs until the round stops or it is killed.
[[noreturn]] void RunWriter(unsigned process, unsigned seed);

// The processes that take the records of the protected rings.
[[noreturn]] void RunTaker();
[[noreturn]] void RunCommand(const char* korx, unsigned seed);
// Watches the rings' heads.
[[noreturn]] void RunSampler();
void TakeRest();

// What stands in the logs now; what has been taken in the round.
void JudgeWindows();
void JudgeTaken();
void JudgePlaces();
// A process is about to be started, for the first time or anew.
void NoteStart(unsigned process);

}  // namespace soak
