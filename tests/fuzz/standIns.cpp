#include "standIns.h"

#include "sysLog.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

void require(bool fulfilled, const char* what) {
    if (!fulfilled) {
        static_cast<void>(std::fprintf(stderr, "find: %s\n", what));
        std::abort();
    }
}

void sysLog(int /*priority*/, const char* /*format*/, ...) noexcept {}

extern "C" {

/// Freed memory is soon used again, and who had it is known by one function only: for speed.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
const char* __asan_default_options() {
    return "quarantine_size_mb=8:malloc_context_size=1";
}

int pthread_sigmask(int /*how*/, const sigset_t* /*set*/, sigset_t* before) noexcept {
    return before == nullptr ? 0 : sigemptyset(before);
}

} // extern "C"
