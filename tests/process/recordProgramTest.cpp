// Recording and replaying with the real programs: each in a process of its own.

#include "programs.h"

#include <filesystem>
#include <fstream>
#include <regex>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Words = std::vector<std::string>;

class Recording : public Programs {
  public:
    std::string file(const std::string& name) const { return root() + "/" + name; }
    std::string record() const { return file("record"); }

    /// What was said since the last look, without the times, and without what comes behind.
    std::string conversation() {
        const std::string said = std::regex_replace(trace(), std::regex(" *[0-9.]+ s(?=  #)"), "");
        clearTrace();
        return said.substr(0, said.find("\n\n"));
    }

    End replay(const Words& agent) { return runSim({"--replay", record()}, agent); }

    /// Waits until the record has this.
    void awaitInRecord(const std::string& text) const {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (contentOf(record()).find(text) == std::string::npos) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << trace();
            ::usleep(1000);
        }
    }

    int exchangesInRecord() const {
        const std::string content = contentOf(record());
        return std::stoi(content.substr(content.find("\nend ") + 5));
    }

    /// Replaces the first match in the record.
    void change(const std::string& pattern, const std::string& by) const {
        const std::string changed = std::regex_replace(contentOf(record()), std::regex(pattern), by,
                                                       std::regex_constants::format_first_only);
        std::ofstream(record()) << changed;
    }
};

TEST_F(Recording, ofEveryMachineReplays) {
    for (const char* machine : {"plain", "blade", "old-blade", "kestrelbox", "nic", "nic-blade"}) {
        const bool adapter = std::string(machine).starts_with("nic");
        shell(std::string("ip link set tav0 address 02:00:00:00:00:") + (adapter ? "12" : "02"));
        for (const char* more : {"--quiet", "--mask"}) {
            SCOPED_TRACE(std::string(machine) + " " + more);
            // So many addresses that a port's function has to grow.
            shell("for i in $(seq 12); do ip address add 2001:db8::$i/64 dev tav0 nodad; done");
            EXPECT_EQ(runSim({"--machine", machine, "--record", record(), more}, {"-s"}).code(), 0);
            shell("ip -6 address flush dev tav0");
            const std::string said = conversation();
            EXPECT_EQ(replay({"-s"}).code(), 0);
            const std::string replayed = conversation();
            EXPECT_THAT(replayed, HasSubstr("= 10."));
            if (more == std::string("--mask")) {
                EXPECT_EQ(replayed, said);
                EXPECT_THAT(contentOf(record()), Not(HasSubstr("10.0.0.1")));
            }
        }
    }
}

TEST_F(Recording, ofTheLastingModesReplays) {
    const std::tuple<const char*, Words, int> modes[] = {
        {"plain", {"-n"}, 1}, {"kestrelbox", {"-n"}, 1}, {"kestrelbox", {}, 0}, {"nic", {}, 0}};
    for (const auto& [machine, agent, code] : modes) {
        SCOPED_TRACE(std::string(machine) + (agent.empty() ? "" : " -n"));
        ::unlink(record().c_str());
        const pid_t started = startSim({"--machine", machine, "--watchdog", "240", "--speed", "60",
                                        "--record", record(), "--fault", "90:silent"},
                                       agent);
        EXPECT_TRUE(agent.empty() ? await(started).code() == 0 : true);
        awaitInRecord("\nE 140 ");
        EXPECT_EQ(stop(agent.empty() ? daemon() : started).code(), code);
        const std::string said = conversation();
        EXPECT_THAT(contentOf(record()), HasSubstr("\nS "));
        constexpr std::size_t mostBytes = 25000000 / 130000; // a busy server's day
        EXPECT_LT(contentOf(record()).size() / static_cast<std::size_t>(exchangesInRecord()),
                  mostBytes);
        EXPECT_EQ(replay(agent).code(), code);
        EXPECT_THAT(endOfChildren(), testing::Each(code));
        EXPECT_EQ(conversation(), said);
    }
}

/// A second address on an interface ends the work, and with it all that the record has to tell: the
/// foreground's entry waits for a signal.
TEST_F(Recording, thatHasNothingMoreToTellHoldsNoReplayUp) {
    const struct {
        Words options, agent;
        int signal, code;
        const char *last, *error;
    } cases[] = {
        {{"--machine", "plain"}, {"-n"}, SIGKILL, 4, "disconnect -> ok", "was cut off behind line"},
        {{"--machine", "kestrelbox", "--no-device"}, {"-n"}, SIGTERM, 1, "\nE 19 ", ""},
    };
    shell("ip address add 10.0.0.2/24 dev tav0");
    for (auto [options, agent, signal, code, last, error] : cases) {
        ::unlink(record().c_str());
        options.insert(options.end(), {"--record", record()});
        const pid_t started = startSim(options, agent);
        awaitInRecord(last);
        stop(started, signal);
        const std::string said = conversation();
        const End end = replay(agent);
        EXPECT_EQ(end.code(), code);
        EXPECT_THAT(end.error, HasSubstr(error));
        EXPECT_EQ(conversation(), said);
    }
    shell("ip address delete 10.0.0.2/24 dev tav0");
}

/// Its replay has a pid file of its own, which goes with it.
TEST_F(Recording, ofADaemonThatWasKilledLeavesNoPidFile) {
    EXPECT_EQ(runSim({"--watchdog", "240", "--speed", "60", "--record", record()}, {}).code(), 0);
    awaitInRecord("\nE 60 ");
    stop(daemon(), SIGKILL);
    EXPECT_EQ(run({"env", "TMPDIR=" + root(), TAV_SIM, "--replay", record()}).code(), 4);
    EXPECT_THAT(endOfChildren(), testing::Each(4));
    EXPECT_FALSE(std::filesystem::exists("/var/run/tavd.pid"));
    for (const auto& entry : std::filesystem::directory_iterator(root())) {
        EXPECT_NE(entry.path().extension(), ".pid");
    }
}

/// Made on the demo's machines, and once in a virtual machine on the real driver.
TEST_F(Recording, thatWasKeptReplays) {
    int records = 0;
    for (const auto& entry : std::filesystem::directory_iterator(TAV_RECORDS)) {
        SCOPED_TRACE(entry.path());
        const std::string content = contentOf(entry.path());
        Words agent;
        for (const char* mode : {"-n", "-s", "-t"}) {
            if (content.find(std::string("\noptions \"") + mode) != std::string::npos) {
                agent.emplace_back(mode);
            }
        }
        const bool foreground = !agent.empty() && agent[0] == "-n";
        EXPECT_EQ(runSim({"--replay", entry.path()}, agent).code(), foreground ? 1 : 0);
        endOfChildren();
        EXPECT_THAT(trace(), HasSubstr("Replayed as recorded"));
        clearTrace();
        ++records;
    }
    EXPECT_GE(records, 8);
}

TEST_F(Recording, thatDoesNotFitSaysWhere) {
    const struct {
        const char *pattern, *by;
        int code;
        const char* error;
    } cases[] = {
        {"(E 10 .*E0 )D97E", "$1D97F", 3, "line 20: the agent asks something else\n  recorded: "},
        {"bmc (24 0)|bmc 06 0 24", "bmc 06 1 24", 3, "LUN 1, command 0x24"},
        {"interface 2 \"tav0\"(.*)10.0.0.1/", "interface 2 \"tav0\"$0110.0.0.2/", 3, "10.0.0.1"},
        {"\nend 24\n", "\nE 25 9.000 0.000 bmc 06 0 01 - > C1 ; \nend 25\n", 3,
         "line 35: the agent has ended without asking"},
        {"\nE 24 [^]*", "\nend 23\n", 3, "behind its end, line 34: the agent asks"},
        {"\nE 20 [^]*", "\nE 20 0.0", 4, "was cut off behind line 29; replayed up to there"},
        {"\nend 24\n", "\n", 4, "was cut off behind line 34; replayed up to there, exchanges: 24"},
        {"\nE 20 ", "\nE 21 ", 2, "line 30: is not exchange 20"},
        {"#tav-record 1", "#tav-record 7", 2, "version '7'; only version 1"},
        {"maker 32473", "maker 12345", 0, "by an agent for the maker's number 12345; this one is"},
        {"[^]*", "", 2, "is empty"},
    };
    EXPECT_EQ(runSim({"--record", record()}, {"-s"}).code(), 0);
    const std::string whole = contentOf(record());
    for (const auto& [pattern, by, code, error] : cases) {
        std::ofstream(record()) << whole;
        change(pattern, by);
        const End end = replay({"-s"});
        EXPECT_EQ(end.code(), code) << pattern;
        EXPECT_THAT(end.error, HasSubstr(error)) << pattern;
    }
    shell("truncate -s 1G " + record());
    const End end = replay({"-s"});
    EXPECT_EQ(end.code(), 2);
    EXPECT_THAT(end.error, HasSubstr("line 1: longer than any of a record"));
    EXPECT_THAT(runSim({"--replay", root()}, {"-s"}).error, HasSubstr(": Is a directory"));
}

TEST_F(Recording, thatCannotBeWrittenHoldsNobodyUp) {
    const struct {
        Words options;
        int code;
        std::string error;
    } cases[] = {
        {{"--machine", "nic", "--record", file("small/one")},
         0,
         "recording stopped: " + file("small/one: No space")},
        {{"--machine", "nic", "--pcap", file("small/one")},
         0,
         "packets stopped: " + file("small/one: No space left")},
        {{"--record", "/nowhere/at/all"}, 0, "recording stopped: /nowhere/at/all: No such file"},
        {{"--record", file("one"), "--pcap", file("one")}, 2, "is being written already"},
        {{"--record", file("stdout")}, 2, "is where standard output"},
        {{"--record", file("new"), "--trace", file("new")}, 2, "is where the trace goes"},
        {{"--record", file("one"), "--replay", file("one")}, 2, "is being replayed"},
    };
    shell("mkdir " + file("small") + "; mount -t tmpfs -o size=4k tmpfs " + file("small"));
    for (const auto& [options, code, error] : cases) {
        std::ofstream(file("one")) << "";
        const End end = runSim(options, {"-s"});
        EXPECT_EQ(end.code(), code) << error;
        EXPECT_THAT(end.error, HasSubstr(error));
        if (code == 0) {
            EXPECT_EQ(std::ranges::count(end.error, '\n'), 1);
            EXPECT_THAT(trace(), HasSubstr("= 10.0.0.1"));
        }
        clearTrace();
    }
    shell("umount " + file("small"));
}

/// There is no device here; the file that ends too early is the limit's doing.
TEST_F(Recording, ofTheRealDeviceWorksAlike) {
    EXPECT_EQ(run({TAV_TRACE, "-o", record(), "--pcap", file("pcap"), "-s"}).code(), 1);
    EXPECT_THAT(trace(), HasSubstr("Open of the device node"));
    for (const char* const written : {"record", "pcap"}) {
        EXPECT_EQ(std::filesystem::status(file(written)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
    EXPECT_THAT(contentOf(record()), AllOf(HasSubstr("program \"tav_trace "),
                                           HasSubstr("fail open ENOENT ; "), HasSubstr("\nend ")));
    clearTrace();
    EXPECT_EQ(replay({"-s"}).code(), 1);
    EXPECT_THAT(trace(), HasSubstr("Replayed as recorded"));
    clearTrace();
    run({"sh", "-c", "(ulimit -f 1; exec " TAV_TRACE " -o " + record() + " -- -t) 2>&1 | cat"});
    EXPECT_THAT(trace(), AllOf(HasSubstr("recording stopped: "), HasSubstr("Open of")));
}

/// The entry would take the watchdog timer over before it finds that it does not know an option.
TEST_F(Recording, doesNotBeginWithAWrongOption) {
    const struct {
        Words options;
        int code;
        const char* error;
    } cases[] = {
        {{"-o"}, 2, "-o needs a value"},
        {{"--recrod", "file"}, 2, "unknown option '--recrod'"},
        {{"-s", "--msak"}, 2, "unknown option '--msak'"},
        {{"-s", "-o", "file"}, 2, "'-o' has to stand before the agent's options"},
        {{"--mask", "--", "--version"}, 2, "'--version' has to stand"},
        {{"--version"}, 0, ""},
    };
    for (const auto& [options, code, error] : cases) {
        Words command = {TAV_TRACE};
        command.insert(command.end(), options.begin(), options.end());
        const End end = run(command);
        EXPECT_EQ(end.code(), code) << error;
        EXPECT_THAT(end.error, HasSubstr(error));
        EXPECT_THAT(trace(), Not(HasSubstr("Open of")));
    }
    EXPECT_EQ(run({TAV_SIM, "--version"}).code(), 0);
    EXPECT_THAT(trace(), testing::MatchesRegex("tav_trace [0-9.]+\ntav_sim [0-9.]+\n"));
}

/// Every standard command has its name there, every answer its request, and all checksums are
/// right.
TEST_F(Recording, isUnderstoodByWireshark) {
    EXPECT_EQ(runSim({"--machine", "kestrelbox", "--speed", "100", "--pcap", file("pcap"),
                      "--record", record(), "--fault", "9:silent"},
                     {"-s"})
                  .code(),
              0);
    clearTrace();
    EXPECT_EQ(
        run({"tshark", "-n", "-o", "ipmi.dissect_bus_commands:TRUE", "-V", "-r", file("pcap")})
            .code(),
        0);
    const std::string seen = trace();
    const auto count = [&seen](std::string_view text) {
        int found = 0;
        for (auto at = seen.find(text); at != std::string::npos; at = seen.find(text, at + 1)) {
            ++found;
        }
        return found;
    };
    const int exchanges = exchangesInRecord();
    EXPECT_EQ(count("Version: 0x06"), 2 * exchanges - 1) << "one was not answered";
    EXPECT_EQ(count("[Response to: "), exchanges - 1);
    EXPECT_EQ(count("Command: Get Watchdog Timer"), 2);
    EXPECT_EQ(count("Command: Set Watchdog Timer"), 2);
    EXPECT_EQ(count("Command: Send Message"), 4);
    EXPECT_EQ(count("Embedded message: Req, Platform Event"), 2);
    EXPECT_EQ(count("Embedded message: Rsp, Platform Event, Command Completed"), 2);
    EXPECT_EQ(count("incorrect") + count("Malformed"), 0);
}

} // namespace
