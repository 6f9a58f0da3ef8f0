// The simulated BMC as a server for virtual machines.

#include "bmcOptions.h"
#include "bmcView.h"
#include "simClock.h"
#include "trace.h"
#include "vmConnection.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::array endingSignals = {SIGTERM, SIGINT};
constexpr int viewSignal = SIGUSR1;

struct Options : sim::BmcOptions {
    std::string socket;
};

constexpr const char* usage = R"(usage: tav_bmcd --socket PATH [OPTION...]
Is the BMC of a virtual machine: waits at the unix socket PATH for QEMU's ipmi-bmc-extern, shows
every request and answers it. SIGUSR1 shows how the BMC is, SIGTERM ends it.

)";

Options parse(int argc, char** argv) {
    Options options;
    std::vector<sim::Option> table = bmcOptionTable(options);
    table.push_back({"--socket", true, [&](const std::string& value) { options.socket = value; }});
    const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
    if (!parseOptions(table, arguments.subspan(1)).empty()) {
        throw sim::UsageError("only options are taken");
    }
    if (options.socket.empty() && !options.help && !options.version) {
        throw sim::UsageError("--socket is needed");
    }
    return options;
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
  public:
    Descriptor(int fd_, const char* what) : fd(fd_) {
        if (fd == -1) {
            fail(what);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { ::close(fd); }
    int number() const noexcept { return fd; }

  private:
    int fd;
};

/// The socket's place in the file system, for as long as the server lives.
class Listener {
  public:
    explicit Listener(std::string path_) :
        path(std::move(path_)), socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket") {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) {
            errno = ENAMETOOLONG;
            fail(path.c_str());
        }
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        struct stat existing {};
        if (::lstat(path.c_str(), &existing) == 0 && S_ISSOCK(existing.st_mode)) {
            ::unlink(path.c_str()); // of an earlier server
        }
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): what bind(2) takes
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        if (::bind(socket.number(), generic, sizeof address) == -1 ||
            ::listen(socket.number(), 1) == -1) {
            fail(path.c_str());
        }
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { ::unlink(path.c_str()); }
    int number() const noexcept { return socket.number(); }

  private:
    std::string path;
    Descriptor socket;
};

int signalDescriptor() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, viewSignal);
    for (const int signal : endingSignals) {
        sigaddset(&set, signal);
    }
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    return ::signalfd(-1, &set, SFD_CLOEXEC);
}

class Server {
  public:
    explicit Server(const Options& options) :
        clock(options.speed), trace(options.trace, clock.monotonic()),
        bmc([this] { return clock.monotonic(); }),
        channel(bmc,
                [this, quiet = options.quiet](const sim::Exchange& exchange) {
                    if (!quiet) {
                        trace.line(exchange);
                    }
                }),
        signals(signalDescriptor(), "signalfd"), listener(options.socket) {
        sim::setUp(bmc, options);
    }

    void run() {
        while (!ended) {
            // One machine at a time: others wait until it has gone.
            std::array<pollfd, 2> watched = {
                {{signals.number(), POLLIN, 0},
                 {machine ? machine->socket.number() : listener.number(), POLLIN, 0}}};
            if (::poll(watched.data(), watched.size(), -1) == -1) {
                fail("poll");
            }
            if (watched[0].revents != 0) {
                takeSignal();
            } else if (machine) {
                serve();
            } else {
                accept();
            }
        }
    }

  private:
    struct Machine {
        Machine(int fd, sim::MessageChannel& channel) : socket(fd, "accept"), connection(channel) {}
        Descriptor socket;
        sim::VmConnection connection;
    };

    void takeSignal() {
        signalfd_siginfo taken{};
        if (::read(signals.number(), &taken, sizeof taken) != sizeof taken) {
            fail("signalfd");
        }
        trace.print("\n" + sim::bmcView(bmc));
        ended = taken.ssi_signo != static_cast<unsigned>(viewSignal);
    }

    void accept() {
        const int fd = ::accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd == -1 && errno == ECONNABORTED) { // it has given up already
            return;
        }
        machine.emplace(fd, channel);
        channel.reset();
        send(sim::VmConnection::greeting());
    }

    void serve() {
        std::array<unsigned char, 512> bytes;
        const ssize_t count = ::recv(machine->socket.number(), bytes.data(), bytes.size(), 0);
        if (count <= 0) {
            machine.reset();
            return;
        }
        send(machine->connection.receive({bytes.data(), static_cast<std::size_t>(count)}));
    }

    /// A machine that does not take what it asked for is given up.
    void send(sim::Data bytes) {
        while (machine && !bytes.empty()) {
            const ssize_t count = ::send(machine->socket.number(), bytes.data(), bytes.size(),
                                         MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count <= 0) {
                machine.reset();
                return;
            }
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        }
    }

    sim::SimClock clock;
    sim::Trace trace;
    sim::Bmc bmc;
    sim::MessageChannel channel;
    Descriptor signals;
    Listener listener;
    std::optional<Machine> machine;
    bool ended = false;
};

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parse(argc, argv);
        if (options.help) {
            (void)std::printf("%s%s", usage, sim::bmcUsage());
            return EXIT_SUCCESS;
        }
        if (options.version) {
            (void)std::puts("tav_bmcd " TAV_VERSION);
            return EXIT_SUCCESS;
        }
        (void)::signal(SIGPIPE, SIG_IGN); // whoever looked at the exchanges may have gone
        Server(options).run();
        return EXIT_SUCCESS;
    } catch (const sim::UsageError& error) {
        (void)std::fprintf(stderr, "tav_bmcd: %s\n\n%s%s", error.what(), usage, sim::bmcUsage());
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "tav_bmcd: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
