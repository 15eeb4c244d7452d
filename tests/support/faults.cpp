#include "support/faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <mutex>

namespace korx::test {
namespace {

// The file that the address is in: "" for the program itself, null for none.
const char* ModuleOf(const void* address) {
    dl_find_object module;
    if (_dl_find_object(const_cast<void*>(address), &module) != 0)
        return nullptr;
    return module.dlfo_link_map->l_name;
}

bool IsProgram(const char* module) {
    return module != nullptr && *module == '\0';
}

bool IsCounted(const char* module) {
    return IsProgram(module) || (module != nullptr && strstr(module, "/libkorx_") != nullptr);
}

[[noreturn]] void Die(const char* what, const char* name) {
    fprintf(stderr, "Fault of \"%s\": %s\n", name, what);
    abort();
}

[[gnu::tls_model("initial-exec")]] thread_local unsigned untapped_depth = 0;
std::mutex g_arming;
constinit std::atomic<Fault*> g_armed[16] = {};
constinit std::atomic<unsigned> g_count{0};

}  // namespace

Fault::Fault(const char* name, unsigned nth, Action action, int error, size_t bytes, int count)
    : name_(name), nth_(nth), action_(action), error_(error), bytes_(bytes), count_(count) {
    // A tap is a function that this program defines in place of libc; any other name would make a
    // test that waits for a failure that never comes.
    if (strcmp(name, "*") != 0 && !IsProgram(ModuleOf(dlsym(RTLD_DEFAULT, name))))
        Die("there is no tap for it in tests/support/taps.c", name);
    const std::lock_guard lock(g_arming);
    auto* const slot = std::find(std::begin(g_armed), std::end(g_armed), nullptr);
    if (slot == std::end(g_armed))
        Die("too many at a time", name);
    *slot = this;
    ++g_count;
}

Fault::~Fault() {
    const std::lock_guard lock(g_arming);
    *std::find(std::begin(g_armed), std::end(g_armed), this) = nullptr;
    --g_count;
}

bool Fault::Decide(const char* name, const void* caller, size_t* bytes) {
    if (g_count == 0 || untapped_depth != 0 || !IsCounted(ModuleOf(caller)))
        return false;
    int error = 0;
    for (const auto& armed : g_armed) {
        Fault* const fault = armed;
        if (fault != nullptr && fault->Strikes(name, bytes))
            fault->Apply(bytes, &error);
    }
    if (error != 0)
        errno = error;
    return error != 0;
}

bool Fault::Strikes(const char* name, const size_t* bytes) {
    constexpr const char* kApart[] = {"malloc", "realloc", "sigaction", "vsyslog"};
    const bool is_apart = std::any_of(std::begin(kApart), std::end(kApart),
                                      [=](const char* apart) { return strcmp(name, apart) == 0; });
    if (strcmp(name_, "*") == 0 ? is_apart : strcmp(name_, name) != 0)
        return false;
    const unsigned call = ++calls_;
    asked_ += bytes == nullptr ? 0 : *bytes;
    const bool strikes = call >= nth_ && (count_ < 0 || call - nth_ < unsigned(count_));
    hits_ += strikes;
    return strikes;
}

void Fault::Apply(size_t* bytes, int* error) const {
    if (action_ == Action::kKill)
        _exit(kKilled);
    if (action_ == Action::kFail)
        *error = error_;
    if (action_ == Action::kMeanwhile) {
        const Untapped untapped;
        meanwhile_();
    }
    if (action_ == Action::kShorten && bytes != nullptr)
        *bytes = std::min(*bytes, bytes_);
}

Untapped::Untapped() {
    ++untapped_depth;
}

Untapped::~Untapped() {
    --untapped_depth;
}

extern "C" void KorxExpectCloseOnExec(const char* name, const char* what, int closes,
                                      const void* caller) {
    const char* const module = ModuleOf(caller);
    if (closes || module == nullptr || IsProgram(module) || !IsCounted(module))
        return;
    fprintf(stderr, "%s of \"%s\" is not close-on-exec\n", name, what);
    abort();
}

}  // namespace korx::test

extern "C" int KorxTap(const char* name, const void* caller, size_t* bytes) {
    return korx::test::Fault::Decide(name, caller, bytes) ? 1 : 0;
}
