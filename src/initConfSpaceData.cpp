// Entry of tav_init.

#include "agentClock.h"
#include "agentSignals.h"
#include "sysLog.h"
#include "tavServerInfo.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <exception>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr unsigned waitStep = 10; // seconds

std::atomic<bool> wait{false}; ///< the process stays while this is true
std::atomic<int> retValue{TavServerInfo::exit_success};

void signal_handler(int signum) {
    agentSignals::noteEnd();
    wait = false;
    if (signum != SIGUSR1) {
        retValue = TavServerInfo::exit_failure;
    }
}

/// Makes sure that descriptors 0 to 2 are taken: were the agent started without them, the IPMI
/// device or the pid file would become somebody's standard stream.
void reserveStandardStreams() noexcept {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        ::close(fd);
    }
}

/// The last option given decides. False for an option that does not exist.
bool parseOptions(int argc, char* argv[], TavServerInfo::RunMode& mode) {
    opterr = 0;
    for (int option = 0; (option = ::getopt(argc, argv, "nst")) != -1;) {
        switch (option) {
        case 'n':
            wait = true; // and stays so, whatever follows
            mode = TavServerInfo::run_mode_thread;
            break;
        case 's':
            mode = TavServerInfo::run_mode_once;
            break;
        case 't':
            mode = TavServerInfo::run_mode_terminate;
            break;
        default:
            return false;
        }
    }
    return true;
}

void runAgent(TavServerInfo::RunMode mode) {
    TavServerInfo server(mode);
    while (wait) {
        const sigset_t mask = agentSignals::maskLettingIn({SIGTERM, SIGHUP, SIGINT});
        if (const int error = agentClock().waitForSignal(waitStep, mask); error != 0) {
            errno = error;
            throw std::runtime_error(errnoText("unable to wait for a signal: "));
        }
    }
}

} // namespace

int main(int argc, char* argv[]) {
    std::set_terminate(TavServerInfo::giveUp);
    agentSignals::hold();
    reserveStandardStreams();
    TavServerInfo::stop_watchdog(tavIpmi::TavIpmiWatchdog::timer_use_os_load);
    TavServerInfo::RunMode mode = TavServerInfo::run_mode_daemon;
    if (!parseOptions(argc, argv, mode)) {
        static_cast<void>(
            std::fprintf(stderr, "Usage: %s [-n] [-s] [-t]\n", argc > 0 ? argv[0] : ""));
        return TavServerInfo::exit_failure;
    }
    if (!agentSignals::install(signal_handler, {SIGTERM, SIGHUP, SIGINT})) {
        return TavServerInfo::exit_failure;
    }
    try {
        runAgent(mode);
    } catch (const std::exception& error) {
        sysLog(LOG_ERR, "%s", error.what());
        return TavServerInfo::exit_failure;
    }
    agentSignals::letIn({SIGTERM, SIGHUP, SIGINT}); // one that came during the work counts too
    return retValue;
}
