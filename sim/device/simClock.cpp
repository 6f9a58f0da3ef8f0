#include "simClock.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/time.h>

namespace sim {

namespace {

using std::chrono::duration;
using std::chrono::nanoseconds;

timespec toTimespec(nanoseconds time) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    return {whole.count(), (time - whole).count()};
}

} // namespace

SimClock::SimClock(double speed_) noexcept :
    speed(speed_), start(std::chrono::steady_clock::now()) {}

std::chrono::milliseconds SimClock::monotonic() noexcept {
    const duration<double> passed = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(start.time_since_epoch() +
                                                                 passed * speed);
}

int SimClock::waitForSignal(unsigned seconds, const sigset_t& mask) noexcept {
    const timespec timeout = toTimespec(real(std::chrono::seconds(seconds)));
    return ::ppoll(nullptr, 0, &timeout, &mask) == -1 && errno != EINTR ? errno : 0;
}

int SimClock::waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                               unsigned seconds) noexcept {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const timespec deadline = toTimespec(now + real(std::chrono::seconds(seconds)));
    return ::pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &deadline);
}

void SimClock::alarm(unsigned seconds) noexcept {
    const auto span =
        std::chrono::duration_cast<std::chrono::microseconds>(real(std::chrono::seconds(seconds)));
    // A timer of zero would be one that is switched off.
    const auto shortest = std::chrono::microseconds(seconds == 0 ? 0 : 1);
    const timespec left = toTimespec(std::max(span, shortest));
    itimerval timer{};
    timer.it_value = {left.tv_sec, left.tv_nsec / 1000};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

bool SimClock::sleep(std::chrono::microseconds span) const noexcept {
    const timespec time = toTimespec(real(span));
    return ::nanosleep(&time, nullptr) == 0;
}

nanoseconds SimClock::real(duration<double> span) const noexcept {
    return std::chrono::duration_cast<nanoseconds>(span / speed);
}

} // namespace sim
