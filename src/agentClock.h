#pragma once

#include <chrono>
#include <csignal>
#include <ctime>

#include <pthread.h>

/// The passing of time, as the agent lives it: reading it, waiting for it, being woken by it. One
/// of the agent's three seams to the outside; nothing here throws.
class AgentClock {
  public:
    AgentClock() = default;
    AgentClock(const AgentClock&) = delete;
    AgentClock& operator=(const AgentClock&) = delete;
    virtual ~AgentClock() = default;

    /// Time since some fixed moment; never set back. For measuring spans.
    virtual std::chrono::milliseconds monotonic() noexcept = 0;
    /// Waits at most `seconds` with `mask` as the thread's signal mask, atomically as ppoll(2)
    /// does: a signal already pending ends the wait at once, and none is lost in between. Returns
    /// 0, or the errno value of a wait that is not possible.
    virtual int waitForSignal(unsigned seconds, const sigset_t& mask) noexcept = 0;
    /// pthread_cond_clockwait(3) for at most `seconds` of the monotonic clock: whoever sets the
    /// wall clock does not change the wait. Returns its result (ETIMEDOUT when nobody signalled).
    virtual int waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                                 unsigned seconds) noexcept = 0;
    /// clock_nanosleep(2) on the monotonic clock, as short as it may turn out: whoever waits for
    /// something counts its tries.
    virtual void pause(std::chrono::milliseconds span) noexcept = 0;
    /// alarm(2): SIGALRM after `seconds`; 0 cancels a pending one.
    virtual void alarm(unsigned seconds) noexcept = 0;
};

/// The clock of this program. Exactly one definition is linked in.
AgentClock& agentClock() noexcept;

/// Whole seconds of `monotonic`, for periods.
inline std::time_t monotonicSeconds() noexcept {
    return std::chrono::duration_cast<std::chrono::seconds>(agentClock().monotonic()).count();
}
