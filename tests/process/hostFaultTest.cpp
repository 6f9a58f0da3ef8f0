// The real agent on a host that fails it: every allocation and every system call, once and for
// good, in every run mode. The device under it answers everything.

#include "hostFaults.h"
#include "programs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned forGood = std::numeric_limits<unsigned>::max();
constexpr const char* realPidFile = "/var/run/tavd.pid";

struct Mode {
    std::vector<std::string> command;
    int code; ///< of the program that was started
    bool foreground = false;
};
const Mode modes[] = {
    {{TAV_INIT, "-s"}, 0}, {{TAV_INIT, "-t"}, 0}, {{TAV_INIT, "-n"}, 1, true}, {{TAV_INIT}, 0}};

/// The kernel never fails these. When it fails the last two, which only libc calls, in a way that
/// libc does not know, libc aborts.
const unsigned neverFailing[] = {SYS_exit,   SYS_exit_group, SYS_getpid,          SYS_getppid,
                                 SYS_gettid, SYS_umask,      SYS_set_robust_list, SYS_alarm,
                                 SYS_futex,  SYS_rseq};

class HostFault : public Programs {
  public:
    HostFault() {
        const std::string file = root() + "/faults";
        const int fd = ::open(file.c_str(), O_RDWR | O_CREAT, 0600);
        EXPECT_EQ(::ftruncate(fd, sizeof(HostFaults)), 0);
        memory = ::mmap(nullptr, sizeof(HostFaults), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ::close(fd);
        ::setenv("TAV_HOST_FAULTS", file.c_str(), 1);
        ::setenv("LD_PRELOAD", TAV_HOST_LIBRARIES, 1);
    }
    ~HostFault() override {
        ::unsetenv("LD_PRELOAD");
        ::munmap(memory, sizeof(HostFaults));
    }

    /// Runs one mode to its end. Gives the numbers of its calls by kind.
    std::array<unsigned, HostFaults::kinds>
    expectDescribedEnd(const Mode& mode, unsigned kind, int error, unsigned first, unsigned last) {
        const auto* const faults =
            new (memory) HostFaults{mode.foreground, kind, error, first, last};
        const int code = run(mode.command).code();
        const bool answerLost = kind == SYS_kill && code == -SIGALRM;
        EXPECT_TRUE(code == mode.code || code == 1 || answerLost) << code;
        const auto ends = endOfChildren();
        // Daemons are told to end by their second wait, or by a starter that cannot wait.
        const bool told = faults->waits >= 2 || kind == SYS_rt_sigsuspend;
        EXPECT_THAT(ends, testing::Each(testing::AnyOf(told ? 0 : 1, 1)));
        EXPECT_TRUE(::unlink(realPidFile) != 0 || kind == SYS_unlink) << "left a pid file behind";
        std::array<unsigned, HostFaults::kinds> calls{};
        std::copy(faults->calls.begin(), faults->calls.end(), calls.begin());
        return calls;
    }

    /// Fails each of these calls, and all from each on unless an interruption is the error, which
    /// is nothing that lasts.
    void failEach(const Mode& mode, unsigned kind, int error, unsigned calls) {
        for (unsigned call = 1; call <= calls; ++call) {
            for (const unsigned last : {call, forGood}) {
                if (last == call || error != EINTR) {
                    expectDescribedEnd(mode, kind, error, call, last);
                    ++points;
                }
                ASSERT_FALSE(HasFailure()) << mode.command.back() << ": kind " << kind << ", call "
                                           << call << " to " << last << ", error " << error;
            }
        }
    }

    int points = 0;

  private:
    void* memory = nullptr;
};

TEST_F(HostFault, everyAllocation) {
    for (const Mode& mode : modes) {
        const auto calls = expectDescribedEnd(mode, 0, 0, 0, 0);
        failEach(mode, HostFaults::allocation, ENOMEM, calls[HostFaults::allocation]);
    }
    std::cout << "allocations failed: " << points << " points\n";
}

TEST_F(HostFault, everySystemCall) {
    for (const Mode& mode : modes) {
        auto calls = expectDescribedEnd(mode, 0, 0, 0, 0);
        calls[HostFaults::allocation] = 0;
        calls[SYS_clone3] = mode.foreground ? 1 : 0; // which cannot be counted
        for (const unsigned kind : neverFailing) {
            calls[kind] = 0;
        }
        for (unsigned kind = 0; kind < calls.size(); ++kind) {
            if (kind == SYS_brk) { // its failure is to give no other address than before
                failEach(mode, kind, 0, calls[kind]);
                continue;
            }
            failEach(mode, kind, EIO, calls[kind]);
            failEach(mode, kind, EINTR, calls[kind]);
        }
    }
    const std::vector<std::string> texts = logTexts();
    for (const char* text :
         {"unable to create a new session", "unable to change directory", "freopen on stdin",
          "freopen on stdout", "freopen on stderr", "unable to fork daemon", "wait for the daemon",
          "unable to write the pid file", "3: unable to remove file /", "SIOCGIFCONF failed",
          "unable to tell whether a daemon is running", "unable to wait for the next pass",
          "unable to wait for a signal", "until tav_init is restarted: Input/output error"}) {
        EXPECT_THAT(texts, testing::Contains(testing::HasSubstr(text)));
    }
    std::cout << "system calls failed: " << points << " points\n";
}

} // namespace
