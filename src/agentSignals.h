#pragma once

#include <csignal>
#include <initializer_list>

/// The agent's signals (SIGTERM, SIGHUP, SIGINT, SIGALRM, SIGUSR1, SIGCHLD) are held back by the
/// signal mask from the first line of the entry on. A handler can therefore only run inside a wait
/// that names its signal, never in the middle of an exchange, an allocation or a log call.
namespace agentSignals {

/// Holds all of the agent's signals back in the calling thread and in threads it starts.
void hold() noexcept;

/// Holds the signals back for the length of a handler's work, so that handlers do not nest.
class Hold {
  public:
    Hold() noexcept;
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    sigset_t before{};
};

/// The calling thread's mask with `signals` let in: for the waits.
sigset_t maskLettingIn(std::initializer_list<int> signals) noexcept;

/// Lets `signals` in for an instant: the handlers of pending ones have run on return.
void letIn(std::initializer_list<int> signals) noexcept;

/// Forgets `signal`, if it is pending.
void drop(int signal) noexcept;

/// Installs `handler` with an empty mask and no flags (or SIG_IGN, SIG_DFL) for each signal in
/// turn, up to the first failure; a failure is logged and gives false.
bool install(void (*handler)(int), std::initializer_list<int> signals) noexcept;

/// For handlers: remembers that a termination signal was taken.
void noteEnd() noexcept;

/// True once a termination signal was taken or is waiting to be.
bool endRequested() noexcept;

} // namespace agentSignals
