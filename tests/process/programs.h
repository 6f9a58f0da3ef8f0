#pragma once

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/types.h>

/// Until something counts as hanging, on a machine that has much else to do, too.
constexpr std::chrono::minutes patience{2};

/// A line that the system log received.
struct LogLine {
    int priority; ///< facility and level
    std::string ident;
    pid_t pid;
    std::string text;
};

/// How a process ended.
struct End {
    int status;        ///< as waitpid(2) gives it
    std::string error; ///< what it wrote to standard error
    std::chrono::milliseconds took;
    std::chrono::microseconds worked; ///< processor time, its own and the kernel's for it

    /// Exit status, or minus the signal that ended it.
    int code() const;
};

/// The real programs in a world of their own: network, /run, /dev/log. Orphans become children of
/// this process, so that daemons can be waited for.
class Programs : public ::testing::Test {
  public:
    Programs();
    ~Programs() override;

    /// Starts a program in a process group of its own; standard output goes to `trace()`.
    pid_t start(const std::vector<std::string>& command);
    /// tav_sim on host files under `root()`; `agent` are the agent's options.
    pid_t startSim(std::vector<std::string> options, const std::vector<std::string>& agent);
    /// Waits for a child to end; one that hangs fails the test and is killed.
    End await(pid_t pid);
    /// Sends the signal and waits.
    End stop(pid_t pid, int signal = SIGTERM) {
        ::kill(pid, signal);
        return await(pid);
    }
    End run(const std::vector<std::string>& command) { return await(start(command)); }
    End runSim(std::vector<std::string> options, const std::vector<std::string>& agent) {
        return await(startSim(std::move(options), agent));
    }
    /// Exit codes of all children that are left, when they have ended.
    std::vector<int> endOfChildren();
    /// Any child that is left, such as the daemon whose parent has ended.
    static std::optional<pid_t> anyChild();

    const std::string& root() const { return folder; }
    /// The number in the pid file; 0 if there is none.
    pid_t daemon() const;
    std::string pidFile() const { return folder + "/var/run/tavd.pid"; }
    /// What the simulator printed so far; of all runs of this test.
    std::string trace() const;
    void clearTrace() const;
    /// Lines of the system log since the test began.
    static std::vector<LogLine> log();
    /// The same as "LEVEL: TEXT".
    static std::vector<std::string> logTexts();
    /// Fills the log's queue, which stays so until the next look at the log.
    static void fillLog();

  private:
    std::string folder;
};

/// Whole content of a file; empty if there is none.
std::string contentOf(const std::string& path);

/// Runs a shell command that must succeed.
void shell(const std::string& command);
