#include "agentClock.h"
#include "agentSignals.h"
#include "programs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <regex>

#include <sys/stat.h>
#include <unistd.h>

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int infoOfLocal5 = 21 * 8 + 6;

class RunMode : public Programs {
  public:
    /// The daemon that a successful start has left.
    pid_t startDaemon(std::vector<std::string> options) {
        EXPECT_EQ(runSim(std::move(options), {}).code(), 0);
        EXPECT_GT(daemon(), 0);
        EXPECT_EQ(::kill(daemon(), 0), 0) << "the pid file names no living process";
        return daemon();
    }

    /// Waits until the trace holds `text` so many times.
    void awaitTrace(const std::string& text, int times = 1) const {
        const auto seen = [&] {
            int count = 0;
            const std::string all = trace();
            for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
                ++count;
            }
            return count;
        };
        const auto end = std::chrono::steady_clock::now() + patience;
        while (seen() < times) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << text << " not seen in\n" << trace();
            ::usleep(1000);
        }
    }

    /// What the simulator printed, without the times that pass.
    std::string conversation() const {
        return std::regex_replace(trace(), std::regex(" *[0-9.]+ s(?=  #| of)"), "");
    }
    static std::string kept(const std::string& name) {
        return contentOf(TAV_CONVERSATIONS "/" + name + ".txt");
    }
};

/// What each machine is asked and told in one pass, and what its BMC then knows.
TEST_F(RunMode, onceSaysExactlyThisToEveryMachine) {
    for (const char* machine : {"blade", "old-blade", "kestrelbox", "nic", "plain"}) {
        const bool adapter = machine == std::string("nic");
        shell(std::string("ip link set tav0 address 02:00:00:00:00:") + (adapter ? "12" : "02"));
        for (const char* form : {"sysfs3", "sysfs2", "legacy"}) {
            clearTrace();
            EXPECT_EQ(runSim({"--machine", machine, "--smbios", form}, {"-t", "-s"}).code(), 0);
            EXPECT_EQ(conversation(), kept(machine)) << machine << " " << form;
        }
    }
}

TEST_F(RunMode, chassisAndBmcLearnThatADaemonEnds) {
    // The handler reports, and so do the last steps of the cycle.
    const std::pair<const char*, const char*> cases[] = {
        {"50+:slow=0", "OS shutdown (events: 4)"},
        {"50+:slow=400", "OS shutdown (events: 4)"},
        {"1+:silent-bus", "unknown"}};
    for (const auto& [fault, known] : cases) {
        clearTrace();
        const pid_t daemon =
            startDaemon({"--machine", "kestrelbox", "--speed", "4", "--fault", fault});
        awaitTrace("OS running", 2);
        EXPECT_EQ(stop(daemon).code(), 0);
        EXPECT_THAT(trace(),
                    AllOf(HasSubstr(known), HasSubstr("platform type                       none"),
                          HasSubstr("Agent communication: disconnect")));
    }
}

/// From start to end: foreground and daemon send the same, and "-n" holds whatever follows.
TEST_F(RunMode, theLastingModesSayExactlyThis) {
    using Words = std::vector<std::string>;
    const std::tuple<Words, Words, const char*> modes[] = {
        {{"--watchdog", "300"}, {"-n"}, "lasting"},
        {{"--watchdog", "300"}, {}, "lasting"},
        {{}, {"-n", "-s"}, "plain"}};
    for (const auto& [options, agentOptions, name] : modes) {
        clearTrace();
        const bool background = agentOptions.empty();
        const pid_t agent = background ? startDaemon(options) : startSim(options, agentOptions);
        awaitTrace("= 10.0.0.1");
        EXPECT_EQ(stop(agent).code(), background ? 0 : 1);
        EXPECT_EQ(conversation(), kept(name));
    }
}

TEST_F(RunMode, theOtherModesSayLittle) {
    const End end = run({TAV_INIT, "-s", "-x"});
    EXPECT_EQ(end.code(), 1);
    EXPECT_EQ(end.error, std::string("Usage: ") + TAV_INIT + " [-n] [-s] [-t]\n");
    EXPECT_EQ(runSim({}, {"--wrong"}).code(), 1);
    EXPECT_EQ(conversation(), kept("wrong-option"));
    clearTrace();
    EXPECT_EQ(runSim({}, {"-s", "-t"}).code(), 0);
    EXPECT_EQ(conversation(), kept("terminate"));
}

TEST_F(RunMode, withoutADeviceThereIsNothingToDo) {
    EXPECT_EQ(run({TAV_INIT, "-t", "operand"}).code(), 0);
    EXPECT_THAT(log(), testing::IsEmpty());
    for (const char* option : {"-s", "-n"}) {
        const End end = run({TAV_INIT, option});
        EXPECT_EQ(end.code(), 1);
        EXPECT_EQ(end.error, "");
        const LogLine line = log().back();
        EXPECT_THAT(line.text, HasSubstr("Open failed: No such file or directory"));
        EXPECT_EQ(line.ident == "TAVD", option == std::string("-s")) << line.ident;
    }
}

TEST_F(RunMode, foregroundRunsUntilItIsSignalled) {
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        clearTrace();
        const pid_t agent = startSim({"--speed", "100", "--watchdog", "300"}, {"-n"});
        awaitTrace("Reset Watchdog Timer", 2);
        ::kill(agent, SIGALRM);
        awaitTrace("Reset Watchdog Timer", 3);
        const End end = stop(agent, signal);
        EXPECT_EQ(end.code(), 1);
        EXPECT_EQ(end.error, "");
        EXPECT_THAT(trace(), HasSubstr("Agent communication: disconnect"));
        EXPECT_THAT(logTexts(), testing::IsEmpty()) << "only the daemon speaks of signals";
    }
}

TEST_F(RunMode, daemonLivesAndDiesAsDescribed) {
    ::umask(077);
    const pid_t daemon = startDaemon({"--speed", "100", "--watchdog", "300"});
    ::umask(022);
    struct stat status {};
    ASSERT_EQ(::stat(pidFile().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_EQ(contentOf(pidFile()), std::to_string(daemon) + "\n");
    EXPECT_EQ(::getsid(daemon), daemon);
    const std::string process = "/proc/" + std::to_string(daemon);
    EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/");
    EXPECT_THAT(contentOf(process + "/status"), HasSubstr("Umask:\t0000\n"));
    for (const char* stream : {"/fd/0", "/fd/1", "/fd/2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(process + stream), "/dev/null");
    }

    const End second = runSim({}, {});
    EXPECT_EQ(second.code(), 0);
    EXPECT_EQ(second.error, "It seems as if TAVD daemon is already running.\nDelete file: '" +
                                pidFile() + "' if it does not\n");

    awaitTrace("Reset Watchdog Timer", 1);
    ::kill(daemon, SIGALRM);
    awaitTrace("Reset Watchdog Timer", 2);
    ::kill(daemon, SIGUSR1); // nobody's business any more
    const End end = stop(daemon);
    EXPECT_EQ(end.code(), 0);
    EXPECT_EQ(contentOf(pidFile()), "");
    EXPECT_THAT(trace(),
                AllOf(HasSubstr("Agent communication: disconnect"), HasSubstr("10.0.0.1")));

    std::vector<std::string> texts = logTexts();
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    EXPECT_THAT(texts, ElementsAre("6: starting", "6: Alarm signal received",
                                   "6: Termination signal received",
                                   "3: unable to remove file: " + pidFile()));
    ASSERT_FALSE(log().empty());
    EXPECT_EQ(log()[0].ident, "tav_daemon");
    EXPECT_EQ(log()[0].priority, infoOfLocal5);
    EXPECT_EQ(log().back().pid, daemon);
}

TEST_F(RunMode, aStuckLogHoldsNobodyUp) {
    const pid_t daemon = startDaemon({"--watchdog", "300"});
    int resets = 1;
    awaitTrace("Reset Watchdog Timer", resets);
    const auto alarm = [&] {
        ::kill(daemon, SIGALRM);
        awaitTrace("Reset Watchdog Timer", ++resets);
    };
    fillLog();
    alarm();
    EXPECT_FALSE(log().empty()) << "all that waited is taken now";
    alarm();
    EXPECT_THAT(logTexts(),
                Contains("3: lines dropped because the system log did not take them: 1"));
    while (resets < 420 &&
           !HasFailure()) { // what the daemon itself has sent is more than a socket's buffer takes
        alarm();
    }
    fillLog();
    EXPECT_EQ(stop(daemon).code(), 0);
}

/// Nobody would learn that there is one.
TEST_F(RunMode, aStarterThatCannotWaitTakesTheDaemonAlong) {
    const std::string calls = root() + "/calls";
    EXPECT_EQ(run({"strace", "-o", calls, "-e", "trace=alarm,rt_sigsuspend", "-e",
                   "inject=rt_sigsuspend:error=EIO", TAV_SIM, "--root", root(), "--"})
                  .code(),
              1);
    EXPECT_THAT(endOfChildren(), ElementsAre(0));
    EXPECT_THAT(contentOf(calls), HasSubstr("alarm(3) ")) << "for the daemon's answer";
    EXPECT_THAT(logTexts(), Contains(HasSubstr("unable to wait for the daemon")));
}

TEST_F(RunMode, aLongPassOfTheDaemonLetsItsHeartbeatIn) {
    shell("for i in $(seq 20); do ip tuntap add tav2$i mode tap;"
          "ip addr add 10.2.$i.1/24 dev tav2$i; done");
    const pid_t daemon = startDaemon(
        {"--machine", "nic", "--watchdog", "240", "--speed", "500", "--fault", "60+:slow=1000"});
    awaitTrace("Reset Watchdog Timer", 2);
    const std::string all = trace();
    const auto second = [&all](const char* text) { return all.find(text, all.find(text) + 1); };
    EXPECT_LT(second("Reset Watchdog Timer"), second("read conf_boot_watchdog_enable"));
    shell("for i in $(seq 20); do ip link del tav2$i; done");
    EXPECT_EQ(stop(daemon).code(), 0);
}

TEST_F(RunMode, anErrorOfTheInventoryEndsTheDaemonWithFailure) {
    shell("ip addr add 10.0.0.2/24 dev tav0");
    // The starter may see the daemon's answer or its end first.
    EXPECT_THAT(runSim({}, {}).code(), AnyOf(0, 1));
    EXPECT_THAT(endOfChildren(), ElementsAre(1));
    shell("ip addr del 10.0.0.2/24 dev tav0");
    EXPECT_EQ(contentOf(pidFile()), "");
    EXPECT_THAT(logTexts(), AllOf(Contains(HasSubstr("if entry for tav0 is already existing.")),
                                  Not(Contains(HasSubstr("unable to remove")))));
}

TEST_F(RunMode, aStartThatComesToNothingSaysSo) {
    const std::string runFolder = root() + "/var/run";
    const std::string null = root() + "/null";
    const struct {
        std::string prepare, cleanUp;
        int code, daemonsCode;
        const char* logged;
    } cases[] = {
        {"ln -s /nowhere/pid " + pidFile(), "rm " + pidFile(), 1, 1,
         "3: unable to write the pid file"},
        {"mount -t tmpfs -o size=4k,nr_inodes=3 tmpfs " + runFolder +
             "; head -c 4096 /dev/zero > " + runFolder + "/filler",
         "test $(ls " + runFolder + ") = filler; umount " + runFolder, 1, 1,
         "3: unable to write the pid file, code 28 (No space left on device)"},
        // A daemon that is held up: its starter waits three seconds.
        {"mkfifo " + null + "; mount --bind " + null + " /dev/null", "umount /dev/null", -SIGALRM,
         -SIGKILL, "6: starting"},
    };
    shell("mkdir -p " + runFolder);
    for (const auto& one : cases) {
        SCOPED_TRACE(one.prepare);
        shell(one.prepare);
        EXPECT_EQ(runSim({}, {}).code(), one.code);
        if (one.daemonsCode == -SIGKILL) {
            ::kill(anyChild().value(), SIGKILL);
        }
        EXPECT_THAT(endOfChildren(), ElementsAre(one.daemonsCode));
        EXPECT_THAT(logTexts().back(), HasSubstr(one.logged));
        shell(one.cleanUp);
    }
    const End ofInit = run({"unshare", "--pid", "--fork", "sh", "-c",
                            std::string(TAV_SIM) + " --root " + root() + " -- & wait $!"});
    EXPECT_EQ(ofInit.code(), 1);
    EXPECT_THAT(logTexts().back(), HasSubstr("run tav_init -n"));
    EXPECT_EQ(contentOf(pidFile()), "");
    EXPECT_THAT(logTexts().back(), HasSubstr("3: process 1 does not wait for the daemon"));
}

TEST_F(RunMode, closedStandardStreamsDoNoHarm) {
    const std::string sim =
        std::string(TAV_SIM) + " --trace " + root() + "/stdout --root " + root();
    EXPECT_EQ(run({"sh", "-c", "exec " + sim + " -- -s <&- >&- 2>&-"}).code(), 0);
    EXPECT_EQ(conversation(), kept("plain"));
    EXPECT_EQ(run({"sh", "-c", "exec " + sim + " -- <&- >&- 2>&-"}).code(), 0);
    const pid_t pid = daemon();
    EXPECT_EQ(contentOf(pidFile()), std::to_string(pid) + "\n");
    EXPECT_EQ(stop(pid).code(), 0);
    const std::string calls = root() + "/calls";
    run({"strace", "-o", calls, "-e", "write", "sh", "-c", "exec $0 -x <&- >&- 2>&-", TAV_INIT});
    EXPECT_THAT(contentOf(calls), AllOf(HasSubstr("write(2, \"Usage"), Not(HasSubstr("EBADF"))));
}

/// Ten seconds at the most, twice as fast. The exchanges of the end alone would take four times
/// five seconds.
TEST_F(RunMode, aDeadBmcDoesNotHoldUpTheEnd) {
    for (const char* mode : {"-n", ""}) {
        clearTrace();
        std::vector<std::string> agent;
        if (*mode != '\0') {
            agent.emplace_back(mode);
        }
        pid_t pid = startSim({"--speed", "2", "--fault", "23+:silent", "--watchdog", "300"}, agent);
        awaitTrace("no answer", 1);
        if (*mode == '\0') {
            EXPECT_EQ(await(pid).code(), 0);
            pid = daemon();
        }
        const End end = stop(pid);
        EXPECT_EQ(end.code(), *mode == '\0' ? 0 : 1);
        EXPECT_LT(end.took, std::chrono::seconds(9)) << trace();
    }
}

TEST(SystemClock, waitsAsLongAsItIsTold) {
    AgentClock& clock = agentClock();
    const auto start = clock.monotonic();
    const auto second = std::chrono::seconds(1);
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    ::pthread_mutex_lock(&mutex);
    EXPECT_EQ(clock.waitForCondition(condition, mutex, 1), ETIMEDOUT);
    EXPECT_GE(clock.monotonic() - start, second);
    errno = EIO; // of something else
    EXPECT_EQ(clock.waitForSignal(1, agentSignals::maskLettingIn({})), 0);
    EXPECT_GE(clock.monotonic() - start, 2 * second);
    const agentSignals::Hold hold;
    ASSERT_TRUE(agentSignals::install([](int) {}, {SIGALRM}));
    clock.alarm(1);
    EXPECT_EQ(clock.waitForSignal(100, agentSignals::maskLettingIn({SIGALRM})), 0);
    EXPECT_LT(clock.monotonic() - start, 50 * second);
}

} // namespace
