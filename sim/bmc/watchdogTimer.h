#pragma once

#include "ipmiMessage.h"

#include <cstdint>

namespace sim {

/// What can be seen of a watchdog timer at one moment. Field values are those of the wire;
/// countdowns are in 100 ms counts.
struct WatchdogState {
    bool initialised = false; // by a first Set
    bool running = false;
    bool noLog = false;
    unsigned char use = 0;
    unsigned char action = 0;
    unsigned char preTimeoutInterrupt = 0;
    unsigned char preTimeoutInterval = 0; // seconds
    unsigned char expirationFlags = 0;
    std::uint16_t initialCountdown = 0;
    std::uint16_t presentCountdown = 0;
};

/// The watchdog timer of IPMI 2.0, chapter 27.
class WatchdogTimer {
  public:
    explicit WatchdogTimer(Now now_);

    Reply set(Data request);
    Reply get(Data request) const;
    Reply reset(Data request);

    /// As of now: a countdown that has run out in the meantime is expired in it.
    WatchdogState state() const;

  private:
    void startCountdown();

    Now now;
    WatchdogState last; // as of the last Set or Reset
    std::chrono::milliseconds expiresAt{};
};

} // namespace sim
