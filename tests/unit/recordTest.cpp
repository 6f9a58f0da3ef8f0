// Records of conversations: what the recording device tells, the text, and the replay.

#include "agentSignals.h"
#include "instantDevice.h"
#include "outputFile.h"
#include "recordFile.h"
#include "recordMask.h"
#include "recorder.h"
#include "recordingDevice.h"
#include "replayDevice.h"
#include "rig.h"
#include "tavIpmi.h"
#include "tavServerInfo.h"
#include "trace.h"

#include <array>
#include <csignal>
#include <fstream>
#include <numeric>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

using sim::Exchange;
using testing::HasSubstr;
using testing::Not;

namespace {

class Record : public Rig {
  public:
    Record() {
        shell("ip tuntap add tav0 mode tap; ip address add 192.0.2.7/24 dev tav0;"
              "ip link set tav0 address 02:00:00:00:00:02");
    }
    ~Record() override { removeInterfaces(); }

    /// One pass of the agent in a process of its own, told of as lines of a record.
    std::string pass(IpmiDevice& underneath) {
        std::string lines;
        const auto start = agentsClock->monotonic();
        sim::RecordingDevice recording(
            underneath, [this] { return agentsClock->monotonic(); }, [] {},
            [&](const Exchange& exchange) { lines += sim::recordLine(exchange, start); });
        agentsDevice = &recording;
        try {
            const TavServerInfo once(TavServerInfo::run_mode_once);
        } catch (const std::exception&) {
            // without an answer to its first questions
        }
        agentsDevice = &device;
        return lines;
    }
};

/// Whatever happens at the device, and whoever the machine is: what is told is what the device
/// itself knows, it survives being written and read, and it replays.
TEST_F(Record, ofAPassIsWhatHappenedAndReplays) {
    for (const char* machine : {"plain", "blade", "old-blade", "kestrelbox", "nic", "nic-blade"}) {
        for (const char* fault :
             {"100:silent", "1+:silent", "3+:errno=EIO@send", "9:errno=EIO@wait",
              "9:errno=EINTR@receive", "1:errno=EBUSY@open", "7+:errno=EPERM@open", "6:foreign-id",
              "5:events=2", "5:commands=5", "5:type=77", "8:length=0", "8:length=273", "4:cc=0xC0",
              "4:slow=2000", "4:errno=EIO@close"}) {
            SCOPED_TRACE(std::string(machine) + " " + fault);
            inOwnProcess([&] {
                become(machine);
                goWrong(fault);
                const auto start = clock.now;
                const std::string lines = pass(device);
                std::string known;
                for (const Exchange& exchange : exchanges) {
                    known += sim::recordLine(exchange, start);
                }
                EXPECT_EQ(lines, known);

                clock.now += std::chrono::hours(1); // forgets what the agent keeps for a while
                sim::ReplayClock recordsClock(clock.now);
                std::istringstream text(sim::recordHeaderText({}) + lines + "end " +
                                        std::to_string(exchanges.size()) + "\n");
                sim::RecordReader reader(text);
                sim::ReplayDevice replaying(
                    recordsClock, [&reader] { return reader.next(); },
                    [](const sim::RecordedStep*, const Exchange&) { FAIL(); });
                agentsClock = &recordsClock;
                EXPECT_EQ(pass(replaying), lines);
                EXPECT_EQ(replaying.upcoming(), nullptr);
                EXPECT_TRUE(reader.whole());
            });
        }
    }
}

unsigned heartbeats = 0;

/// A busy machine wakes the agent late; alarm and wait may both be over by then.
TEST(ReplayClock, wakesADaemonWhenTheRecordDoes) {
    const struct {
        unsigned wait, alarm, nextAt;
        bool nextIsHeartbeat;
        unsigned wakesAt, heartbeats;
    } cases[] = {{20, 0, 20, false, 20, 0},  {20, 0, 23, false, 23, 0}, {20, 0, 40, false, 20, 0},
                 {20, 0, 5, false, 20, 0},   {20, 15, 15, true, 15, 1}, {20, 21, 22, true, 22, 1},
                 {20, 21, 22, false, 22, 0}, {20, 19, 18, true, 19, 1}};
    inOwnProcess([&] {
        agentSignals::install([](int) { ++heartbeats; }, {SIGALRM});
        for (const auto& one : cases) {
            heartbeats = 0;
            sim::ReplayClock clock(std::chrono::seconds(0));
            clock.alarm(one.alarm);
            clock.expect({{std::chrono::seconds(one.nextAt), one.nextIsHeartbeat}});
            EXPECT_EQ(clock.waitForSignal(one.wait, agentSignals::maskLettingIn({SIGALRM})), 0);
            EXPECT_EQ(clock.monotonic(), std::chrono::seconds(one.wakesAt));
            EXPECT_EQ(heartbeats, one.heartbeats) << one.nextAt;
        }
    });
}

const sim::RecordHeader fileHeader{
    .program = "test \"1\" \\x41",
    .started = "now",
    .kernel = "Linux \n",
    .maker = 32473,
    .masked = true,
    .options = {"-n", "", "a b"},
    .system = sim::RecordHeader::System{"maker", "product", "serial ", ""},
    .enclosureSerials = {"one", ""},
    .interfaces = {{.index = 7,
                    .name = "eth\"0",
                    .flags = 0x1043,
                    .mtu = 1500,
                    .mac = {2, 0, 0, 0, 0, 1},
                    .ipv4 = {{{192, 0, 2, 1}, 24, {192, 0, 2, 255}}, {{10, 0, 0, 1}, 32, {}}},
                    .ipv6 = {{{0xFE, 0x80}, 64}}}}};

const std::string lines = "E 1 0.000 0.005 bmc 06 0 01 - > 0001 ; text\n"
                          "E 2 0.005 5.000 ipmb:24 04 3 02 04C0 > silent ; text\n"
                          "S 5.006 ; text\n"
                          "E 3 5.006 0.000 none 00 0 00 - > fail open ENOENT ; text\n"
                          "E 4 70000.000 0.000 bmc 2E 0 E0 57 > others 2,-3 foreign - ; text\n";

/// Whatever a host is called and has, its header can be read again; what is too long is cut.
TEST(RecordFile, ofAnyHostCanBeRead) {
    const std::string longText(9000, '\n');
    sim::RecordHeader host{
        .program = longText,
        .started = "now",
        .kernel = longText,
        .options = std::vector<std::string>(5000, longText),
        .system = sim::RecordHeader::System{longText, longText, longText, "x"},
        .enclosureSerials = {longText},
        .interfaces = {{.index = 1, .name = "e\xC3\xBC\x01\"\\-"}, {.index = 2, .name = "many"}}};
    sim::RecordedInterface& many = host.interfaces.back();
    for (unsigned char i = 0; i < 240; ++i) {
        many.ipv4.push_back({{192, 100, 200, i}, 32, {192, 100, 200, 255}});
        many.ipv6.push_back({{0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10, 0xFE, 0xDC, 0xBA,
                              0x98, 0x76, 0x54, 0x32, i},
                             128});
    }
    std::istringstream text(sim::recordHeaderText(host) + "end 0\n");
    sim::RecordReader reader(text);
    EXPECT_EQ(reader.header().interfaces, host.interfaces);
    EXPECT_TRUE(longText.starts_with(reader.header().system->serialNumber));
    EXPECT_FALSE(reader.next());
    EXPECT_TRUE(reader.whole());
}

/// A record that is cut anywhere is read up to there.
TEST(RecordFile, isReadAsFarAsItGoes) {
    const std::string head = sim::recordHeaderText(fileHeader);
    const std::string all = head + lines + "end 4\n";
    for (std::size_t length = head.size(); length <= all.size(); ++length) {
        const std::string part = all.substr(head.size(), length - head.size());
        std::istringstream text(head + part);
        sim::RecordReader reader(text);
        EXPECT_EQ(reader.header(), fileHeader);
        std::ptrdiff_t steps = 0;
        while (const auto step = reader.next()) {
            ++steps;
            EXPECT_EQ(step->exchange.has_value(), steps != 3);
        }
        const auto whole = std::ranges::count(part, '\n');
        EXPECT_EQ(steps, std::min<std::ptrdiff_t>(whole, 5));
        EXPECT_EQ(reader.whole(), length == all.size());
    }
}

TEST(RecordFile, thatIsDamagedSaysWhere) {
    const struct {
        std::string from, to, error;
    } cases[] = {
        {"#tav-record 1", "#tav-record 2", "is a record of version '2'; only version 1"},
        {"#tav-record 1", "program", "is not a record"},
        {"program \"", "program ", "line 2: lacks a text in quotes"},
        {"mac 0200", "mac 02", "line 13: has a MAC address that is none"},
        {"192.0.2.1/24", "192.0.2.1/33", "line 13: '33' is not a number from 0 to 32"},
        {"eth\\x220", "eth/0", "line 13: has a name that no interface can have"},
        {"E 2 ", "E 3 ", "line 15: is not exchange 2"},
        {"E 2 ", "X 2 ", "line 15: lacks 'S'"},
        {"5.000 ipmb", "5. ipmb", "line 15: has '5.' in the place of a time"},
        {"ipmb:24", "ipmb:2", "in the place of two hexadecimal digits"},
        {"04C0 >", "04CG >", "has 'G' in the place of a hexadecimal digit"},
        {"04C0 >", "04C0", "line 15: lacks '>'"},
        {" bmc 2E 0", " bmc 2E 4", "line 18: '4' is not a number from 0 to 3"},
        {"fail open", "fail opening", "has the unknown device call 'opening'"},
        {"ENOENT", "ENONE", "'ENONE' is not the name of an errno value"},
        {"2,-3", "2,", "is not a number"},
        {"57 >", std::string(9000, '5') + " >", "line 18: longer than any of a record"},
        {"end 4", "end 5", "line 19: ends a record with another number of exchanges"},
    };
    for (const auto& [from, to, error] : cases) {
        std::string all = sim::recordHeaderText(fileHeader) + lines + "end 4\n";
        all.replace(all.find(from), from.size(), to);
        EXPECT_THAT(errorOf([&all] {
                        std::istringstream text(all);
                        sim::RecordReader reader(text);
                        while (reader.next()) {
                        }
                    }),
                    HasSubstr(error));
    }
    std::istringstream nothing;
    EXPECT_EQ(errorOf([&nothing] { sim::RecordReader{nothing}; }), "is empty");
}

TEST_F(Record, hasNoGapWhereMemoryRanOut) {
    std::vector<unsigned> numbers;
    sim::RecordingDevice recording(
        device, [] { return std::chrono::milliseconds(0); }, [] {},
        [&numbers, told = 0](const Exchange& exchange) mutable {
            if (++told == 3) {
                throw std::bad_alloc();
            }
            numbers.push_back(exchange.number);
        });
    agentsDevice = &recording;
    const TavServerInfo once(TavServerInfo::run_mode_once);
    agentsDevice = &device;
    std::vector<unsigned> expected(exchanges.size() - 1);
    std::iota(expected.begin(), expected.end(), 1U);
    EXPECT_EQ(numbers, expected);
}

/// What a masked record must not show any more: process tests see that it replays.
TEST_F(Record, thatIsMaskedTellsNoAddressesNorNames) {
    shell("ip address add 2001:db8::7/64 dev tav0 nodad");
    for (const char* machine : {"blade", "old-blade", "kestrelbox", "nic-blade"}) {
        inOwnProcess([&] {
            become(machine);
            const std::string plain = pass(device);
            sim::RecordMask mask;
            std::string masked;
            for (Exchange& exchange : exchanges) {
                mask.apply(exchange);
                masked += sim::recordLine(exchange, {});
            }
            const char* const secrets =
                "192\\.0\\.2\\.7|C0000207|20010DB80000|2001:db8::7|0200000000(0[1-9]|1)|"
                "010000000002|SN0|534E30|demo-server";
            EXPECT_THAT(masked, Not(testing::ContainsRegex(secrets)));
            EXPECT_THAT(plain, HasSubstr("C0000207"));
        });
    }
    // Of whatever request, and not what this one is about.
    Exchange misled;
    misled.foreignId = true;
    misled.response = {0, 4, 'S', 'N', '0', '1'};
    sim::RecordMask().apply(misled);
    EXPECT_EQ(misled.response, sim::Bytes(6));
}

/// How many calls to write(2) and the like this thread has made.
unsigned long writeCalls() {
    std::ifstream counts("/proc/thread-self/io");
    std::string name;
    unsigned long count = 0;
    while (name != "syscw:" && counts >> name >> count) {
    }
    return count;
}

std::chrono::nanoseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// A write for each, no further call at the device, and, at least once, next to no time.
TEST_F(Record, ofAnExchangeCostsLittle) {
#ifdef NDEBUG
    constexpr bool measured = true;
#else
    constexpr bool measured = false; // sanitizers write themselves, and take their time
#endif
    constexpr unsigned count = 200;
    const auto ask = [] {
        for (unsigned i = 0; i < count; ++i) {
            const tavIpmi::TavIpmi ipmi(0, 0, tavIpmi::TavIpmi::ipmiSystemInterface);
            tavIpmi::TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_app,
                                             tavIpmi::ipmi_cmd_get_device_id);
            EXPECT_TRUE(tavIpmi::exchange(ipmi, msg));
        }
    };
    sim::InstantDevice instant;
    agentsDevice = &instant;
    ask();
    const unsigned long calls = instant.calls;
    const auto now = [this] { return clock.monotonic(); };
    sim::Recorder recorder({paths.pidFile, "", false}, {}, now, [](const Exchange&) {});
    sim::RecordingDevice recording(
        instant, now, [&] { recorder.noteEndRequest(); },
        [&](const Exchange& exchange) { recorder.take(exchange); });
    agentsDevice = &recording;
    auto least = std::chrono::nanoseconds::max();
    for (unsigned batch = 2; batch <= 20; ++batch) {
        const unsigned long writes = writeCalls();
        const auto start = processorTime();
        ask();
        least = std::min(least, processorTime() - start);
        EXPECT_EQ(instant.calls, batch * calls);
        EXPECT_TRUE(!measured || writeCalls() - writes == count);
    }
    agentsDevice = &device;
    EXPECT_TRUE(!measured || least / count < std::chrono::microseconds(20));
}

/// Gives both ends: what is written to the second can be read from the first.
std::pair<int, int> openPipe(bool terminal) {
    int ends[2];
    if (!terminal) {
        EXPECT_EQ(::pipe(ends), 0);
        return {ends[0], ends[1]};
    }
    const int screen = ::posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(::grantpt(screen) | ::unlockpt(screen), 0);
    return {screen, ::open(::ptsname(screen), O_RDWR | O_NOCTTY)};
}

/// Whoever looks at an agent and stops reading does not hold it up, but is told what was missed.
TEST(Trace, dropsWhatNobodyReads) {
    for (const bool terminal : {false, true}) {
        inOwnProcess([terminal] {
            const sigset_t mask = agentSignals::maskLettingIn({SIGALRM});
            ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
            ::alarm(60); // ends a writer that waits
            const auto [reader, writer] = openPipe(terminal);
            const int before = ::dup(STDOUT_FILENO);
            ::dup2(writer, STDOUT_FILENO);
            sim::Trace trace(std::chrono::milliseconds(0));
            ::dup2(before, STDOUT_FILENO);
            for (int i = 0; i < 2000; ++i) {
                trace.line({});
            }
            ::dup2(writer, STDERR_FILENO); // where it says that it cannot be opened
            EXPECT_FALSE(sim::OutputFile("/nowhere/at/all", "recording"));
            ::dup2(before, STDERR_FILENO);
            ::fcntl(reader, F_SETFL, O_NONBLOCK);
            std::array<char, 4096> some;
            std::string seen;
            while (seen.find("lines dropped because nobody took them: ") == std::string::npos) {
                for (ssize_t size = 0; (size = ::read(reader, some.data(), some.size())) > 0;) {
                    seen.append(some.data(), static_cast<std::size_t>(size));
                }
                trace.line({});
            }
        });
    }
}

} // namespace
