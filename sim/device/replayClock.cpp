#include "replayClock.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace sim {

namespace {

using std::chrono::milliseconds;

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
        passDaemonsWait(span);
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
        passWait(std::chrono::seconds(seconds));
    }
    return ::pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &deadline);
}

/// Up to the next exchange, if that comes before another wait would be over.
void ReplayClock::passWait(milliseconds span) noexcept {
    const milliseconds end = now.load() + span;
    const milliseconds next = upcoming ? start + upcoming->at : end;
    now = next < end + span ? std::max(end, next) : end;
}

/// The signal ends the wait. It cannot be told from the times alone whether it came in time: alarm
/// and wait may have been over together when the agent woke late.
void ReplayClock::passDaemonsWait(milliseconds span) noexcept {
    if (!upcoming) {
        advanceTo(std::min(now.load() + span, alarmAt.load()));
    } else if (upcoming->heartbeat) {
        advanceTo(start + upcoming->at);
        if (alarmAt.load() != never) { // here it is later, by milliseconds
            advanceTo(alarmAt);
        }
    } else {
        passWait(span);
    }
}

void ReplayClock::alarm(unsigned seconds) noexcept {
    alarmAt = seconds == 0 ? never : now.load() + std::chrono::seconds(seconds);
}

void ReplayClock::advanceTo(milliseconds time) noexcept {
    now = std::max(now.load(), time);
    if (now.load() >= alarmAt.load()) {
        alarmAt = never;
        ::kill(::getpid(), SIGALRM);
    }
}

void ReplayClock::end() noexcept {
    ending = true;
    ::kill(::getpid(), SIGTERM);
}

} // namespace sim
