// Blade detection, and what a blade's BMC knows of ports and management blade.

#include "tavBladeInfo.h"

#include "tavBladeRecords.h"
#include "tavIpmi.h"
#include "tavIpmiDeviceId.h"
#include "tavSmbios.h"

#include <algorithm>
#include <array>

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;
using tavSmbios::TavSmbios;

namespace {

constexpr unsigned lastLanPort = 31;
constexpr std::size_t macLength = 6;

TavIpmi_request_msg bladeRequest(unsigned char cmd, ByteView data = {}) {
    return {tavIpmi::ipmi_netfn_req_oem_1, cmd, data};
}

/// A BMC that does not tell who it is tells nothing of a blade.
bool identityTellsBlade() {
    try {
        return tavIpmi::TavIpmiDeviceIdData().isBlade();
    } catch (const tavIpmi::TavIpmiError&) {
        return false;
    }
}

/// A chassis gives each of its blades a serial number of its own.
bool serialNumbersDiffer(const TavSmbios& tables) {
    const auto* const system = tables.getFirstEntry(tavSmbios::smbios_type_SystemInformation);
    const auto* const enclosure = tables.getFirstEntry(tavSmbios::smbios_type_SystemEnclosure);
    if (system == nullptr || enclosure == nullptr) {
        return false;
    }
    const std::string ofSystem = TavSmbios::getSmbiosStringS(
        system, TavSmbios::record<tavSmbios::SMBSystemInformation>(*system).serialNumber);
    const std::string ofEnclosure = TavSmbios::getSmbiosStringS(
        enclosure, TavSmbios::record<tavSmbios::SMBSystemEnclosure>(*enclosure).serialNumber);
    return ofSystem.size() > 1 && ofEnclosure.size() > 1 && ofSystem != ofEnclosure;
}

/// Asks for an address or mask of the management blade. False when it does not know the command or
/// does not answer. `response` is set if an address of that type came whole.
bool askMMB(const TavIpmi& ipmi, unsigned char cmd, AddressType type, AddressIndex index,
            std::optional<TavGetMMBIPAddressRespData>& response) {
    const TavGetMMBIPAddressReqData request{static_cast<unsigned char>(type),
                                            static_cast<unsigned char>(index)};
    TavIpmi_request_msg msg = bladeRequest(cmd, recordBytes(request));
    if (!exchange(ipmi, msg)) {
        return false;
    }
    constexpr std::size_t header = offsetof(TavGetMMBIPAddressRespData, ipv4_address);
    const std::size_t length = type == address_type_ipv4 ? 4 : 16;
    TavGetMMBIPAddressRespData record;
    if (readRecord(msg.response(), record, header + length) && record.address_type == type) {
        response = record;
    }
    return true;
}

/// An IPv4 address or mask, with the older command, which knows one only, as second choice. An
/// answer that there is none is no reason to ask again.
void readIpv4(const TavIpmi& ipmi, unsigned char cmd, unsigned char olderCmd, AddressIndex index,
              IPv4Address& field) {
    std::optional<TavGetMMBIPAddressRespData> response;
    if (askMMB(ipmi, cmd, address_type_ipv4, index, response)) {
        if (response) {
            field = response->ipv4_address;
        }
        return;
    }
    TavIpmi_request_msg msg = bladeRequest(olderCmd);
    TavGetMMBIPv4AddressRespData older;
    if (exchange(ipmi, msg, older)) {
        field = older.ipv4_address;
    }
}

std::optional<IPv6Address> readIpv6(const TavIpmi& ipmi, unsigned char cmd, AddressIndex index) {
    std::optional<TavGetMMBIPAddressRespData> response;
    if (!askMMB(ipmi, cmd, address_type_ipv6, index, response) || !response) {
        return std::nullopt;
    }
    return IPv6Address(response->ipv6_address);
}

void readPrefixLength(const TavIpmi& ipmi, AddressIndex index, std::uint32_t& field) {
    if (const auto mask = readIpv6(ipmi, tavIpmi::ipmi_oemcmd_get_mmb_ip_netmask, index)) {
        field = mask->getNumberOfLeadingOnes();
    }
}

void readAddress(const TavIpmi& ipmi, AddressIndex index, IPv6Address& field) {
    if (const auto address = readIpv6(ipmi, tavIpmi::ipmi_oemcmd_get_mmb_ip_addr, index)) {
        field = *address;
    }
}

} // namespace

TavBladeInfo::TavBladeInfo(unsigned int slot_number_, bool detect) :
    blade(!detect), slot_number(slot_number_) {
    if (detect) {
        detectBlade();
    }
    if (blade) {
        mmbNetworkInfo = getMMBNetworkInfo();
        readBladeData();
    }
}

void TavBladeInfo::detectBlade() {
    const TavSmbios tables;
    const unsigned enclosures = tables.getEntryNumber(tavSmbios::smbios_type_SystemEnclosure);
    blade =
        identityTellsBlade() || enclosures > 1 || (enclosures == 1 && serialNumbersDiffer(tables));
    kestrelbox = tavSmbios::isKestrelbox(tables);
}

void TavBladeInfo::readBladeData() {
    try {
        const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
        if (slot_number == unknownSlotNumber) {
            TavIpmi_request_msg msg = bladeRequest(tavIpmi::ipmi_oemcmd_get_slot_number);
            TavGetSlotNumberRespData response;
            if (exchange(ipmi, msg, response)) {
                slot_number = response.sl_number;
            }
        }
        readMacTable(ipmi);
    } catch (const tavIpmi::TavIpmiError&) {
        // What was read so far stands.
    }
}

void TavBladeInfo::readMacTable(const TavIpmi& ipmi) {
    unsigned answered = 0;
    unsigned total = 0;
    for (unsigned char port = 1; port <= lastLanPort; ++port) {
        TavGetLANInfoReqData request{};
        request.lanPortNumber.number = port & 0x7FU;
        TavIpmi_request_msg msg =
            bladeRequest(tavIpmi::ipmi_oemcmd_get_lan_info, recordBytes(request));
        TavGetLANInfoRespData response;
        // Nobody needs the place of the port: a BMC may leave it out.
        const bool whole =
            exchange(ipmi, msg, response, offsetof(TavGetLANInfoRespData, quadrant_module_port));
        if (whole) {
            total = response.number_of_lan_ports;
            if (response.parameter.status != 0) {
                mmbMacAddressTable.emplace(port, MacAddress(response.mac_address));
            }
            ++answered;
        } else if (response.completion_code == tavIpmi::ipmi_cc_invalid_cmd) {
            readLegacyMacTable(ipmi);
            return;
        } else if (response.completion_code != tavIpmi::ipmi_cc_param_out_of_range) {
            return;
        }
        if (answered == total) {
            return;
        }
    }
}

void TavBladeInfo::readLegacyMacTable(const TavIpmi& ipmi) {
    TavIpmi_request_msg msg = bladeRequest(tavIpmi::ipmi_oemcmd_get_nic_mac_addrs);
    constexpr std::size_t header = offsetof(TavGetMacAddrsRespData, mac_addresses);
    if (!exchange(ipmi, msg, header)) {
        return;
    }
    ByteView addresses = msg.response().subspan(header);
    for (std::uint32_t port = 1; addresses.size() >= macLength; ++port) {
        MacAddress address(addresses.data());
        std::reverse(std::begin(address.v), std::end(address.v));
        mmbMacAddressTable.insert_or_assign(port, address);
        addresses = addresses.subspan(macLength);
    }
}

bool TavBladeInfo::getMMBNetworkInfo() noexcept {
    if (!blade) {
        return false;
    }
    try {
        const TavIpmi ipmi(1, 0, TavIpmi::ipmiSystemInterface);
        TavIpmi_request_msg msg = bladeRequest(tavIpmi::ipmi_oemcmd_get_ipv6_address_capability);
        TavGetMMBIpv6AddressCapabilityRespData capability;
        constexpr std::size_t needed =
            offsetof(TavGetMMBIpv6AddressCapabilityRespData, cb_lan_port);
        mmbIpv6Capable =
            exchange(ipmi, msg, capability, needed) && capability.mmb_lan_port.mmb != 0;
        readMMBIpv4(ipmi);
        readMMBIpv6(ipmi);
        readSecondMMBMac(ipmi);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void TavBladeInfo::readMMBIpv4(const TavIpmi& ipmi) {
    using namespace tavIpmi;
    const auto address = [&ipmi](AddressIndex index, IPv4Address& field) {
        readIpv4(ipmi, ipmi_oemcmd_get_mmb_ip_addr, ipmi_oemcmd_get_mmb_ipv4_addr, index, field);
    };
    const auto mask = [&ipmi](AddressIndex index, IPv4Address& field) {
        readIpv4(ipmi, ipmi_oemcmd_get_mmb_ip_netmask, ipmi_oemcmd_get_mmb_ipv4_netmask, index,
                 field);
    };
    address(address_index_ipv4_1, firstMMBIpV4Address);
    address(address_index_ipv4_2, secondMMBIpV4Address);
    mask(address_index_ipv4_1, firstMMBIpV4Netmask);
    mask(address_index_ipv4_2, secondMMBIpV4Netmask);
}

void TavBladeInfo::readMMBIpv6(const TavIpmi& ipmi) {
    // Asked of every management blade; one that is IPv6-capable is asked again with its addresses.
    readPrefixLength(ipmi, address_index_ipv6_link_local, linkLocalMMBIpV6AddressPrefixLength);
    if (!mmbIpv6Capable) {
        return;
    }
    readAddress(ipmi, address_index_ipv6_link_local, linkLocalMMBIpV6Address);
    readAddress(ipmi, address_index_ipv6_global, linkGlobalMMBIpV6Address);
    readPrefixLength(ipmi, address_index_ipv6_link_local, linkLocalMMBIpV6AddressPrefixLength);
    readPrefixLength(ipmi, address_index_ipv6_global, linkGlobalMMBIpV6AddressPrefixLength);
}

void TavBladeInfo::readSecondMMBMac(const TavIpmi& ipmi) {
    for (const unsigned char managerId : std::array<unsigned char, 2>{0, 1}) {
        const TavGetMMBSecondPhysicalAddressReqData request{managerId};
        TavIpmi_request_msg msg =
            bladeRequest(tavIpmi::ipmi_oemcmd_get_mmb_second_phys_addr, recordBytes(request));
        TavGetMMBSecondPhysicalAddressRespData response;
        if (exchange(ipmi, msg, response)) {
            secondMMBMacAddress = response.eth1_mac_address;
        }
        if (secondMMBMacAddress) {
            return;
        }
    }
}
