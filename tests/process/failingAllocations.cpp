// Preloaded under the real agent: an allocation fails, and the end comes at a certain exchange.
//   TAV_FAIL=N or N+        the N-th allocation fails, alone or with all that follow
//   TAV_FAILED=FILE         is made when one does
//   TAV_END_AT=N            SIGTERM at the N-th exchange

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): glibc's names
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

std::atomic<long> allocations{0};
std::atomic<long> exchanges{0};

bool fails() noexcept {
    const long now = ++allocations;
    const char* const wanted = std::getenv("TAV_FAIL");
    if (wanted == nullptr) {
        return false;
    }
    char* end = nullptr;
    const long first = std::strtol(wanted, &end, 10);
    if (*end == '+' ? now < first : now != first) {
        return false;
    }
    ::close(::open(std::getenv("TAV_FAILED"), O_CREAT | O_WRONLY, 0600));
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) noexcept {
    return fails() ? nullptr : __libc_calloc(number, size);
}

void* realloc(void* block, std::size_t size) noexcept {
    return fails() ? nullptr : __libc_realloc(block, size);
}

/// The device behind this one answers at once.
int select(int number, fd_set* readable, fd_set* writable, fd_set* other, timeval* budget) {
    const char* const last = std::getenv("TAV_END_AT");
    if (last != nullptr && ++exchanges == std::strtol(last, nullptr, 10)) {
        ::syscall(SYS_tgkill, ::getpid(), ::getpid(), SIGTERM);
    }
    using Select = decltype(&::select);
    static const auto next = reinterpret_cast<Select>(::dlsym(RTLD_NEXT, "select"));
    return next(number, readable, writable, other, budget);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
