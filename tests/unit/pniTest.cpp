#include "PniAccess.h"
#include "agentSignals.h"
#include "portInformation.h"
#include "rig.h"
#include "sysLog.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <thread>
#include <utility>

using tavIpmi::TavIpmi;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// Of the arrays that are asked for without an exception the one of this number, from 1 on, is not
/// there.
int missingArray = 0;

} // namespace

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return missingArray > 0 && --missingArray == 0 ? nullptr : ::operator new[](size);
}

namespace {

using Ip4 = std::array<unsigned char, 4>;
using Ip6 = std::array<unsigned char, 16>;
using Mac = std::array<unsigned char, 6>;

constexpr std::size_t fruSize = 2048;
// Where the builder puts things.
constexpr std::size_t area = 8;
constexpr std::size_t header = 16;
constexpr std::size_t body = header + 6;
constexpr std::size_t firstModule = body + 4;
constexpr std::size_t firstPort = firstModule + 56;
constexpr std::size_t firstFunction = firstPort + 4;

Mac numberedMac(unsigned number) {
    return {2, 0, 0, 0, 0, static_cast<std::uint8_t>(number)};
}

Ip4 ip4(unsigned number) {
    return {10, 0, 0, static_cast<std::uint8_t>(number)};
}

Ip6 ip6(unsigned number) {
    return {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0,
            0,    0,    0,    0,    0, 0, 0, static_cast<std::uint8_t>(number)};
}

sim::PortFunction nic(unsigned number) {
    sim::PortFunction function;
    function.activeMac = numberedMac(number);
    function.manufacturedMac = numberedMac(number + 0x80);
    return function;
}

sim::PortFunction other(const char* technology) {
    sim::PortFunction function;
    function.technology = technology;
    return function;
}

/// Port functions 1, 2, ... in ports of their own.
sim::PortInformation portsOf(const std::vector<sim::PortFunction>& functions) {
    sim::PortInformation record;
    record.modules.resize(1);
    for (const sim::PortFunction& function : functions) {
        record.modules[0].ports.push_back({{function}});
    }
    return record;
}

/// All that the layout says, for comparing.
std::vector<unsigned> numbersOf(const PniInfoCache& layout) {
    std::vector<unsigned> all{layout.fruSize,       layout.fruDataSize, layout.pniHdrOffset,
                              layout.formatVersion, layout.numModules,  layout.commonOffset};
    for (const auto& module : layout.module) {
        all.insert(all.end(), {module.moduleId, module.fruOffset, module.size, module.numPorts});
        for (const auto& port : module.port) {
            all.insert(all.end(), {port.fruOffset, port.size, port.numPortFn});
            for (const auto& fn : port.portFn) {
                all.insert(all.end(), {fn.fruOffset, fn.totalSize, fn.commonSize, fn.techType});
            }
        }
    }
    return all;
}

class Pni : public Rig {
  public:
    sim::Bytes& image() { return bmc.fru->image; }

    void put(const sim::PortInformation& record, std::size_t size = fruSize) {
        bmc.fru.emplace();
        image() = sim::fruImage(record, size);
    }

    /// What the construction throws; empty when it does not.
    static std::string refusal() {
        return errorOf([] {
            if (!PniAccess().usable()) {
                throw std::logic_error("unusable");
            }
        });
    }

    /// The record in the FRU is sound, and `access` knows where everything lies in it.
    void expectInStep(const PniAccess& access) {
        exchanges.clear();
        device.behave();
        EXPECT_EQ(errorOf([&] {
                      EXPECT_EQ(numbersOf(PniAccess().layout()), numbersOf(access.layout()));
                  }),
                  "");
    }

    /// `length` bytes of the specific part of the function with this MAC address.
    std::string specific(unsigned number, std::size_t offset, std::size_t length) {
        const Mac mac = numberedMac(number);
        const auto manufactured =
            std::search(image().begin(), image().end(), mac.begin(), mac.end());
        return hex({manufactured - 6 + static_cast<std::ptrdiff_t>(offset), length});
    }

    static MacAddress mac(unsigned number) { return MacAddress(numberedMac(number).data()); }
    static IPv4Address address4(unsigned number) {
        IPv4Address address;
        address = ip4(number).data();
        return address;
    }
    static std::list<IPv6Address> addresses6(unsigned count) {
        std::list<IPv6Address> list;
        for (unsigned number = 1; number <= count; ++number) {
            list.emplace_back(ip6(number).data());
        }
        return list;
    }
    TavIpmi connection() { return {0, 0, TavIpmi::ipmiSystemInterface}; }
};

/// Two modules, three ports, four functions that are no NICs among them.
sim::PortInformation mixedRecord(unsigned format) {
    sim::PortInformation record;
    record.format = format;
    record.modules.resize(2);
    record.modules[0].id = 3;
    record.modules[0].ports = {{{nic(1), other("FC"), other("FCoE")}}, {{other("iSCSI"), nic(2)}}};
    record.modules[1].id = 9;
    record.modules[1].ports = {{{other("IB"), other("iscsi"), nic(3)}}};
    return record;
}

TEST_F(Pni, findsModulesPortsAndFunctionsInEveryFormat) {
    for (const unsigned format : {10U, 11U, 12U}) {
        put(mixedRecord(format));
        bmc.fru->countError = static_cast<int>(format) - 11; // what came counts
        const PniAccess access;
        ASSERT_TRUE(access.usable());
        EXPECT_EQ(access.layout().formatVersion, format);
        EXPECT_EQ(access.getModuleIndex(9), 1);
        EXPECT_EQ(access.getModuleIndex(1), -1);
        EXPECT_EQ(access.getNumberOfMacAddresses(), 3U);
        EXPECT_EQ(access.getMacAddress(2), mac(3));
        EXPECT_FALSE(access.getMacAddress(3));
        EXPECT_FALSE(access.getMacAddress(-1));
        const auto& functions = access.layout().module[0].port[0].portFn;
        EXPECT_EQ(functions[0].fruOffset, firstFunction);
        EXPECT_EQ(functions[1].fruOffset, firstFunction + functions[0].totalSize);
        EXPECT_EQ(functions[1].techType, portfn_tech_fc);
        EXPECT_EQ(access.layout().module[1].port[0].portFn[1].techType, portfn_tech_unknown);
        const TavIpmi ipmi = connection();
        EXPECT_EQ(access.getPortFunctionType(ipmi, 0, 0, 2), "FCoE");
        EXPECT_EQ(access.getPortFunctionType(ipmi, 0, 0, 3), "Unknown");
        EXPECT_EQ(access.getPortFunctionType(ipmi, 1, 0, 0), "IB");
    }
}

TEST_F(Pni, asksNoMoreThanNeeded) {
    put(portsOf({nic(1), nic(2)}));
    PniAccess access;
    const std::size_t length = image()[header + 2] + 256U * image()[header + 3];
    EXPECT_EQ(exchanges.size(), 1 + 3 + (length + 63) / 64);
    exchanges.clear();
    EXPECT_TRUE(access.setIpv4Address(mac(1), address4(1)));
    // Common and specific part; old bytes, new bytes, header read and written.
    EXPECT_EQ(exchanges.size(), 2U + 4U);
    exchanges.clear();
    EXPECT_TRUE(access.setIpv4Address(mac(1), address4(1)));
    EXPECT_EQ(exchanges.size(), 2U) << "the address is there already";
    exchanges.clear();
    const TavIpmi ipmi = connection();
    sim::Bytes bytes(130);
    EXPECT_EQ(access.readFru(ipmi, 0x0102, 130, bytes.data()), pni_success);
    EXPECT_THAT(requests(),
                ElementsAre("0a/11: 05 02 01 40", "0a/11: 05 42 01 40", "0a/11: 05 82 01 02"));
    EXPECT_EQ(access.readFru(ipmi, 0xFFFF, 2, bytes.data()), pni_parameter_err);
}

TEST_F(Pni, aRecordThatIsWrongIsRefused) {
    struct {
        std::size_t offset;
        std::vector<unsigned char> values;
        const char* refusal; // with right checksums
    } cases[] = {
        {1, {2}, "unsupported"},                   // the maker's area is elsewhere
        {area, {2}, "unsupported"},                // its format
        {area + 1, {0}, "unsupported"},            // its kind
        {area + 2, {200}, "unsupported"},          // record in the empty part of the FRU
        {area + 3, {2, 255}, "Format"},            // more modules than there are
        {header, {0xC0}, "unsupported"},           // record type
        {header + 1, {0x89, 0x8D}, "unsupported"}, // format versions 9 and 13
        {header + 2, {0}, "unsupported"},          // no body
        {header + 3, {0x20, 0xFF}, "Read"},        // beyond the FRU, and what an offset reaches
        {body + 3, {2}, "unsupported"},            // not port information
        {firstModule, {0}, "Format"},              // last module without mark
        {firstModule + 1, {0, 255}, "Format"},   // ports inside their module's fields, or elsewhere
        {firstModule + 2, {3, 1}, "Format"},     // more ports than there are, or fewer
        {firstPort, {0x80, 1}, "Format"},        // first port marked as last; wrong index
        {firstPort + 1, {0, 2}, "Format"},       // too short
        {firstPort + 2, {2}, "Format"},          // more functions
        {firstFunction, {0, 0x81}, "Format"},    // last function without mark; wrong index
        {firstFunction + 1, {0, 255}, "Format"}, // no length, or beyond the body
        {firstFunction + 2, {2, 255}, "Format"}, // common part without its fields, or too long
    };
    put(portsOf({nic(1), nic(2)}));
    ASSERT_EQ(refusal(), "");
    const sim::Bytes sound = image();
    for (const auto& one : cases) {
        for (const unsigned char value : one.values) {
            image() = sound;
            image()[one.offset] = value;
            EXPECT_THAT(refusal(), HasSubstr("Checksum error ")) << one.offset;
            sim::fixChecksums(image());
            EXPECT_THAT(refusal(), HasSubstr(one.refusal)) << one.offset << " " << int{value};
        }
    }
    image() = sound;
    image()[firstFunction + 2] = 3; // which is just enough
    sim::fixChecksums(image());
    EXPECT_EQ(refusal(), "");
}

/// What lies behind what is kept moves along with it.
TEST_F(Pni, countsAtTheirLimits) {
    struct {
        std::size_t modules, ports, functions;
        const char* refusal;
    } cases[] = {{8, 1, 1, ""},        {9, 1, 1, ""},        {1, 16, 1, ""},
                 {1, 17, 1, ""},       {1, 1, 16, ""},       {1, 1, 17, ""},
                 {1, 33, 1, "Format"}, {1, 1, 33, "Format"}, {1, 255, 1, "Format"},
                 {1, 1, 255, "Format"}};
    for (const auto& one : cases) {
        sim::PortInformation record;
        record.modules.resize(one.modules);
        for (sim::Module& module : record.modules) {
            module.ports.resize(one.ports, {std::vector(one.functions, other("FC"))});
        }
        record.modules.front().ports.front().functions.front() = nic(1);
        record.modules.back().ports.back().functions.back() = nic(2);
        put(record, 32768);
        ASSERT_THAT(refusal(), HasSubstr(one.refusal));
        if (*one.refusal == '\0') {
            PniAccess access;
            const bool kept = one.modules <= 8 && one.ports <= 16 && one.functions <= 16;
            EXPECT_EQ(access.getNumberOfMacAddresses(), kept ? 2U : 1U);
            EXPECT_TRUE(access.setIpv6Address(mac(1), addresses6(15)));
            expectInStep(access);
        }
    }
}

TEST_F(Pni, withoutADeviceThereIsNothingToSay) {
    EXPECT_EQ(refusal(), "IPMI access has failed.");
    put(portsOf({nic(1)}));
    goWrong("1:cc=0xC3");
    EXPECT_THAT(refusal(), HasSubstr("Error: IPMI access has failed. (Return code: c3("));
    goWrong("1:length=3");
    EXPECT_THAT(refusal(), HasSubstr("Error: IPMI access has failed. (src/"));
    goWrong("1:length=4");
    EXPECT_EQ(refusal(), "") << "how it is accessed is not asked";
    EXPECT_TRUE(log.empty());
    goWrong("2:errno=EIO@send");
    PniAccess access;
    EXPECT_FALSE(access);
    EXPECT_THAT(
        log, ElementsAre(LogLine{LOG_ERR, "IPMI access has failed."}, errorWith("SEND_COMMAND")));
    EXPECT_EQ(access.getNumberOfMacAddresses(), 0U);
    device.behave();
    PniAccess sound;
    device.misbehave(
        sim::parseFault("1+:errno=EIO@receive")); // an error of the transport ends an operation
    for (PniAccess* const one : {&access, &sound}) {
        exchanges.clear();
        log.clear();
        EXPECT_FALSE(one->getMacAddress(0));
        EXPECT_FALSE(one->setIpv4Address(mac(1), address4(1)));
        EXPECT_FALSE(one->setIpv6Address(mac(1), addresses6(1)));
        EXPECT_TRUE(one->clearIpAddressData());
        EXPECT_EQ(exchanges.size(), one == &sound ? 4U : 0U);
        EXPECT_EQ(log.size(), exchanges.size());
        EXPECT_THAT(log, testing::Each(errorWith("RECEIVE_MSG")));
    }
    EXPECT_TRUE(sound) << "it is only this time";
}

TEST_F(Pni, everyReadMustBeWhole) {
    put(portsOf({nic(1), nic(2)}));
    const std::size_t count = (PniAccess(), exchanges.size());
    for (std::size_t n = 2; n <= count; ++n) {
        goWrong(std::to_string(n) + ":length=7");
        EXPECT_THAT(refusal(), HasSubstr("Read FRU failed ")) << n;
    }
}

TEST_F(Pni, replacesTheIpv4Address) {
    struct {
        std::vector<unsigned> ipv4;
        unsigned ipv6;
        std::size_t commonLength, written; // at first
        const char* list;                  // count, first ten bytes
    } cases[] = {
        // Padded up to a boundary, or beyond one; what lies behind stays.
        {{}, 0, 38, 49 + 1, "01 0a 00 00 63 00 00 00 00 00 00"},
        {{1, 2, 3}, 0, 39, 49 + 4, "01 0a 00 00 63 00 00 00 00 0a 00"},
        // The IPv6 block is kept where it was with one IPv4 address before it ...
        {{1}, 1, 39, 64, "11 0a 00 00 01 20 01 0d b8 00 00"},
        // ... and is moved by a byte, or taken from elsewhere, with another number.
        {{}, 1, 39, 64, "11 0a 20 01 0d b8 00 00 00 00 00"},
        {{1, 2}, 1, 39, 64, "11 0a 00 01 0a 00 00 02 20 01 0d"},
        // Only the first one counts as there already; one for which there is no place is no error.
        {{1, 0x63}, 0, 39, 49 + 4, "01 0a 00 00 63 00 00 00 00 00 00"},
        {{0x63, 1}, 0, 39, 0, "02 0a 00 00 63 0a 00 00 01 00 00"},
        {std::vector<unsigned>(15, 1), 0, 39, 0, "0f 0a 00 00 01 0a 00 00 01 0a 00"},
    };
    for (const auto& one : cases) {
        sim::PortFunction function = nic(1);
        function.specificLength = 61;
        function.commonLength = one.commonLength;
        std::ranges::transform(one.ipv4, std::back_inserter(function.ipv4), ip4);
        for (unsigned n = 1; n <= one.ipv6; ++n) {
            function.ipv6.push_back(ip6(n));
        }
        put(portsOf({function, nic(2)}));
        PniAccess access;
        exchanges.clear();
        EXPECT_TRUE(access.setIpv4Address(mac(1), address4(0x63)));
        const auto write = std::ranges::find(exchanges, 0x12, &sim::Exchange::cmd);
        EXPECT_EQ(write == exchanges.end() ? 0 : write->request.size() - 3, one.written);
        EXPECT_EQ(specific(1, 44, 11), one.list);
        expectInStep(access);
    }
}

TEST_F(Pni, theFirstMatchingFunctionIsTheOne) {
    sim::PortFunction twin = nic(2);
    twin.manufacturedMac = numberedMac(0x81);
    sim::PortFunction storage = nic(0x81);
    storage.technology = "FC";
    storage.manufacturedMac = {};
    put(portsOf({storage, nic(1), twin}));
    PniAccess access;
    EXPECT_TRUE(access.setIpv4Address(mac(0x81), address4(1))) << "the manufactured address";
    EXPECT_EQ(specific(1, 44, 5), "01 0a 00 00 01");
    EXPECT_EQ(specific(2, 44, 5), "00 00 00 00 00");
    EXPECT_FALSE(access.setIpv4Address(mac(3), address4(1))) << "nobody has that address";
    expectInStep(access);
}

TEST_F(Pni, ipv6AddressesMoveWhatFollows) {
    // At last as much as the address field holds.
    const std::pair<unsigned, unsigned> cases[] = {{2, 1},  {2, 2},  {2, 14},
                                                   {2, 15}, {2, 16}, {15, 15}};
    for (const auto& [present, count] : cases) {
        log.clear();
        sim::PortInformation record = mixedRecord(12);
        for (unsigned n = 1; n <= present; ++n) {
            record.modules[0].ports[0].functions[0].ipv4.push_back(ip4(n));
        }
        put(record);
        PniAccess access;
        const std::string behind = specific(3, 0, 45);
        EXPECT_TRUE(access.setIpv6Address(mac(1), addresses6(count)));
        const unsigned written = std::min<unsigned>(count, 15);
        EXPECT_EQ(specific(1, 44, 1),
                  hex(std::array{static_cast<unsigned char>((written << 4U) | present)}));
        EXPECT_EQ(specific(1, 45, 8), "0a 00 00 01 0a 00 00 02");
        EXPECT_EQ(specific(1, 45 + 4 * present + 16 * (written - 1), 16), hex(ip6(written)));
        EXPECT_EQ(specific(3, 0, 45), behind);
        EXPECT_EQ(log.size(), count > 15 ? 1U : 0U);
        EXPECT_EQ(access.getMacAddress(2), mac(3));
        EXPECT_TRUE(access.setIpv6Address(mac(3), addresses6(15))) << "a second growth";
        expectInStep(access);
    }
}

TEST_F(Pni, growsOnlyWhereThereIsRoom) {
    put(portsOf({nic(1), nic(2)}));
    const std::size_t end = PniAccess().layout().fruDataSize;
    const sim::Bytes bytes(1024);
    for (const std::size_t room : {0U, 11U, 12U, 20U}) {
        put(portsOf({nic(1), nic(2)}), end + room);
        const sim::Bytes before = image();
        PniAccess access;
        EXPECT_EQ(access.setIpv6Address(mac(1), addresses6(1)), room >= 12U) << room;
        EXPECT_EQ(image() == before, room < 12U) << room;
        expectInStep(access);
        const int present = access.layout().module[0].port[0].portFn[0].totalSize - 39;
        EXPECT_EQ(access.writePortFnSpecificArea(connection(), 0, 0, 0, present + 6, bytes.data()),
                  pni_parameter_err);
    }
    put(portsOf({nic(1)}), 4096); // but a function's length goes up to 1020
    PniAccess access;
    for (const auto& [fn, length] : {std::pair<unsigned char, int>{1, 1}, {0, -1}}) {
        EXPECT_EQ(access.writePortFnSpecificArea(connection(), 0, 0, fn, length, bytes.data()),
                  pni_parameter_err);
    }
    EXPECT_EQ(access.writePortFnSpecificArea(connection(), 0, 0, 0, 1024 - 39, bytes.data()),
              pni_parameter_err);
    for (const int length : {1020 - 39, 0}) {
        EXPECT_EQ(access.writePortFnSpecificArea(connection(), 0, 0, 0, length, bytes.data()),
                  pni_success);
    }
    expectInStep(access);
}

TEST_F(Pni, clearsEveryNic) {
    sim::PortInformation record = mixedRecord(10);
    for (sim::PortFunction* function :
         {&record.modules[0].ports[0].functions[0], &record.modules[1].ports[0].functions[2]}) {
        function->ipv4 = {ip4(1)};
        function->ipv6 = {ip6(1), ip6(2)};
    }
    put(record);
    PniAccess access;
    unsigned turns = 0; // of other agents, and of the caller
    clock.onPause = [&](auto) { turns += connection().tryLock() ? 1U : 0U; };
    EXPECT_TRUE(access.clearIpAddressData([&] { turns += device.openCount() == 0 ? 10U : 0U; }));
    EXPECT_EQ(turns, 22U);
    for (const unsigned number : {1U, 2U, 3U}) {
        EXPECT_EQ(specific(number, 44, 1), "00");
    }
    expectInStep(access);
}

/// Whatever fails on the way: an error, and an object that goes on; but behind the first write that
/// may have been carried out nothing more is.
TEST_F(Pni, everyRequestOfAGrowthMayFail) {
    put(mixedRecord(11));
    const sim::Bytes sound = image();
    const auto isWrite = [](const auto& one) { return one.cmd == sim::command::writeFruData; };
    const std::pair<const char*, bool> cases[] = {
        // And whether a write may have been carried out then.
        {":cc=0xC0", false},        {":cc=0xC3", true},  {":cc=0xCE", true},
        {":cc=0xFF", true},         {":silent", true},   {":foreign-id", true},
        {":errno=EIO@send", false}, {":length=1", true}, {":errno=EIO@receive", true}};
    for (const auto& [fault, carriedOut] : cases) {
        bool reached = true;
        for (std::size_t n = 1; reached; ++n) {
            device.behave();
            image() = sound;
            PniAccess access;
            const auto before = numbersOf(access.layout());
            exchanges.clear();
            log.clear();
            goWrong(std::to_string(n) + fault);
            const bool written = access.setIpv6Address(mac(1), addresses6(15));
            const bool lastIsWrite = isWrite(exchanges.back());
            reached = n <= exchanges.size();
            EXPECT_EQ(written, !reached || (isWrite(exchanges[n - 1]) && fault[1] == 'l'));
            const auto writes = std::ranges::count_if(exchanges, isWrite);
            const bool torn = !written && writes > (lastIsWrite && !carriedOut ? 1 : 0);
            // The layout has moved on only if the header has, as far as that is known.
            const bool lengthened = image()[header + 2] != sound[header + 2];
            EXPECT_TRUE(torn || (numbersOf(access.layout()) == before) != lengthened);
            const std::string line = std::string("module 0, port 0, function 0 failed half-way: ") +
                                     (fault[1] == 'e' ? "Error: ioctl"
                                      : lastIsWrite   ? "write at FRU"
                                                      : "read at FRU");
            EXPECT_EQ(testing::Value(log, Contains(errorWith(line))), torn) << fault << n;
            device.behave();
            exchanges.clear();
            EXPECT_EQ(access.clearIpAddressData(), !torn) << fault << n;
            EXPECT_EQ(access.writePortFnSpecificArea(connection(), 0, 0, 0, 1, sound.data()),
                      torn ? pni_misc_err : pni_success);
            EXPECT_EQ(exchanges.empty(), torn) << fault << n;
        }
    }
}

/// The same for each piece of memory.
TEST_F(Pni, memoryMayRunOutOnTheWay) {
    put(mixedRecord(11));
    const sim::Bytes sound = image();
    missingArray = 1;
    EXPECT_THAT(refusal(), HasSubstr("Memory Error "));
    bool granted = false;
    for (int number = 1; !granted; ++number) {
        image() = sound;
        PniAccess access;
        log.clear();
        missingArray = number;
        granted = access.setIpv6Address(mac(1), addresses6(15));
        EXPECT_EQ(std::exchange(missingArray, 0) == 0, !granted);
        const bool torn = !granted && image() != sound;
        EXPECT_EQ(testing::Value(log, Contains(errorWith("half-way: out of memory"))), torn);
        EXPECT_EQ(access.clearIpAddressData(), !torn) << number;
    }
}

TEST_F(Pni, aRecordThatAnotherProgramChangedIsReadAnew) {
    const std::pair<std::size_t, unsigned char> cases[] = {
        {header + 2, 0xF8},       // its end, which matters to a growth alone
        {firstFunction, 0xC1},    // a function's index,
        {firstFunction + 1, 24},  // length,
        {firstFunction + 2, 38},  // length of the common part,
        {firstFunction + 14, 1}}; // technology
    for (const auto& [offset, value] : cases) {
        const bool end = offset == header + 2;
        put(portsOf({nic(1)}));
        PniAccess access;
        image()[offset] = value;
        sim::fixChecksums(image());
        const sim::Bytes before = image();
        log.clear();
        EXPECT_EQ(access.clearIpAddressData(), end) << offset;
        EXPECT_FALSE(access.setIpv6Address(mac(1), addresses6(1)));
        EXPECT_EQ(log.size(), 1U);
        exchanges.clear();
        EXPECT_FALSE(access.clearIpAddressData());
        EXPECT_NE(access.writePortFnSpecificArea(connection(), 0, 0, 0, 1, &value), pni_success);
        EXPECT_THAT(exchanges, IsEmpty());
        EXPECT_EQ(image(), before);
        const bool sound = refusal().empty();
        EXPECT_EQ(access.renew(), sound) << offset;
        EXPECT_EQ(access.outdated(), !sound);
        EXPECT_FALSE(access.renew()) << "once is enough";
        EXPECT_EQ(access.setIpv6Address(mac(1), addresses6(1)), end);
    }
}

TEST_F(Pni, aRecordThatAnotherProgramHasIsWaitedFor) {
    put(portsOf({nic(1)}));
    PniAccess access;
    unsigned pauses = 0;
    clock.onPause = [&](auto) { ++pauses; }; // too short, all of them
    std::optional<TavIpmi> other;
    other.emplace(0, 0, TavIpmi::ipmiSystemInterface);
    EXPECT_TRUE(other->tryLock());
    exchanges.clear();
    EXPECT_FALSE(access.setIpv4Address(mac(1), address4(1)));
    EXPECT_FALSE(access.clearIpAddressData()) << "waited for once";
    EXPECT_EQ(pauses, 999U);
    EXPECT_THAT(exchanges, IsEmpty());
    EXPECT_FALSE(access.renew());
    EXPECT_EQ(refusal(), "unusable");
    const auto line = errorWith("keeps the NIC ports' record to itself");
    EXPECT_THAT(log, ElementsAre(line, line)) << "but nothing of the renewal";
    other.reset();
    EXPECT_TRUE(access.renew() && access.setIpv4Address(mac(1), address4(1)));
    device.misbehave(sim::parseFault("1+:errno=ENOLCK@lock"));
    EXPECT_TRUE(access.setIpv4Address(mac(1), address4(2))) << "where there are no locks";
}

/// Two agents, a daemon and a single pass say, which give two ports more and more addresses: by
/// turns, and at the same time.
TEST_F(Pni, agentsShareARecord) {
    device.observe({});
    clock.onPause = [](auto) { std::this_thread::yield(); };
    std::vector<PniAccess> agents;
    const auto pass = [&](unsigned n, unsigned count) {
        bool done = false;
        for (int tries = 0; !done && tries < 1000; ++tries) {
            done = (!agents[n].outdated() || agents[n].renew()) &&
                   agents[n].setIpv6Address(mac(1 + n), addresses6(count));
        }
        EXPECT_TRUE(done);
        EXPECT_THAT(refusal(), Not(HasSubstr("Error")));
    };
    const auto passes = [&](std::initializer_list<unsigned> numbers) {
        for (unsigned count = 1; count <= 15; ++count) {
            std::ranges::for_each(numbers, [&](unsigned n) { pass(n, count); });
        }
    };
    for (int round = 0; round < 17; ++round) {
        for (const bool atOnce : {false, true}) {
            put(portsOf({nic(1), nic(2), nic(3)}));
            agents = std::vector<PniAccess>(2);
            std::thread other([&] { atOnce ? passes({1}) : passes({}); });
            atOnce ? passes({0}) : passes({0, 1});
            other.join();
            ASSERT_EQ(specific(1, 44, 1) + specific(2, 44, 1), "f0f0");
        }
    }
}

/// A BMC that takes a tenth of a second for each answer, and an end that is requested meanwhile:
/// what is half written is finished; a search asks no further port; nothing else begins or is
/// awaited.
TEST_F(Pni, anUpdateUnderWayIsFinished) {
    put(mixedRecord(11));
    for (const bool begun : {false, true}) {
        inOwnProcess([&] {
            PniAccess access;
            exchanges.clear();
            device.observe([&](const sim::Exchange& exchange) {
                exchanges.push_back(exchange);
                EXPECT_TRUE((begun && exchange.cmd == 0x11) || ::raise(SIGTERM) == 0);
            });
            device.misbehave(sim::parseFault("1+:slow=100"));
            EXPECT_EQ(access.setIpv6Address(mac(begun ? 1 : 3), addresses6(15)), begun);
            EXPECT_TRUE(begun ? exchanges.size() > 30 : exchanges.size() == 2);
            expectInStep(access);
            exchanges.clear();
            const auto before = clock.now;
            EXPECT_FALSE(access.setIpv6Address(mac(1), addresses6(1)));
            EXPECT_TRUE(access.clearIpAddressData());
            EXPECT_THAT(exchanges, IsEmpty());
            const TavIpmi other = connection();
            EXPECT_TRUE(other.tryLock() && PniAccess().outdated());
            EXPECT_EQ(clock.now, before);
        });
    }
}

} // namespace
