#include "watchdogTimer.h"

#include <utility>

namespace sim {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds countPeriod(100);
constexpr unsigned countsPerSecond = 10;
constexpr std::size_t setLength = 6;
constexpr unsigned char dontStop = 0x40;

bool fieldsAreValid(Data request) {
    const unsigned use = request[0] & 7U;
    const unsigned action = request[1] & 7U;
    const unsigned interrupt = request[1] >> 4U & 7U;
    const bool reservedBits =
        (request[0] & 0x38U) != 0 || (request[1] & 0x88U) != 0 || (request[3] & 0xC1U) != 0;
    return use >= 1 && use <= 5 && action <= 3 && interrupt <= 3 && !reservedBits;
}

unsigned char low(std::uint16_t value) {
    return static_cast<unsigned char>(value & 0xFFU);
}
unsigned char high(std::uint16_t value) {
    return static_cast<unsigned char>(value >> 8U);
}

bool preTimeoutReached(const WatchdogState& state) {
    return state.running && state.preTimeoutInterrupt != 0 &&
           state.presentCountdown <= state.preTimeoutInterval * countsPerSecond;
}

} // namespace

WatchdogTimer::WatchdogTimer(Now now_) : now(std::move(now_)) {}

WatchdogState WatchdogTimer::state() const {
    WatchdogState seen = last;
    if (!seen.running) {
        return seen;
    }
    const milliseconds left = expiresAt - now();
    if (left > milliseconds::zero()) {
        seen.presentCountdown =
            static_cast<std::uint16_t>((left + countPeriod - milliseconds(1)) / countPeriod);
    } else {
        seen.presentCountdown = 0;
        seen.running = false;
        seen.expirationFlags |= static_cast<unsigned char>(1U << seen.use);
    }
    return seen;
}

Reply WatchdogTimer::set(Data request) {
    if (request.size() != setLength) {
        return {completion::requestLengthInvalid};
    }
    if (!fieldsAreValid(request)) {
        return {completion::invalidDataField};
    }
    last = state();
    last.initialised = true;
    last.noLog = (request[0] & 0x80U) != 0;
    last.use = request[0] & 7U;
    last.action = request[1] & 7U;
    last.preTimeoutInterrupt = request[1] >> 4U & 7U;
    last.preTimeoutInterval = request[2];
    last.expirationFlags &= static_cast<unsigned char>(~request[3]);
    last.initialCountdown = static_cast<std::uint16_t>(request[4] | request[5] << 8);
    const bool goesOn = last.running && (request[0] & dontStop) != 0;
    startCountdown();
    last.running = goesOn;
    return {completion::success};
}

Reply WatchdogTimer::get(Data request) const {
    if (!request.empty()) {
        return {completion::requestLengthInvalid};
    }
    const WatchdogState seen = state();
    const unsigned use = seen.use | (seen.running ? 0x40U : 0U) | (seen.noLog ? 0x80U : 0U);
    const unsigned actions = seen.action | static_cast<unsigned>(seen.preTimeoutInterrupt) << 4U;
    return {completion::success,
            {static_cast<unsigned char>(use), static_cast<unsigned char>(actions),
             seen.preTimeoutInterval, seen.expirationFlags, low(seen.initialCountdown),
             high(seen.initialCountdown), low(seen.presentCountdown), high(seen.presentCountdown)}};
}

Reply WatchdogTimer::reset(Data request) {
    if (!request.empty()) {
        return {completion::requestLengthInvalid};
    }
    last = state();
    if (!last.initialised) {
        return {completion::timerNotInitialised};
    }
    // Once the pre-timeout interrupt has been given, only Set can keep the timer from expiring.
    if (!preTimeoutReached(last)) {
        startCountdown();
    }
    return {completion::success};
}

void WatchdogTimer::startCountdown() {
    last.running = true;
    last.presentCountdown = last.initialCountdown;
    expiresAt = now() + last.initialCountdown * countPeriod;
}

} // namespace sim
