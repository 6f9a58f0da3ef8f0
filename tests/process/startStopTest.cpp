// Daemons by the thousand.

#include "programs.h"

#include <csignal>
#include <random>

#include <unistd.h>

namespace {

class StartStop : public Programs {
  public:
    /// The pid file names a living daemon, which ends in order when it is told to.
    void stopDaemon() {
        const pid_t pid = daemon();
        ASSERT_GT(pid, 1);
        ASSERT_EQ(::kill(pid, 0), 0);
        ASSERT_EQ(stop(pid).code(), 0);
        ASSERT_EQ(contentOf(pidFile()), "");
    }
};

TEST_F(StartStop, successMeansALivingDaemon) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(runSim({"--quiet"}, {}).code(), 0);
        ASSERT_NO_FATAL_FAILURE(stopDaemon());
    }
}

/// Its answer and its end come at the same time.
TEST_F(StartStop, aDaemonThatEndsAtOnceDoesNotHoldUpItsStarter) {
    for (int i = 0; i < 1000; ++i) {
        const int code = runSim({"--quiet", "--raise-at-call", "90:SIGKILL"}, {}).code();
        ASSERT_TRUE(code == 0 || code == 1) << code;
        ASSERT_THAT(endOfChildren(), testing::ElementsAre(-SIGKILL));
        ::unlink(pidFile().c_str());
    }
}

TEST_F(StartStop, theEndOfAnotherChildIsNotTheDaemons) {
    for (int i = 0; i < 300; ++i) {
        const std::string wait = std::to_string(0.0001 * (i % 80));
        ASSERT_EQ(run({"sh", "-c", "sleep " + wait + " & exec \"$@\"", "sh", TAV_SIM, "--quiet",
                       "--root", root(), "--"})
                      .code(),
                  0);
        ASSERT_NO_FATAL_FAILURE(stopDaemon());
        endOfChildren();
    }
}

TEST_F(StartStop, ofSimultaneousStartsOneMakesIt) {
    for (int i = 0; i < 200; ++i) {
        const pid_t starters[] = {startSim({"--quiet"}, {}), startSim({"--quiet"}, {})};
        const int codes[] = {await(starters[0]).code(), await(starters[1]).code()};
        EXPECT_THAT(codes, testing::Contains(0));
        EXPECT_THAT(codes, testing::Each(testing::AnyOf(0, 1)));
        ASSERT_NO_FATAL_FAILURE(stopDaemon());
        EXPECT_THAT(endOfChildren(), testing::Each(1)) << "a second daemon";
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
            ASSERT_EQ(stop(*daemon, signal).code(), 0);
        }
        ASSERT_EQ(contentOf(pidFile()), "");
    }
}

} // namespace
