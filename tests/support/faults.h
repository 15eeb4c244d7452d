// Scripted failures of libc calls: "the 2nd ftruncate from now on fails with ENOSPC".
//
// The test program defines the calls itself (taps.c), so the library carries no seams for tests.
// Counted are the calls that the library and the test program make directly, in every thread; what
// libstdc++ or libc call inside themselves passes, and so does everything under an Untapped. A rule
// lasts as long as its object and is inherited by forked children. A name without a tap aborts.
//
// The name "*" stands for any tapped call that may fail and talks to the kernel, that is all but
// malloc, realloc, sigaction and vsyslog.
#pragma once

#include <stddef.h>

#include <atomic>
#include <functional>
#include <utility>

namespace korx::test {

class Fault {
  public:
    static constexpr int kAll = -1;

    // The nth call (1 is the next one) fails with the errno value, and so do the calls after it up
    // to count in a row. A failing close or fclose closes nevertheless, as on Linux.
    Fault(const char* name, unsigned nth, int error, int count = 1)
        : Fault(name, nth, Action::kFail, error, 0, count) {}

    // The nth call never happens: the process ends there with status kKilled, as by a power cut.
    static constexpr int kKilled = 99;
    [[nodiscard]] static Fault Kill(const char* name, unsigned nth) {
        return Fault(name, nth, Action::kKill, 0, 0, 1);
    }

    // The nth read, write or sendfile moves at most bytes, and the nth usleep lasts no longer; of a
    // readdir that may tell no byte the entry's type stays unknown.
    [[nodiscard]] static Fault Short(const char* name, unsigned nth, size_t bytes, int count = 1) {
        return Fault(name, nth, Action::kShorten, 0, bytes, count);
    }

    // Right before the nth call, or count in a row, somebody else does something, and it goes on as
    // if nothing had been.
    [[nodiscard]] static Fault Meanwhile(const char* name, unsigned nth,
                                         std::function<void()> something, int count = 1) {
        return Fault(name, nth, std::move(something), count);
    }

    ~Fault();
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

    // Calls seen so far, and how many of them were made to fail.
    unsigned calls() const { return calls_; }
    unsigned hits() const { return hits_; }
    // The bytes that the calls were about, or the microseconds of usleep, together.
    size_t asked() const { return asked_; }

    // What becomes of a call: true makes it fail, with errno set.
    static bool Decide(const char* name, const void* caller, size_t* bytes);

  protected:
    enum class Action { kFail, kKill, kShorten, kMeanwhile, kCount };
    Fault(const char* name, unsigned nth, Action action, int error, size_t bytes, int count);

  private:
    Fault(const char* name, unsigned nth, std::function<void()> meanwhile, int count)
        : Fault(name, nth, Action::kMeanwhile, 0, 0, count) {
        meanwhile_ = std::move(meanwhile);
    }
    bool Strikes(const char* name, const size_t* bytes);
    void Apply(size_t* bytes, int* error) const;

    const char* const name_;
    const unsigned nth_;
    const Action action_;
    const int error_;
    const size_t bytes_;
    const int count_;
    std::function<void()> meanwhile_;
    std::atomic<unsigned> calls_{0};
    std::atomic<unsigned> hits_{0};
    std::atomic<size_t> asked_{0};
};

// Counts the calls of a function, or of any with "*".
class CallCount : private Fault {
  public:
    explicit CallCount(const char* name) : Fault(name, 1, Action::kCount, 0, 0, kAll) {}
    unsigned value() const { return calls(); }
    using Fault::asked;
};

// Calls of this thread pass uncounted while it lasts.
class Untapped {
  public:
    Untapped();
    ~Untapped();
    Untapped(const Untapped&) = delete;
    Untapped& operator=(const Untapped&) = delete;
};

}  // namespace korx::test
