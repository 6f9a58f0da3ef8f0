#pragma once

#include "agentClock.h"

#include <atomic>
#include <optional>

namespace sim {

/// The clock of an agent whose conversation is replayed: it shows the record's time, and nobody
/// waits. Whoever does the agent's work moves it on: the exchanges to where they were recorded, the
/// waits between two passes by their length, or a little further when the machine was too busy to
/// wake the agent in time. Whether a heartbeat comes in a wait or behind it is the record's to say.
class ReplayClock final : public AgentClock {
  public:
    /// The exchange that the record has next.
    struct Upcoming {
        std::chrono::milliseconds at; ///< the record's time
        bool heartbeat;               ///< begins what SIGALRM does
    };

    /// Shows `start_` when the record begins.
    explicit ReplayClock(std::chrono::milliseconds start_) noexcept : start(start_) {}

    std::chrono::milliseconds monotonic() noexcept override { return now; }
    /// A wait that lets SIGALRM in is that of a daemon's cycle; others are the foreground's entry,
    /// which waits for real while its thread does the work.
    int waitForSignal(unsigned seconds, const sigset_t& mask) noexcept override;
    int waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                         unsigned seconds) noexcept override;
    void pause(std::chrono::milliseconds span) noexcept override { pass(span); }
    void alarm(unsigned seconds) noexcept override;

    void pass(std::chrono::milliseconds span) noexcept { advanceTo(now.load() + span); }
    /// To a time of the record's; never back.
    void advanceToRecorded(std::chrono::milliseconds time) noexcept { advanceTo(start + time); }
    /// What a wait that begins now is followed by; nothing when that is not known.
    void expect(std::optional<Upcoming> next) noexcept { upcoming = next; }
    /// The agent is told to end, as by a termination signal. From now on the foreground's thread
    /// waits until its entry has noticed.
    void end() noexcept;

  private:
    void advanceTo(std::chrono::milliseconds time) noexcept;
    void passWait(std::chrono::milliseconds span) noexcept;
    void passDaemonsWait(std::chrono::milliseconds span) noexcept;

    static constexpr std::chrono::milliseconds never = std::chrono::milliseconds::max();

    const std::chrono::milliseconds start;
    std::atomic<std::chrono::milliseconds> now{start};
    std::atomic<std::chrono::milliseconds> alarmAt{never};
    std::atomic<bool> ending{false};
    std::optional<Upcoming> upcoming; // of whoever does the agent's work
};

} // namespace sim
