#pragma once

#include <chrono>

#include <sys/time.h>

namespace sim {

/// The one node that the devices of simulations have.
inline constexpr const char* node = "/dev/ipmi0";
/// Of the descriptors that they make up: above what a process normally has open, so that a mix-up
/// with a real one shows.
inline constexpr int lowestDescriptor = 100;

/// What is left of a wait.
constexpr std::chrono::microseconds spanOf(const timeval& budget) {
    return std::chrono::seconds(budget.tv_sec) + std::chrono::microseconds(budget.tv_usec);
}

constexpr timeval toTimeval(std::chrono::microseconds span) {
    constexpr std::chrono::microseconds::rep second = 1'000'000;
    return {span.count() / second, span.count() % second};
}

} // namespace sim
