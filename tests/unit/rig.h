#pragma once

#include "IPv6Address.h"
#include "agentClock.h"
#include "hostFiles.h"
#include "machine.h"
#include "simDevice.h"

#include <functional>
#include <semaphore>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

/// The agent's seams for one test: a fake clock, a simulated BMC, host files in a folder of their
/// own, and all that was logged.
class Rig : public ::testing::Test {
  public:
    Rig();
    ~Rig() override;

    struct LogLine {
        int priority;
        std::string text;
        bool operator==(const LogLine&) const = default;
    };

    /// Exchanges as "netfn/cmd: request bytes" in hex, such as "06/25:" or "2e/e0: d9 7e 00 01
    /// ...".
    std::vector<std::string> requests() const;
    /// From now on this goes wrong, in the textual form of sim::parseFault(), and nothing else. The
    /// next exchange has the number 1.
    void goWrong(const std::string& fault);
    static void writeFile(const std::string& path, const std::string& content);

    FakeClock clock;
    sim::Bmc bmc;
    sim::SimDevice device;
    sim::HostFiles paths;
    /// Released when another thread logged something, and by tests that wait for another thread.
    std::counting_semaphore<> news{0};
    std::vector<sim::Exchange> exchanges;
    std::vector<LogLine> log;
};

/// What uname(2) says of the kernel's name; the real one if null, and nothing if it is empty.
extern const char* kernelName;

std::string hex(std::span<const unsigned char> bytes);

IPv6Address ipv6(const char* text);

/// Removes the test's interfaces tav0, tav1, ...
void removeInterfaces();

/// Runs `body` in a process of its own with the agent's signals held back, for what they change
/// there; its failures are those of the test.
void inOwnProcess(const std::function<void()>& body);

/// Runs a shell command; the test fails when the command does.
void shell(const std::string& command);
