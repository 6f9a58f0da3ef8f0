#pragma once

#include "agentClock.h"

namespace sim {

/// A clock that stands still and in which nobody waits: where only the agent's own time counts.
class StillClock final : public AgentClock {
  public:
    std::chrono::milliseconds monotonic() noexcept override { return {}; }
    int waitForSignal(unsigned /*seconds*/, const sigset_t& /*mask*/) noexcept override {
        return 0;
    }
    int waitForCondition(pthread_cond_t& /*condition*/, pthread_mutex_t& /*mutex*/,
                         unsigned /*seconds*/) noexcept override {
        return 0;
    }
    void pause(std::chrono::milliseconds /*span*/) noexcept override {}
    void alarm(unsigned /*seconds*/) noexcept override {}
};

} // namespace sim
