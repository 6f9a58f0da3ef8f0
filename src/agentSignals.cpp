#include "agentSignals.h"

#include "sysLog.h"

#include <array>
#include <atomic>

#include <pthread.h>

namespace agentSignals {
namespace {

constexpr std::array terminationSignals{SIGTERM, SIGHUP, SIGINT};
constexpr std::array otherSignals{SIGALRM, SIGUSR1, SIGCHLD};

// Not bool: a byte alone may need a lock (riscv64 with g++ 12).
std::atomic<int> endNoted{0};
static_assert(std::atomic<int>::is_always_lock_free, "handlers write it");

sigset_t agentSet() noexcept {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : terminationSignals) {
        sigaddset(&set, signal);
    }
    for (const int signal : otherSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

} // namespace

void hold() noexcept {
    const sigset_t set = agentSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Hold::Hold() noexcept {
    const sigset_t set = agentSet();
    pthread_sigmask(SIG_BLOCK, &set, &before);
}

Hold::~Hold() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

sigset_t maskLettingIn(std::initializer_list<int> signals) noexcept {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int signal : signals) {
        sigdelset(&mask, signal);
    }
    return mask;
}

void letIn(std::initializer_list<int> signals) noexcept {
    const sigset_t mask = maskLettingIn(signals);
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, &mask, &before);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void drop(int signal) noexcept {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    constexpr timespec noWait{};
    sigtimedwait(&set, nullptr, &noWait);
}

bool install(void (*handler)(int), std::initializer_list<int> signals) noexcept {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    for (const int signal : signals) {
        if (sigaction(signal, &action, nullptr) != 0) {
            sysLogFailure("unable to install signal handler");
            return false;
        }
    }
    return true;
}

void noteEnd() noexcept {
    endNoted = 1;
}

bool endRequested() noexcept {
    if (endNoted != 0) {
        return true;
    }
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    for (const int signal : terminationSignals) {
        if (sigismember(&pending, signal) == 1) {
            return true;
        }
    }
    return false;
}

} // namespace agentSignals
