// One fault, or one signal, at every single device call of every run mode.

#include "programs.h"

#include <csignal>
#include <iostream>
#include <regex>

namespace {

/// The device call at which the modes that do not end by themselves are told to.
constexpr int endingCall = 160;
/// The timer's stop, two identities, fourteen reads over one connection, adapters, four writes.
constexpr int callsBeforeFork = 2 * 5 + 2 * 5 + (2 + 14 * 3) + 5 + 4 * 5;

/// The third exchange, five device calls of which the last closes: the BMC tells who it is. Without
/// that there is no agent.
constexpr int identityExchange = 3;
constexpr int identityFirstCall = 11;
constexpr int identityLastCall = 14;

enum class Lasts {
    no,
    inForeground,
    asDaemon
};

struct Mode {
    const char* name;
    std::vector<std::string> options;
    int code; ///< of the program that was started
    Lasts lasts;

    bool ends() const { return lasts == Lasts::no; }
    /// Exit code when the BMC's identity is lost or not.
    int codeWith(bool identityLost) const {
        return identityLost && options != std::vector<std::string>{"-t"} ? 1 : code;
    }
};

const Mode modes[] = {{"once", {"-s"}, 0, Lasts::no},
                      {"terminate", {"-t"}, 0, Lasts::no},
                      {"foreground", {"-n"}, 1, Lasts::inForeground},
                      {"daemon", {}, 0, Lasts::asDaemon}};

class FaultLoop : public Programs {
  public:
    /// Runs one mode to its end. Gives the number of device calls that it made.
    int runOnce(const Mode& mode, std::vector<std::string> options, int code) {
        clearTrace();
        options.insert(options.end(), {"--speed", "5000", "--quiet", "--watchdog", "300"});
        if (!mode.ends()) {
            options.insert(options.end(),
                           {"--raise-at-call", std::to_string(endingCall) + ":SIGTERM"});
        }
        const End end = runSim(options, mode.options);
        EXPECT_EQ(end.error, "");
        const std::vector<int> daemons = endOfChildren();
        if (mode.lasts == Lasts::asDaemon && code == 0) {
            // It may be over before its starter looks, which then rightly reports no daemon.
            EXPECT_THAT(end.code(), testing::AnyOf(0, 1));
            EXPECT_THAT(daemons, testing::ElementsAre(0));
        } else {
            EXPECT_EQ(end.code(), code);
            EXPECT_THAT(daemons, testing::IsEmpty());
        }
        EXPECT_EQ(contentOf(pidFile()), "");
        return usage();
    }

    using CodeOf = std::optional<int>(const Mode& mode, int number, const std::string& what);

    /// Runs every mode with `option` and NUMBER WHAT, for the numbers from 1 to `last` or, when
    /// that is 0, that of the mode's device calls.
    void everywhere(const char* option, const std::vector<std::string>& whats, int last,
                    CodeOf* codeOf) {
        int points = 0;
        for (const Mode& mode : modes) {
            const int numbers = last == 0 ? runOnce(mode, {}, mode.code) : last;
            for (const std::string& what : whats) {
                for (int number = 1; number <= numbers; ++number) {
                    if (const std::optional<int> code = codeOf(mode, number, what)) {
                        runOnce(mode, {option, std::to_string(number) + what}, *code);
                        ASSERT_FALSE(HasFailure()) << mode.name << " " << number << what;
                        ++points;
                    }
                }
            }
        }
        std::cout << option << ": " << points << " points\n";
    }

    /// "Device: 21 exchanges, 79 calls (open 8, ...), 0 descriptors open"
    int usage() const {
        const std::string all = trace();
        std::smatch found;
        const std::regex line("Device: .* exchanges, ([0-9]+) calls .*, ([0-9]+) descriptors open");
        EXPECT_TRUE(std::regex_search(all, found, line)) << all;
        EXPECT_EQ(found[2], "0");
        return std::stoi(found[1]);
    }
};

/// The fault comes too early for that mode.
constexpr std::optional<int> leftOut = std::nullopt;

TEST_F(FaultLoop, failEveryDeviceCall) {
    everywhere("--fail-call", {":EIO", "+:EIO"}, 0,
               [](const Mode& mode, int call, const std::string& what) -> std::optional<int> {
                   const bool forGood = what.starts_with('+');
                   return mode.codeWith(call <= identityLastCall &&
                                        (forGood || call >= identityFirstCall));
               });
}

TEST_F(FaultLoop, misbehaveAtEveryExchange) {
    constexpr int exchanges = 60; // more than any mode has when nothing goes wrong
    everywhere("--fault", {":errno=ENODEV@send", ":silent", ":foreign-id", "+:silent"}, exchanges,
               [](const Mode& mode, int exchange, const std::string& what) -> std::optional<int> {
                   // Without the first variable, read by the fourth exchange, the lasting modes
                   // have nothing to ask the BMC any more and would never come to the ending call.
                   const bool forGood = what.starts_with('+');
                   return !mode.ends() && exchange < 5
                              ? leftOut
                              : mode.codeWith(exchange == identityExchange ||
                                              (forGood && exchange < identityExchange));
               });
}

TEST_F(FaultLoop, signalAtEveryDeviceCall) {
    everywhere("--raise-at-call", {":SIGALRM", ":SIGTERM"}, 0,
               [](const Mode& mode, int call, const std::string& what) -> std::optional<int> {
                   // A termination signal counts wherever it comes; before the fork it ends the
                   // start. The ending call has its signal already.
                   const bool counts =
                       what == ":SIGTERM" && (mode.ends() || call <= callsBeforeFork);
                   return call == endingCall ? leftOut : counts ? 1 : mode.code;
               });
}

} // namespace
