#pragma once

#include <csignal>
#include <mutex>

namespace sim {

/// Mutual exclusion between threads, with all signals held back meanwhile: as inside the kernel,
/// no handler runs in the middle.
class DeviceSection {
  public:
    explicit DeviceSection(std::mutex& mutex) noexcept : held(mutex) {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &outside);
        held.lock();
    }
    DeviceSection(const DeviceSection&) = delete;
    DeviceSection& operator=(const DeviceSection&) = delete;
    ~DeviceSection() {
        held.unlock();
        ::pthread_sigmask(SIG_SETMASK, &outside, nullptr);
    }

  private:
    sigset_t outside{};
    std::mutex& held;
};

} // namespace sim
