#pragma once

#include "agentClock.h"

namespace sim {

/// A clock whose seconds, and so all waits, pass `speed` times faster than those of the world.
class SimClock final : public AgentClock {
  public:
    explicit SimClock(double speed_) noexcept;

    std::chrono::milliseconds monotonic() noexcept override;
    int waitForSignal(unsigned seconds, const sigset_t& mask) noexcept override;
    int waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                         unsigned seconds) noexcept override;
    void pause(std::chrono::milliseconds span) noexcept override { sleep(span); }
    void alarm(unsigned seconds) noexcept override;

    /// False when a signal cut it short.
    bool sleep(std::chrono::microseconds span) const noexcept;

  private:
    /// `span` of this clock in the world's time.
    std::chrono::nanoseconds real(std::chrono::duration<double> span) const noexcept;

    const double speed;
    const std::chrono::steady_clock::time_point start;
};

} // namespace sim
