#include "replayClock.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace sim {

namespace {

int waitFor(std::chrono::seconds span, const sigset_t& mask) noexcept {
    const timespec timeout{span.count(), 0};
    return ::ppoll(nullptr, 0, &timeout, &mask) == -1 && errno != EINTR ? errno : 0;
}

} // namespace

int ReplayClock::waitForSignal(unsigned seconds, const sigset_t& mask) noexcept {
    const std::chrono::seconds span(seconds);
    if (sigismember(&mask, SIGALRM) == 1) {
        return waitFor(span, mask);
    }
    if (!ending) {
        advanceTo(std::min(now.load() + span, alarmAt.load()));
    }
    return waitFor(std::chrono::seconds(0), mask);
}

int ReplayClock::waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                                  unsigned seconds) noexcept {
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    if (ending) {
        deadline.tv_sec += static_cast<time_t>(seconds);
    } else {
        pass(std::chrono::seconds(seconds));
    }
    return ::pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &deadline);
}

void ReplayClock::alarm(unsigned seconds) noexcept {
    alarmAt = seconds == 0 ? never : now.load() + std::chrono::seconds(seconds);
}

void ReplayClock::advanceTo(std::chrono::milliseconds time) noexcept {
    if (time <= now.load()) {
        return;
    }
    now = time;
    if (time >= alarmAt.load()) {
        alarmAt = never;
        ::kill(::getpid(), SIGALRM);
    }
}

void ReplayClock::end() noexcept {
    ending = true;
    ::kill(::getpid(), SIGTERM);
}

} // namespace sim
