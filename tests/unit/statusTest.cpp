#include "PniAccess.h"
#include "rig.h"
#include "statusCheck.h"
#include "statusForms.h"
#include "statusText.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

using tavStatus::collectStatus;
using tavStatus::Finding;
using tavStatus::Form;
using tavStatus::Reach;
using tavStatus::SlotState;
using tavStatus::Status;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr unsigned char smsOs = 4;
constexpr unsigned char hardReset = 1;

/// A host with one address and an agent at work, by a folder that stands for /proc.
class StatusOfServer : public Rig {
  public:
    StatusOfServer() {
        shell("ip tuntap add tav0 mode tap");
        shell("ip addr add 192.0.2.1/24 dev tav0");
        setVariable(522, "192.0.2.1");
        places.processes = std::filesystem::path(paths.pidFile).parent_path() / "proc";
        places.modules = places.processes;
        places.units = places.processes;
        addProcess("17", "17 (tav_init) S 1 ");
        writeFile(places.processes + "/17/cgroup", "0::/system.slice/tav_init.service\n");
        writeFile(paths.pidFile, "17\n");
    }
    ~StatusOfServer() override { removeInterfaces(); }

    void addProcess(const std::string& number, const std::string& stat) const {
        std::filesystem::create_directories(places.processes + "/" + number);
        writeFile(places.processes + "/" + number + "/stat", stat);
    }
    /// Starts it with 1,000 seconds to go.
    void startTimer(unsigned char use, unsigned char action, unsigned char clearExpired = 0) {
        bmc.watchdog.set(std::vector<unsigned char>{use, action, 0, clearExpired, 0x10, 0x27});
        bmc.watchdog.reset({});
    }
    /// As "KEY severity".
    std::vector<std::string> findings() {
        std::vector<std::string> keys;
        for (const Finding& finding : findingsIn(collectStatus(places))) {
            keys.push_back(finding.key + std::string(" ") + severityText(finding.severity));
        }
        return keys;
    }

    tavStatus::HostPlaces places;
};

/// None of these changes anything in a BMC.
bool onlyReads(const std::string& request) {
    static const std::set<std::string> commands = {"06/01", "06/25", "0a/11", "30/18", "30/55",
                                                   "30/75", "30/80", "30/81", "30/e1", "30/e3",
                                                   "30/e8", "30/f0", "34/40"};
    static const std::set<std::string> framed = {"2e/02: d9 7e 00 08", "2e/e0: d9 7e 00 01",
                                                 "2e/f5: d9 7e 00 12"};
    return commands.contains(request.substr(0, 5)) || framed.contains(request.substr(0, 18));
}

/// All that the pattern's group matches in a text.
std::set<std::string> namesIn(const std::string& text, const char* pattern) {
    std::set<std::string> names;
    const std::regex expression(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
         ++match) {
        names.insert((*match)[1]);
    }
    return names;
}

/// The chapter of docs/status.md with this heading.
std::string chapter(const std::string& heading) {
    std::ifstream file(TAV_STATUS_DOCS);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t begin = text.find("\n## " + heading + "\n");
    EXPECT_NE(begin, std::string::npos) << heading;
    return text.substr(begin, text.find("\n## ", begin + 1) - begin);
}

TEST_F(StatusOfServer, onlyReadsAndAsksNothingTwice) {
    for (const char* machine : {"plain", "blade", "old-blade", "kestrelbox", "nic", "nic-blade"}) {
        become(machine);
        exchanges.clear();
        const Status status = collectStatus(places);
        EXPECT_THAT(findingsIn(status), testing::IsEmpty()) << machine << checkText(status);
        EXPECT_THAT(requests(), testing::Each(testing::Truly(onlyReads))) << machine;
        const std::vector<std::string> asked = requests();
        EXPECT_EQ(std::set(asked.begin(), asked.end()).size(), asked.size()) << machine;
        EXPECT_EQ(status.bmc.answers, asked.size());
        EXPECT_EQ(status.bmc.portRecord.has_value(), std::string(machine).starts_with("nic"));
    }
    bmc.agentConnection.connected = false; // as it stays after the agent's first end
    EXPECT_THAT(statusText(collectStatus(places)),
                testing::AllOf(testing::StartsWith("OK: the BMC answers, agent 17 runs, 1 of 1"),
                               HasSubstr("not connected (only the agent's going is announced)"),
                               HasSubstr("tav_init 17 of tav_init.service"),
                               HasSubstr("fe80::10/64, IPv6 link-local"),
                               HasSubstr("checksums: header right, body right")));
}

TEST_F(StatusOfServer, tellsWhatIsWrongInEachSituation) {
    const unsigned char nicMac[] = {2, 0, 0, 0, 0, 0x11};
    struct Situation {
        std::function<void()> arrange;
        std::vector<std::string> findings;
    };
    const Situation situations[] = {
        {[&] { setVariable(523, "10.9.9.9"); }, {"slot_stale WARNING"}},
        {[&] { setVariable(522, "0.0.0.0"); }, {"slot_missing WARNING", "slot_stale WARNING"}},
        {[&] { bmc.confSpace.values.erase(522); },
         {"slot_unreadable WARNING", "slot_stale WARNING"}},
        {[&] {
             setVariable(522, "192.0.2.1");
             setVariable(523, "0.0.0.0");
             addProcess("17", "17 (tav_trace) S 1 ");
         },
         {}},
        {[&] { setVariable(66, "enabled"); }, {"watchdog_not_kept CRITICAL"}},
        {[&] { startTimer(smsOs, 0); }, {}},
        {[&] { startTimer(smsOs, hardReset); },
         {"foreign_timer CRITICAL", "watchdog_not_kept CRITICAL"}},
        {[&] {
             setVariable(66, "disabled");
             addProcess("18", "18 (bmc-watchdog) S 1 ");
         },
         {"foreign_timer WARNING", "two_owners WARNING"}},
        {[&] { addProcess("17", "17 (tav_init) Z 1 "); },
         {"foreign_timer WARNING", "stale_pid_file WARNING", "agent_not_running WARNING"}},
        {[&] { clock.now += std::chrono::hours(1); },
         {"watchdog_expired WARNING", "stale_pid_file WARNING", "agent_not_running WARNING"}},
        {[&] {
             startTimer(smsOs, 0, 1U << smsOs);
             setVariable(66, "enabled");
             addProcess("17", "17 (tav_init) S 1 ");
         },
         {"two_owners WARNING"}},
        {[&] {
             setVariable(66, "disabled");
             addProcess("18", "18 (bmc-watchdog) Z 1 ");
             become("nic");
             shell("ip link set tav0 address 02:00:00:00:00:11");
         },
         {"port_missing WARNING"}},
        {[&] { PniAccess().setIpv4Address(MacAddress(nicMac), IPv4Address("10.0.0.1")); },
         {"port_stale WARNING"}},
        {[&] { PniAccess().setIpv4Address(MacAddress(nicMac), IPv4Address("192.0.2.1")); }, {}},
        {[&] { bmc.fru->image[40] ^= 1U; }, {"port_record_unsound WARNING"}},
        {[&] { bmc.fru->image[1] = 0xFF; }, {"port_record_unsound WARNING"}},
        {[&] { bmc.confSpace.values.erase(512); },
         {"no_configuration_space CRITICAL", "port_record_unsound WARNING"}},
        {[&] {
             become("plain");
             setVariable(512, "room 1");
             goWrong("3-4:cc=0xCC");
         },
         {"maker_refused CRITICAL"}},
        {[&] { goWrong("3-4:cc=0xC0"); }, {"maker_unknown UNKNOWN"}},
        {[&] { goWrong("3-4:cc=0xD5"); }, {"maker_unknown UNKNOWN"}},
        {[&] { goWrong("3-4:cc=0xC3"); }, {"bmc_silent CRITICAL"}},
        {[&] { goWrong("3-4:cc=0xFF"); }, {"bmc_silent CRITICAL"}},
        {[&] { goWrong("3-4:length=1"); }, {"no_configuration_space CRITICAL"}},
        {[&] { goWrong("1:cc=0xC3"); }, {"bmc_silent CRITICAL"}},
        {[&] { goWrong("1:cc=0xC1"); }, {"no_identity CRITICAL"}},
        {[&] { goWrong("1:length=12"); }, {"no_identity CRITICAL"}},
        {[&] { goWrong("1:length=17"); }, {"no_identity CRITICAL"}},
        {[&] { goWrong("1:bytes=81@3"); }, {"bmc_updating WARNING"}},
        {[&] { goWrong("3:errno=EIO@send"); }, {"driver_fails CRITICAL"}},
        {[&] { goWrong("1+:slow=700"); }, {"bmc_slow UNKNOWN"}},
        {[&] { goWrong("1+:errno=EACCES@open"); }, {"device_denied UNKNOWN"}},
        {[&] {
             device.behave();
             shell("ip addr add 192.0.2.2/24 dev tav0");
         },
         {"no_inventory CRITICAL"}},
        {[&] { device.setNodePresent(false); }, {"no_device UNKNOWN"}},
    };
    std::set<std::string> keys;
    for (int number = 0; const Situation& situation : situations) {
        situation.arrange();
        EXPECT_EQ(findings(), situation.findings) << "situation " << number;
        ++number;
        for (const std::string& finding : situation.findings) {
            keys.insert(finding.substr(0, finding.find(' ')));
        }
    }
    EXPECT_EQ(namesIn(chapter("Findings"), R"(`(\w+)`(?=[^|\n]*\| (WARNING|CRITICAL|UNKNOWN) ))"),
              keys);
}

/// Names that programs rely on are those in the documentation, all of them.
TEST_F(StatusOfServer, tellsProgramsWhatIsDocumented) {
    become("nic-blade");
    setVariable(522, "10.9.9.9"); // for a finding
    const Status status = collectStatus(places);
    EXPECT_EQ(namesIn(jsonText(status), R"re("(?!conf_)(\w+)": )re"),
              namesIn(chapter("--json"), "`(\\w+)`"));
    std::set<std::string> names = namesIn(metricsText(status), "# TYPE (\\w+)");
    names.merge(namesIn(metricsText(status), R"re([{,](\w+)=")re"));
    EXPECT_EQ(names, namesIn(chapter("--metrics"), "`(\\w+)`"));
}

TEST_F(StatusOfServer, saysWhoseTheTimerIsAsFarAsThatIsKnown) {
    const std::pair<std::function<void()>, const char*> situations[] = {
        {[&] { startTimer(smsOs, 0); }, "the agent or another program (SMS/OS"},
        {[&] { setVariable(66, "enabled"); }, "the agent (SMS/OS"},
        {[&] { addProcess("18", "18 (bmc-watchdog) S 1 "); },
         "the agent or another program (SMS/OS"},
        {[&] { addProcess("17", "17 (tav_init) Z 1 "); },
         "an agent that is gone or another program (SMS/OS"},
    };
    for (const auto& [arrange, owner] : situations) {
        arrange();
        EXPECT_THAT(statusText(collectStatus(places)),
                    HasSubstr("\n  owner             " + std::string(owner)));
    }
}

/// What was only begun to be asked is not shown.
TEST_F(StatusOfServer, endsInTimeWhateverTheBmcDoes) {
    become("nic-blade");
    const std::size_t ports = collectStatus(places).bmc.blade->ports.size();
    const std::pair<const char*, Reach> ways[] = {
        {"1+:silent", Reach::silent},  {"1+:slow=100", Reach::slow}, {"1+:slow=150", Reach::slow},
        {"1+:slow=700", Reach::slow},  {"9+:silent", Reach::silent}, {"1+:slow=480", Reach::slow},
        {"1+:slow=4700", Reach::slow}, {"20+:silent", Reach::silent}};
    for (const auto& [fault, reach] : ways) {
        goWrong(fault);
        exchanges.clear();
        const auto begin = clock.now;
        const Status status = collectStatus(places);
        EXPECT_EQ(status.bmc.reach, reach) << fault;
        EXPECT_LE(clock.now - begin, std::chrono::seconds(10)) << fault;
        EXPECT_FALSE(status.bmc.portRecord) << fault;
        EXPECT_EQ(status.bmc.blade ? status.bmc.blade->ports.size() : ports, ports) << fault;
        EXPECT_THAT(statusText(status), testing::Not(HasSubstr("no blade"))) << fault;
        EXPECT_EQ(metricsText(status).find("tav_watchdog_wanted ") == std::string::npos,
                  !status.bmc.confSpace.contains(66))
            << fault;
        const auto silent = std::ranges::count_if(
            exchanges, [](const sim::Exchange& exchange) { return !exchange.response; });
        EXPECT_LE(silent, 1) << fault;
    }
}

TEST_F(StatusOfServer, slotsGoToTheFirstFourInterfaces) {
    addInterfaces(4);
    setVariable(524, "10.0.2.1");
    setVariable(525, "198.51.100.9");
    const Status status = collectStatus(places);
    std::vector<SlotState> states;
    for (const tavStatus::Slot& slot : status.slots) {
        states.push_back(slot.state);
    }
    EXPECT_THAT(states, ElementsAre(SlotState::right, SlotState::missing, SlotState::right,
                                    SlotState::stale));
    ASSERT_EQ(status.withoutSlot.size(), 1U);
    EXPECT_THAT(
        statusText(status),
        testing::AllOf(HasSubstr("198.51.100.9      stale       should be 10.0.3.1 of tav3"),
                       HasSubstr("10.0.4.1          more than fit  tav4")));
    EXPECT_EQ(showStatus(status, Form::check).exitStatus, 1);
}

TEST_F(StatusOfServer, readsARecordAgainThatIsJustBeingWritten) {
    become("nic");
    std::optional<tavIpmi::TavIpmi> agent;
    agent.emplace(0, 0, tavIpmi::TavIpmi::ipmiSystemInterface);
    EXPECT_TRUE(agent->tryLock());
    bmc.fru->image[40] ^= 1U;
    clock.onPause = [&](auto) {
        if (agent) {
            bmc.fru->image[40] ^= 1U;
            agent.reset();
        }
    };
    EXPECT_THAT(findings(), testing::IsEmpty());
    EXPECT_FALSE(agent);
}

/// The sanitizers look on.
TEST_F(StatusOfServer, noAnswerBringsItDown) {
    become("nic-blade");
    collectStatus(places);
    const std::size_t whole = exchanges.size();
    for (std::size_t number = 1; number <= whole; ++number) {
        for (const char* what : {"length=1", "length=3", "length=7", "length=17", "length=273",
                                 "bytes=ff@1", "bytes=ffffffffffff@2", "foreign-id", "events=5"}) {
            goWrong(std::to_string(number) + ":" + what);
            const Status status = collectStatus(places);
            for (const Form form : {Form::text, Form::json, Form::metrics, Form::check}) {
                EXPECT_NE(showStatus(status, form).text, "") << number << " " << what;
            }
        }
    }
}

/// A maker of another number gets no command that might mean something else to its BMC; and what
/// its administrators wrote into texts need not be UTF-8.
TEST_F(StatusOfServer, isCarefulWithWhatItDoesNotKnow) {
    goWrong("3-4:cc=0xCC");
    const Status refused = collectStatus(places);
    EXPECT_EQ(exchanges.size(), 4U);
    EXPECT_EQ(showStatus(refused, Form::json).exitStatus, 0);
    goWrong("3-4:cc=0xC0");
    exchanges.clear();
    EXPECT_THAT(statusText(collectStatus(places)),
                testing::AllOf(HasSubstr("; unknown whether it answers to this build's number, "),
                               HasSubstr("tavd.service is not enabled")));
    const std::string wants = places.units + "/dev-ipmi0.device.wants";
    std::filesystem::create_directory(wants);
    std::filesystem::create_symlink("/nonexistent", wants + "/tavd.service");
    EXPECT_EQ(exchanges.size(), 4U);
    goWrong("1:length=12");
    EXPECT_THAT(
        jsonText(collectStatus(places)),
        testing::AllOf(HasSubstr("\"auxiliary\": [],"), HasSubstr("\"service_enabled\": true")));
    become("blade");
    goWrong("6:cc=0xC9"); // the first LAN port: the agent asks for no other
    EXPECT_THAT(collectStatus(places).bmc.blade->ports, testing::IsEmpty());
    device.behave();
    bmc.confSpace.values[513] = {'a', 0xFF, '"', '\n'};
    bmc.confSpace.values[67] = {1};
    const std::string json = jsonText(collectStatus(places));
    EXPECT_THAT(json, HasSubstr("\"conf_system_name\": \"a\xEF\xBF\xBD\\\"\\n\""));
    EXPECT_THAT(json, HasSubstr("\"conf_soft_watchdog_time\": [\n      1\n    ]"));
}

} // namespace
