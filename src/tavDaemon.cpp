// Process life: daemon with pid file and signals, or a second thread.

#include "agentSignals.h"
#include "fileDescriptor.h"
#include "hostPaths.h"
#include "sysLog.h"
#include "tavServerInfo.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using tavIpmi::TavIpmiWatchdog;

namespace {

constexpr unsigned handshakeSeconds = 3;
constexpr mode_t pidFileMode = 0644;
constexpr const char* coreIdent = "TAVD";
constexpr const char* nullDevice = "/dev/null";

/// For the starting process' handler: the daemon that it waits for.
pid_t startedDaemon = -1;

[[noreturn]] void fail() {
    std::exit(TavServerInfo::exit_failure);
}

/// The caller may have left children behind, whose ends are none of our business.
bool daemonHasEnded() noexcept {
    siginfo_t ended{};
    return ::waitid(P_PID, static_cast<id_t>(startedDaemon), &ended, WEXITED | WNOHANG | WNOWAIT) ==
               -1 ||
           ended.si_pid == startedDaemon;
}

void installOrFail(void (*handler)(int), std::initializer_list<int> signals) {
    if (!agentSignals::install(handler, signals)) {
        fail();
    }
}

void enterNewSession() {
    ::umask(0);
    if (::setsid() == -1) {
        sysLogFailure("unable to create a new session");
        fail();
    }
    if (::chdir("/") == -1) {
        sysLogFailure("unable to change directory to /");
        fail();
    }
}

void detachStandardStreams() {
    if (std::freopen(nullDevice, "r", stdin) == nullptr) {
        sysLog(LOG_ERR, "Cannot perform freopen on stdin.");
    }
    if (std::freopen(nullDevice, "w", stdout) == nullptr) {
        sysLog(LOG_ERR, "Cannot perform freopen on stdout.");
    }
    if (std::freopen(nullDevice, "w", stderr) == nullptr) {
        sysLog(LOG_ERR, "Cannot perform freopen on stderr.");
    }
}

void logEndOfWork(const char* why) noexcept {
    sysLog(LOG_ERR,
           "the work has ended, and the BMC learns nothing until tav_init is restarted: %s", why);
}

/// Writes the own process id. A file that is there already is another daemon's: of two that start
/// at the same time one makes it. A file that could not be written whole is taken away again: it
/// would keep the next daemon from starting.
bool writePidFile(const char* path) {
    FileDescriptor file(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, pidFileMode));
    if (!file) {
        return false;
    }
    const std::string text = std::to_string(::getpid()) + "\n";
    errno = ENOSPC; // when less than all is taken, without an error
    const bool written =
        ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    int code = written ? 0 : errno;
    if (!file.close() && written) {
        code = errno;
    }
    if (code == 0) {
        return true;
    }
    ::unlink(path);
    errno = code;
    return false;
}

/// The termination handler has taken the own file away; one that is there now may belong to the
/// next daemon.
bool isOwnPidFile(const char* path) {
    const FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    std::array<char, 32> text{};
    return file && ::read(file.get(), text.data(), text.size() - 1) > 0 &&
           std::strtol(text.data(), nullptr, 10) == ::getpid();
}

} // namespace

void TavServerInfo::open_syslog() {
    openSysLog(coreIdent, LOG_PID | LOG_CONS, LOG_USER);
}

void TavServerInfo::start_main_action_daemon() {
    const pid_t parent = ::getpid();
    if (::getppid() == 1) {
        sysLog(LOG_ERR, "process 1 does not wait for the daemon's answer: nothing was started; "
                        "run tav_init -n there");
        fail();
    }
    // Ignoring drops strays that are pending: only the child's answer and the time-out count.
    installOrFail(SIG_IGN, {SIGCHLD, SIGUSR1, SIGALRM});
    installOrFail(SIG_DFL, {SIGALRM});
    installOrFail(child_handler, {SIGCHLD, SIGUSR1});
    if (agentSignals::endRequested()) {
        fail(); // stopped before it began
    }
    const pid_t child = ::fork();
    if (child == -1) {
        const int code = errno;
        sysLog(LOG_ERR, "unable to fork daemon, code=%d (%s)", code, std::strerror(code));
        fail();
    }
    if (child == 0) {
        runDaemon(parent);
    }
    awaitDaemon(child);
}

/// Parent: ended by its handler when the child answers (SIGUSR1) or dies (SIGCHLD), and by the
/// default action of SIGALRM when neither happens in time. A termination signal takes the child
/// along, for its invoker is told that nothing was started.
void TavServerInfo::awaitDaemon(pid_t child) noexcept {
    free_data();
    startedDaemon = child;
    ::alarm(handshakeSeconds);
    const sigset_t mask =
        agentSignals::maskLettingIn({SIGUSR1, SIGCHLD, SIGALRM, SIGTERM, SIGHUP, SIGINT});
    while (!agentSignals::endRequested()) {
        ::sigsuspend(&mask);
        if (errno != EINTR) {
            sysLogFailure("unable to wait for the daemon");
            break;
        }
    }
    ::kill(child, SIGTERM);
    fail();
}

void TavServerInfo::runDaemon(pid_t parent) {
    installOrFail(SIG_DFL, {SIGCHLD});
    installOrFail(SIG_IGN, {SIGTSTP, SIGTTOU, SIGTTIN});
    installOrFail(signal_handler, {SIGALRM, SIGTERM, SIGHUP, SIGINT});
    enterNewSession();
    detachStandardStreams();
    const char* const pidFile = hostPaths().pidFile;
    if (!writePidFile(pidFile)) {
        sysLogFailure("unable to write the pid file");
        fail();
    }
    if (::getppid() == parent) { // a parent that is gone has left its number to another
        ::kill(parent, SIGUSR1);
    }
    run = true;
    this_TavServerInfo = this;
    int result = 0;
    TavServerInfo::main_action(result); // no derived object exists yet
    if (!isOwnPidFile(pidFile) || ::unlink(pidFile) == -1) {
        sysLog(LOG_ERR, "unable to remove file: %s", pidFile);
    }
    free_data();
    std::exit(result == 0 ? exit_success : exit_failure);
}

void TavServerInfo::child_handler(int signum) {
    const agentSignals::Hold hold; // exit(3) waits for itself when it is entered a second time
    if (signum == SIGUSR1) {
        std::exit(exit_success);
    }
    if (signum == SIGALRM || (signum == SIGCHLD && daemonHasEnded())) {
        fail();
    }
}

void TavServerInfo::signal_handler(int signum) {
    const agentSignals::Hold hold;
    if (signum == SIGALRM) {
        sysLog(LOG_INFO, "Alarm signal received");
        reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, false);
        return;
    }
    agentSignals::noteEnd();
    sysLog(LOG_INFO, "Termination signal received");
    if (this_TavServerInfo == nullptr) {
        return;
    }
    this_TavServerInfo->reportTermination();
    this_TavServerInfo->run = false;
    const char* const pidFile = hostPaths().pidFile;
    if (this_TavServerInfo->run_mode == run_mode_daemon && ::unlink(pidFile) == -1) {
        const int code = errno;
        sysLog(LOG_ERR, "unable to remove file %s, code %d (%s)", pidFile, code,
               std::strerror(code));
    }
}

void TavServerInfo::giveUp() noexcept {
    sysLog(LOG_ERR, "out of memory, or an error that nobody expected: the agent ends");
    const char* const pidFile = hostPaths().pidFile;
    if (isOwnPidFile(pidFile)) {
        ::unlink(pidFile);
    }
    ::_exit(exit_failure);
}

/// The process stays when its thread cannot be created, or has ended: whoever runs it is told.
void TavServerInfo::start_main_action_thread() {
    if (::pthread_equal(thread_id, ::pthread_self()) == 0) {
        return;
    }
    pthread_t created{};
    if (const int code = ::pthread_create(&created, nullptr, thread_function, this); code == 0) {
        thread_id = created;
    } else {
        logEndOfWork(std::strerror(code));
    }
}

void* TavServerInfo::thread_function(void* server) {
    auto& self = *static_cast<TavServerInfo*>(server);
    int result = 0;
    self.run = true;
    self.main_action(result);
    if (result != 0) {
        logEndOfWork(self.failure.data());
    }
    return nullptr;
}

void TavServerInfo::stop_main_action_thread() {
    if (run_mode != run_mode_thread || ::pthread_equal(thread_id, ::pthread_self()) != 0) {
        return;
    }
    ::pthread_mutex_lock(&lock);
    const pthread_t cycle = thread_id;
    thread_id = ::pthread_self();
    stop_requested = true; // the cycle may not have come to its first wait yet
    ::pthread_cond_signal(&cond);
    ::pthread_mutex_unlock(&lock);
    ::pthread_join(cycle, nullptr);
}
