#pragma once

#include "IPv6Address.h"
#include "faultOptions.h"
#include "sysLog.h"
#include "world.h"

#include <functional>
#include <semaphore>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// A world for one test, with host files in a folder of their own, and all that was logged.
class Rig : public ::testing::Test, public World {
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
    /// Stores a variable of the BMC's configuration space that is given as text: "enabled".
    void setVariable(std::uint16_t id, const std::string& text);
    /// Makes the BMC and the host's tables those of this machine.
    void become(const char* machine);
    static void writeFile(const std::string& path, const std::string& content);

    /// Released when another thread logged something, and by tests that wait for another thread.
    std::counting_semaphore<> news{0};
    std::vector<sim::Exchange> exchanges;
    std::vector<LogLine> log;
};

/// The text of the error that `work` ends with; empty when there is none.
std::string errorOf(const std::function<void()>& work);

/// A line of the log: an error with this text in it.
inline auto errorWith(const std::string& text) {
    return testing::AllOf(testing::Field(&Rig::LogLine::priority, LOG_ERR),
                          testing::Field(&Rig::LogLine::text, testing::HasSubstr(text)));
}

std::string hex(std::span<const unsigned char> bytes);

IPv6Address ipv6(const char* text);

/// Interfaces tav1, tav2, ... of 10.0.N.1, numbered from `first` to `last`.
void addInterfaces(int last, int first = 1);

/// Removes the test's interfaces tav0, tav1, ...
void removeInterfaces();

/// Runs `body` in a process of its own with the agent's signals held back, for what they change
/// there; its failures are those of the test.
void inOwnProcess(const std::function<void()>& body);

/// Runs a shell command; the test fails when the command does.
void shell(const std::string& command);
