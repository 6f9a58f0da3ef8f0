// The real agent on a host that fails it: every allocation and every system call, once and for
// good, in every run mode. The device under it answers everything.

#include "programs.h"

#include <csignal>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr const char* realPidFile = "/var/run/tavd.pid";
/// The exchange at which the lasting modes are told to end: one of the first iteration.
constexpr const char* endingExchange = "28";

struct Mode {
    const char* option;
    std::vector<int> codes; ///< of the program that was started
    bool lasting;
};

const Mode modes[] = {
    {"-s", {0, 1}, false}, {"-t", {0, 1}, false}, {"-n", {1}, true}, {"", {0, 1}, true}};

class HostFault : public Programs {
  public:
    /// Environment and agent; `fault` is "TAV_FAIL=..." or empty.
    std::vector<std::string> agent(const Mode& mode, const std::string& fault) const {
        std::vector<std::string> command{"env",
                                         std::string("LD_PRELOAD=") + TAV_FAILING_ALLOCATIONS +
                                             ":" + TAV_ANSWERING_DEVICE,
                                         "TAV_FAILED=" + mark()};
        if (!fault.empty()) {
            command.push_back(fault);
        }
        if (mode.lasting) {
            command.push_back(std::string("TAV_END_AT=") + endingExchange);
        }
        command.emplace_back(TAV_INIT);
        if (*mode.option != '\0') {
            command.emplace_back(mode.option);
        }
        return command;
    }

    /// Runs it to its end. What has lost the thread that would come to the ending exchange is told
    /// to end from outside.
    void expectDescribedEnd(const Mode& mode, const std::vector<std::string>& command) {
        const pid_t started = start(command);
        EXPECT_THAT(mode.codes, testing::Contains(endOf(started)));
        while (const auto daemon = anyChild()) {
            EXPECT_THAT(endOf(*daemon), testing::AnyOf(0, 1)) << "daemon";
        }
        EXPECT_TRUE(::unlink(realPidFile) != 0 ||
                    testing::Matches(testing::Contains("trace=unlink"))(command))
            << "a pid file was left behind";
    }

    std::string mark() const { return root() + "/failed"; }

  private:
    int endOf(pid_t process) {
        pollfd ended{static_cast<int>(::syscall(SYS_pidfd_open, process, 0)), POLLIN, 0};
        constexpr int patience = 100; // milliseconds; what is well is over by then
        if (::poll(&ended, 1, patience) == 0) {
            ::kill(-process, SIGTERM);
            ::kill(process, SIGTERM);
        }
        ::close(ended.fd);
        return await(process).code();
    }
};

TEST_F(HostFault, everyAllocation) {
    int points = 0;
    for (const Mode& mode : modes) {
        for (const char* lasting : {"", "+"}) {
            for (int number = 1;; ++number, ++points) {
                ::unlink(mark().c_str());
                const std::string fault = "TAV_FAIL=" + std::to_string(number) + lasting;
                expectDescribedEnd(mode, agent(mode, fault));
                ASSERT_FALSE(HasFailure()) << mode.option << " " << fault;
                if (::access(mark().c_str(), F_OK) != 0) {
                    break;
                }
            }
        }
    }
    std::cout << "allocations failed: " << points << " points\n";
}

/// Calls of each kind, by the longest-lived process, and how many of them are the loader's.
struct Calls {
    int all = 0;
    int loaders = 0;
};

std::map<std::string, Calls> callsIn(const std::string& log) {
    std::map<std::string, std::map<std::string, Calls>> byProcess;
    std::set<std::string> inMain;
    std::istringstream lines(log);
    for (std::string process, call; lines >> process && std::getline(lines >> std::ws, call);) {
        const std::string name = call.substr(0, call.find('('));
        if (call.starts_with("rt_sigprocmask(SIG_BLOCK, [HUP INT USR1 ALRM TERM CHLD]")) {
            inMain.insert(process);
        }
        if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789") == std::string::npos) {
            Calls& calls = byProcess[process][name];
            ++calls.all;
            calls.loaders += inMain.empty() ? 1 : 0;
        }
    }
    std::map<std::string, Calls> most;
    for (const auto& [process, kinds] : byProcess) {
        for (const auto& [name, calls] : kinds) {
            most[name].all = std::max(most[name].all, calls.all);
            most[name].loaders = std::max(most[name].loaders, calls.loaders);
        }
    }
    return most;
}

TEST_F(HostFault, everySystemCall) {
    // These cannot fail, or only by a fault of libc's own, which ends the process then.
    const std::set<std::string> never{
        "exit",  "exit_group", "rt_sigreturn", "restart_syscall", "getpid", "getppid", "gettid",
        "futex", "tgkill",     "execve",       "set_robust_list", "rseq",   "madvise"};
    int points = 0;
    for (const Mode& mode : modes) {
        std::vector<std::string> command = agent(mode, "");
        const std::string log = root() + "/calls";
        command.insert(command.begin(), {"strace", "-f", "-qq", "-o", log});
        expectDescribedEnd(mode, command);
        for (const auto& [name, calls] : callsIn(contentOf(log))) {
            if (never.contains(name)) {
                continue;
            }
            const std::string error = name.starts_with("clone") ? "EAGAIN" : "EIO";
            for (const char* lasting : {"", "+"}) {
                for (int number = calls.loaders + 1; number <= calls.all; ++number, ++points) {
                    const std::string fault = "inject=" + name + ":error=" + error +
                                              ":when=" + std::to_string(number) + lasting;
                    std::vector<std::string> failing = agent(mode, "");
                    failing.insert(failing.begin(),
                                   {"strace", "-f", "-qq", "--seccomp-bpf", "-o", "/dev/null", "-e",
                                    "trace=" + name, "-e", fault});
                    expectDescribedEnd(mode, failing);
                    if (HasFailure()) {
                        ADD_FAILURE() << mode.option << " " << fault;
                        return;
                    }
                }
            }
        }
    }
    std::cout << "system calls failed: " << points << " points\n";
}

} // namespace
