#pragma once

#include <array>
#include <atomic>

/// What the library failing_host does to the agent that it is preloaded to, and what it counts
/// there. Test and agent, with the daemon that it starts, share it through the file that
/// TAV_HOST_FAULTS names.
struct HostFaults {
    /// Kinds of calls are the system calls' numbers, and malloc, calloc and realloc together.
    static constexpr unsigned allocation = 511;
    static constexpr unsigned kinds = 512;

    bool foreground = false; ///< the agent's run mode
    unsigned kind = 0;
    int error = 0;      ///< what calls of that kind fail with: an errno value,
    unsigned first = 0; ///< from this one on, counted from 1,
    unsigned last = 0;  ///< to this one

    std::array<std::atomic<unsigned>, kinds> calls{}; ///< so far, of each kind
    std::atomic<unsigned> waits{0};                   ///< of the cycle
};
