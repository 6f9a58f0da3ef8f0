// What the BMC of a blade knows of its LAN ports and of the chassis' management blade.

#include "bmcStatus.h"
#include "tavBladeInfo.h"
#include "tavBladeRecords.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace tavStatus {

namespace {

constexpr unsigned char lastLanPort = 31;
constexpr unsigned char chassisLun = 1; // what comes through it is asked of the management blade
constexpr std::size_t macLength = 6;

Question bladeQuestion(unsigned char cmd, ByteView data = {}, unsigned char lun = 0) {
    return {tavIpmi::ipmi_netfn_req_oem_1, cmd, data, lun};
}

/// The older command: all addresses at once, each with its last octet first.
void askOlderPorts(BmcQuestions& bmc, std::vector<LanPort>& ports) {
    const sim::Bytes answer = bmc.ask(bladeQuestion(tavIpmi::ipmi_oemcmd_get_nic_mac_addrs));
    constexpr std::size_t head = offsetof(TavGetMacAddrsRespData, mac_addresses);
    if (answer.size() < head || answer[0] != tavIpmi::ipmi_cc_normally_cc) {
        return;
    }
    ByteView rest = ByteView(answer).subspan(head);
    for (unsigned number = 1; rest.size() >= macLength; ++number) {
        MacAddress mac(rest.data());
        std::reverse(std::begin(mac.v), std::end(mac.v));
        ports.push_back({number, mac, true});
        rest = rest.subspan(macLength);
    }
}

/// Until all are there, as the agent does it.
std::vector<LanPort> askPorts(BmcQuestions& bmc) {
    std::vector<LanPort> ports;
    std::size_t total = 0;
    for (unsigned char number = 1; number <= lastLanPort; ++number) {
        TavGetLANInfoReqData request{};
        request.lanPortNumber.number = number & 0x7FU;
        TavGetLANInfoRespData response;
        if (bmc.ask(bladeQuestion(tavIpmi::ipmi_oemcmd_get_lan_info, recordBytes(request)),
                    response, offsetof(TavGetLANInfoRespData, quadrant_module_port))) {
            total = response.number_of_lan_ports;
            ports.push_back(
                {number, MacAddress(response.mac_address), response.parameter.status != 0});
        } else if (response.completion_code == tavIpmi::ipmi_cc_invalid_cmd) {
            askOlderPorts(bmc, ports);
            break;
        } else if (response.completion_code != tavIpmi::ipmi_cc_param_out_of_range) {
            break;
        }
        if (ports.size() == total) { // also when the first one is out of range
            break;
        }
    }
    return ports;
}

/// An address or mask of the management blade; none for all zero, too.
std::optional<sim::Bytes> askAddress(BmcQuestions& bmc, unsigned char cmd, unsigned char index) {
    const bool ipv6 = index >= address_index_ipv6_link_local;
    const TavGetMMBIPAddressReqData request{
        static_cast<unsigned char>(ipv6 ? address_type_ipv6 : address_type_ipv4), index};
    const std::size_t length = ipv6 ? 16 : 4;
    TavGetMMBIPAddressRespData response;
    if (!bmc.ask(bladeQuestion(cmd, recordBytes(request), chassisLun), response,
                 offsetof(TavGetMMBIPAddressRespData, ipv4_address) + length) ||
        response.address_type != request.addressType) {
        return std::nullopt;
    }
    const sim::Bytes address(response.ipv6_address, response.ipv6_address + length);
    const bool none = std::ranges::all_of(address, [](unsigned char byte) { return byte == 0; });
    return none ? std::nullopt : std::optional(address);
}

std::optional<unsigned> prefixOf(const std::optional<sim::Bytes>& mask) {
    if (!mask) {
        return std::nullopt;
    }
    return std::accumulate(mask->begin(), mask->end(), 0U, [](unsigned bits, unsigned char byte) {
        return bits + static_cast<unsigned>(std::popcount(byte));
    });
}

/// The older commands, which know one address only.
std::optional<sim::Bytes> askOlderAddress(BmcQuestions& bmc, unsigned char cmd) {
    TavGetMMBIPv4AddressRespData response;
    if (!bmc.ask(bladeQuestion(cmd, {}, chassisLun), response)) {
        return std::nullopt;
    }
    return sim::Bytes(std::begin(response.ipv4_address), std::end(response.ipv4_address));
}

void askOlderAddresses(BmcQuestions& bmc, std::vector<BladeAddress>& addresses) {
    if (const auto address = askOlderAddress(bmc, tavIpmi::ipmi_oemcmd_get_mmb_ipv4_addr)) {
        const auto mask = askOlderAddress(bmc, tavIpmi::ipmi_oemcmd_get_mmb_ipv4_netmask);
        addresses.push_back({address_index_ipv4_1, *address, prefixOf(mask)});
    }
}

std::vector<BladeAddress> askAddresses(BmcQuestions& bmc, bool ipv6) {
    std::vector<BladeAddress> addresses;
    const unsigned char last = ipv6 ? address_index_ipv6_global : address_index_ipv4_2;
    for (unsigned char index = address_index_ipv4_1; index <= last; ++index) {
        if (const auto address = askAddress(bmc, tavIpmi::ipmi_oemcmd_get_mmb_ip_addr, index)) {
            const auto mask = askAddress(bmc, tavIpmi::ipmi_oemcmd_get_mmb_ip_netmask, index);
            addresses.push_back({index, *address, prefixOf(mask)});
        }
    }
    if (addresses.empty()) {
        askOlderAddresses(bmc, addresses);
    }
    return addresses;
}

bool askIpv6Capable(BmcQuestions& bmc) {
    TavGetMMBIpv6AddressCapabilityRespData capability;
    return bmc.ask(bladeQuestion(tavIpmi::ipmi_oemcmd_get_ipv6_address_capability, {}, chassisLun),
                   capability, offsetof(TavGetMMBIpv6AddressCapabilityRespData, cb_lan_port)) &&
           capability.mmb_lan_port.mmb != 0;
}

/// Of the second port of whichever of the two managers has one.
MacAddress askSecondMac(BmcQuestions& bmc) {
    MacAddress mac;
    for (unsigned char manager = 0; manager < 2 && !mac; ++manager) {
        const TavGetMMBSecondPhysicalAddressReqData request{manager};
        TavGetMMBSecondPhysicalAddressRespData response;
        if (bmc.ask(bladeQuestion(tavIpmi::ipmi_oemcmd_get_mmb_second_phys_addr,
                                  recordBytes(request), chassisLun),
                    response)) {
            mac = response.eth1_mac_address;
        }
    }
    return mac;
}

} // namespace

/// Only the BMC of a blade has a slot to tell of. None, too, when the asking ended early.
std::optional<BladeStatus> askBlade(BmcQuestions& bmc) {
    TavGetSlotNumberRespData slot;
    if (!bmc.ask(bladeQuestion(tavIpmi::ipmi_oemcmd_get_slot_number), slot)) {
        return std::nullopt;
    }
    BladeStatus blade{slot.sl_number, askPorts(bmc), askIpv6Capable(bmc), {}, {}};
    blade.addresses = askAddresses(bmc, blade.ipv6Capable);
    blade.secondMac = askSecondMac(bmc);
    return bmc.reach() == Reach::answering ? std::optional(std::move(blade)) : std::nullopt;
}

} // namespace tavStatus
