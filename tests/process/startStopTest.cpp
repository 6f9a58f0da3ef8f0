// Daemons by the thousand.

#include "programs.h"

#include <csignal>
#include <random>

#include <unistd.h>

namespace {

class StartStop : public Programs {};

TEST_F(StartStop, successMeansALivingDaemon) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(runSim({"--quiet"}, {}).code(), 0);
        const pid_t pid = daemon();
        ASSERT_GT(pid, 1);
        ASSERT_EQ(::kill(pid, 0), 0);
        ::kill(pid, SIGTERM);
        ASSERT_EQ(await(pid).code(), 0);
        ASSERT_EQ(contentOf(pidFile()), "");
    }
}

/// A signal at any moment from the first instant on, to the starting process and to its daemon.
TEST_F(StartStop, signalsAtRandomMoments) {
    std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<useconds_t> moment(0, 12000);
    const int signals[] = {SIGTERM, SIGHUP, SIGINT};
    for (unsigned i = 0; i < 2000; ++i) {
        SCOPED_TRACE(i);
        const int signal = signals[i % 3];
        const pid_t starter = startSim({"--quiet", "--speed", "2000", "--watchdog", "300"}, {});
        ::usleep(moment(random));
        ::kill(i % 2 == 0 ? starter : -starter, signal);
        const int code = await(starter).code();
        // Before the program holds its signals back the signal has its default action.
        ASSERT_TRUE(code == 0 || code == 1 || code == -signal) << code;
        while (const auto daemon = anyChild()) {
            ::usleep(moment(random) / 4);
            ::kill(*daemon, signal);
            ASSERT_EQ(await(*daemon).code(), 0);
        }
        ASSERT_EQ(contentOf(pidFile()), "");
    }
}

} // namespace
