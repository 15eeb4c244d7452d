#include "support/faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

namespace korx::test {
namespace {

struct Range {
    uintptr_t begin;
    uintptr_t end;

    bool contains(const void* address) const {
        const auto value = reinterpret_cast<uintptr_t>(address);
        return begin <= value && value < end;
    }
};

// The code whose calls count: this program and libkorx_basic. [1] stays empty without the library.
Range g_ranges[2];

int AddRange(dl_phdr_info* info, size_t, void* first_call) {
    bool& is_program = *static_cast<bool*>(first_call);  // the program itself always comes first
    const bool is_library = strstr(info->dlpi_name, "libkorx_basic.so") != nullptr;
    if (is_program || is_library) {
        Range range = {UINTPTR_MAX, 0};
        for (int i = 0; i < info->dlpi_phnum; ++i) {
            const ElfW(Phdr)& segment = info->dlpi_phdr[i];
            const uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
            if (segment.p_type != PT_LOAD)
                continue;
            range.begin = begin < range.begin ? begin : range.begin;
            range.end = begin + segment.p_memsz > range.end ? begin + segment.p_memsz : range.end;
        }
        g_ranges[is_program ? 0 : 1] = range;
    }
    is_program = false;
    return 0;
}

void FindRanges() {
    bool first_call = true;
    dl_iterate_phdr(AddRange, &first_call);
}

bool IsCounted(const void* caller) {
    return g_ranges[0].contains(caller) || g_ranges[1].contains(caller);
}

[[gnu::tls_model("initial-exec")]] thread_local unsigned untapped_depth = 0;
std::mutex g_arming;

}  // namespace

class FaultTable {
  public:
    static constexpr size_t kSlots = 16;

    static void Arm(Fault* fault) {
        const std::lock_guard lock(g_arming);
        for (auto& slot : slots_) {
            if (slot == nullptr) {
                slot = fault;
                ++armed_;
                return;
            }
        }
        fprintf(stderr, "Fault: more than %zu at a time\n", kSlots);
        abort();
    }

    static void Disarm(Fault* fault) {
        const std::lock_guard lock(g_arming);
        for (auto& slot : slots_) {
            if (slot == fault) {
                slot = nullptr;
                --armed_;
            }
        }
    }

    // What becomes of a call: true makes it fail, with errno set.
    static bool Decide(const char* name, const void* caller, size_t* bytes) {
        if (armed_ == 0 || untapped_depth != 0 || !IsCounted(caller))
            return false;
        int error = 0;
        for (auto& slot : slots_) {
            Fault* const fault = slot;
            if (fault != nullptr && Matches(fault->name_, name) && Strikes(fault))
                Apply(*fault, bytes, &error);
        }
        if (error != 0)
            errno = error;
        return error != 0;
    }

  private:
    static bool Matches(const char* wanted, const char* name) {
        if (strcmp(wanted, "*") == 0)
            return strcmp(name, "malloc") != 0;
        return strcmp(wanted, name) == 0;
    }

    static bool Strikes(Fault* fault) {
        const unsigned call = ++fault->calls_;
        const bool strikes = call >= fault->nth_ &&
                             (fault->count_ < 0 || call - fault->nth_ < unsigned(fault->count_));
        fault->hits_ += strikes;
        return strikes;
    }

    static void Apply(const Fault& fault, size_t* bytes, int* error) {
        switch (fault.action_) {
            case Fault::Action::kFail:
                *error = fault.error_;
                break;
            case Fault::Action::kKill:
                _exit(Fault::kKilled);
            case Fault::Action::kShorten:
                if (bytes != nullptr && *bytes > fault.bytes_)
                    *bytes = fault.bytes_;
                break;
            case Fault::Action::kCount:
                break;
        }
    }

    static constinit std::atomic<Fault*> slots_[kSlots];
    static constinit std::atomic<unsigned> armed_;
};

constinit std::atomic<Fault*> FaultTable::slots_[kSlots] = {};
constinit std::atomic<unsigned> FaultTable::armed_{0};

Fault::Fault(const char* name, unsigned nth, Action action, int error, size_t bytes, int count)
    : name_(name), nth_(nth), action_(action), error_(error), bytes_(bytes), count_(count) {
    FindRanges();
    // A tap is a function that this program defines in place of libc; any other name would make a
    // test that waits for a failure that never comes.
    if (strcmp(name, "*") != 0 && !g_ranges[0].contains(dlsym(RTLD_DEFAULT, name))) {
        fprintf(stderr, "Fault: there is no tap for \"%s\" in tests/support/taps.c\n", name);
        abort();
    }
    FaultTable::Arm(this);
}

Fault::~Fault() {
    FaultTable::Disarm(this);
}

Untapped::Untapped() {
    ++untapped_depth;
}

Untapped::~Untapped() {
    --untapped_depth;
}

}  // namespace korx::test

extern "C" int KorxTap(const char* name, const void* caller, size_t* bytes) {
    return korx::test::FaultTable::Decide(name, caller, bytes) ? 1 : 0;
}
