// A whole single pass of the agent with any answers of BMC and driver, and any port information
// record: it ends, leaves nothing behind, and what no wrong answer had to do with is as it should
// be.

#include "PniAccess.h"
#include "portInformation.h"
#include "standIns.h"
#include "tavServerInfo.h"

#include <bitset>
#include <map>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

constexpr const char* machines[] = {"plain",      "blade", "old-blade",
                                    "kestrelbox", "nic",   "nic-blade"};

/// The files that tell what machine it is.
const sim::HostFiles& filesOf(const sim::Machine& machine) {
    static std::map<std::string, sim::HostFiles> all;
    const auto [place, added] = all.try_emplace(machine.name);
    if (added) {
        sim::showSmbios(machine.smbios(), sim::SmbiosForm::sysfs3, place->second);
    }
    return place->second;
}

/// Of a sound port information record.
using Ports = std::vector<MacAddress>;

std::optional<Ports> readPorts() {
    try {
        const PniAccess access;
        Ports ports;
        for (unsigned n = 0; n < access.getNumberOfMacAddresses(); ++n) {
            ports.push_back(access.getMacAddress(static_cast<int>(n)));
        }
        return access.usable() ? std::optional(ports) : std::nullopt;
    } catch (const std::exception&) { // most bytes are no such record
        return std::nullopt;
    }
}

void changeRecord(sim::Bytes& fru, FuzzedDataProvider& input) {
    fru = input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, 1024));
    fru.resize(fru.size() + input.ConsumeIntegralInRange<std::size_t>(1, 2048));
    if (input.ConsumeBool()) {
        sim::fixChecksums(fru);
    }
}

/// Loopback and 10.0.0.1, 10.0.0.2, ... on ports of the record.
void setUpNetwork(const Ports& ports, FuzzedDataProvider& input) {
    network = {};
    const auto count = input.ConsumeIntegralInRange<unsigned char>(0, 3);
    for (unsigned char n = 0; n <= count; ++n) {
        const auto index = static_cast<unsigned char>(n + 1);
        const unsigned char flags = n == 0 ? IFF_LOOPBACK : IFF_UP;
        const MacAddress mac = ports.empty() ? MacAddress() : ports[n % ports.size()];
        network.interfaces.push_back({{'0', static_cast<char>(n)},
                                      {{2, 0, 0, 0, 10, 0, 0, n}, {index}, {}, {}, {}, {}, {flags}},
                                      0});
        std::ranges::copy(mac.v, network.interfaces.back().answers[3] + 2);
        network.ipv6.resize(network.ipv6.size() + input.PickValueInArray({0U, 1U, 2U, 16U}),
                            {n, 0, {0x20, 1, 0x0D, 0xB8, n}, {}});
    }
}

/// Whether the slots have the addresses behind loopback.
bool slotsAreRight(const sim::ConfSpace& space) {
    bool right = true;
    for (std::uint16_t slot = 1; slot <= 3; ++slot) {
        const auto last = static_cast<unsigned char>(slot < network.interfaces.size() ? slot : 0);
        const sim::Bytes address{last != 0 ? std::uint8_t{10} : std::uint8_t{0}, 0, 0, last};
        right = right && space.values.at(521 + slot) == address;
    }
    return right;
}

/// Faults with honest exchanges in between.
sim::Misbehaviour misbehaviour(unsigned next, FuzzedDataProvider& input) {
    sim::Misbehaviour result;
    while (input.remaining_bytes() != 0) {
        sim::Fault& fault = result.faults.emplace_back();
        fault.kind = static_cast<sim::FaultKind>(input.ConsumeIntegralInRange(0, 9));
        fault.first = next += input.ConsumeIntegralInRange(0U, 63U);
        fault.last = input.PickValueInArray({next, next, next + 1, next + 3, sim::Fault::always});
        fault.value = input.ConsumeIntegralInRange(0, 300);
        fault.call = static_cast<sim::DeviceCall>(fault.value % std::ssize(sim::deviceCallNames));
        if (fault.kind == sim::FaultKind::bytes) {
            fault.bytes =
                input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, 64));
        }
        if (fault.kind == sim::FaultKind::slow) {
            fault.value *= 50;
        }
    }
    return result;
}

/// By network function: whether an exchange may have gone wrong.
using Tampered = std::bitset<64>;

void note(const sim::Exchange& exchange, const sim::Misbehaviour& wrong, Tampered& tampered) {
    require(exchange.number < 20'000, "there is no end");
    for (const sim::Fault& fault : wrong.faults) {
        if (fault.concerns(exchange.number)) {
            tampered.set(exchange.netfn);
            // It is not known what an open was for; a late answer comes with the next exchange.
            if (exchange.failedCall == sim::DeviceCall::open ||
                fault.kind == sim::FaultKind::slow) {
                tampered.set();
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    World world;
    const sim::Machine& machine = sim::namedMachine(input.PickValueInArray(machines));
    machine.setUp(world.bmc);
    world.paths = filesOf(machine);
    kernelName = input.ConsumeBool() ? "VMkernel" : nullptr;
    if (world.bmc.fru && input.ConsumeBool()) {
        changeRecord(world.bmc.fru->image, input);
    }
    const std::optional<Ports> ports = readPorts();
    setUpNetwork(ports.value_or(Ports()), input);
    const sim::Misbehaviour wrong = misbehaviour(world.device.exchangeCount() + 1, input);
    Tampered tampered;
    world.device.misbehave(wrong);
    world.device.observe([&](const sim::Exchange& exchange) { note(exchange, wrong, tampered); });
    try {
        const TavServerInfo agent(TavServerInfo::run_mode_once);
    } catch (const tavIpmi::TavIpmiError&) {
        require(tampered[sim::netfn::app] || tampered[sim::netfn::blade], "no pass");
        tampered.set(sim::netfn::oem); // for it is not asked
    }
    require(world.device.openCount() == 0, "the device is left open");
    world.device.behave();
    require(tampered[sim::netfn::oem] || slotsAreRight(world.bmc.confSpace),
            "the configuration space shows other addresses");
    require(!ports || tampered[sim::netfn::storage] || tampered[sim::netfn::adapter] ||
                readPorts() == ports,
            "the port information record is torn");
    return 0;
}
