#pragma once

#include "agentClock.h"
#include "hostFiles.h"
#include "machine.h"
#include "simDevice.h"

#include <functional>
#include <vector>

/// A clock that stands still until somebody waits; every wait is over at once.
class FakeClock final : public AgentClock {
  public:
    std::chrono::milliseconds monotonic() noexcept override { return now; }
    int waitForSignal(unsigned seconds, const sigset_t& mask) noexcept override;
    int waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                         unsigned seconds) noexcept override;
    void pause(std::chrono::milliseconds span) noexcept override { onPause(span); }
    void alarm(unsigned seconds) noexcept override { alarms.push_back(seconds); }

    void pass(std::chrono::microseconds span) {
        now += std::chrono::duration_cast<std::chrono::milliseconds>(span);
    }

    /// Goes on from test to test, as what the agent keeps for the process does.
    static std::chrono::milliseconds now;
    std::vector<unsigned> alarms;
    std::vector<unsigned> waits;
    /// Called in each wait on a condition; gives its result, but after 0 the wait is a real one.
    std::function<int()> onWait = [] { return 0; };
    std::function<void(std::chrono::milliseconds)> onPause = [this](auto span) { pass(span); };
};

/// What the agent's seams lead to as long as one lives: a fake clock, a simulated BMC behind a
/// simulated device, and no files. An hour passes behind it, so that nothing that the agent keeps
/// for the process counts in the next one.
class World {
  public:
    World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    FakeClock clock;
    sim::Bmc bmc;
    sim::SimDevice device;
    sim::HostFiles paths;
    // What the agent gets, if a test does not put something in between:
    IpmiDevice* agentsDevice = &device;
    AgentClock* agentsClock = &clock;
};

/// What uname(2) says of the kernel's name; the real one if null, and nothing if it is empty.
extern const char* kernelName;
