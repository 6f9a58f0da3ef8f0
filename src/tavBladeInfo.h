#pragma once

#include "IPv4Address.h"
#include "IPv6Address.h"
#include "MacAddress.h"
#include "tavError.h"
#include "wireBytes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tavIpmi {
class TavIpmi;
}

/// Which of a port's addresses a report is about.
enum AddressIndex {
    address_index_ipv4_1 = 0,
    address_index_ipv4_2 = 1,
    address_index_ipv6_link_local = 2,
    address_index_ipv6_global = 3
};

enum AddressType {
    address_type_ipv4 = 1,
    address_type_ipv6 = 2
};

/// States of a server as the chassis knows them.
enum KB_systemStatus {
    kb_system_status_power_off = 0,
    kb_system_status_power_on_in_progress = 1,
    kb_system_status_reset = 2,
    kb_system_status_post = 3,
    kb_system_status_boot = 4,
    kb_system_status_os_running = 5,
    kb_system_status_os_shutdown = 6,
    kb_system_status_panic = 7,
    kb_system_status_power_off_in_progress = 8,
    kb_system_status_check_stop = 9,
    kb_system_status_dumping = 10,
    kb_system_status_halt = 11
};

/// Errors of the blade link; none is raised, callers get false results.
class TavBladeInfoError : public TavError {
  public:
    using TavError::TavError;
};

/// Whether this host is a blade, what its chassis' management blade (MMB) can be reached at, and
/// the reports to it. No operation lets an IPMI error out.
class TavBladeInfo {
  public:
    enum TavBladeInfoDefines {
        unknownSlotNumber = 255
    };

    /// With `detect` the SMBIOS tables (whose errors pass out) and the BMC tell whether this is a
    /// blade; without, it is one. A blade's slot, port addresses and MMB addresses are then read.
    TavBladeInfo(unsigned int slot_number, bool detect);
    TavBladeInfo(const TavBladeInfo&) = delete;
    TavBladeInfo& operator=(const TavBladeInfo&) = delete;
    virtual ~TavBladeInfo() = default;

    bool isblade() const noexcept { return blade; }
    bool iskestrelbox() const noexcept { return kestrelbox; }
    /// True on a blade whose slot is known.
    explicit operator bool() const noexcept { return blade && slot_number != unknownSlotNumber; }
    IPv4Address getFirstMMBIpV4Address() const noexcept { return firstMMBIpV4Address; }
    IPv4Address getSecondMMBIpV4Address() const noexcept { return secondMMBIpV4Address; }
    IPv4Address getFirstMMBIpV4Netmask() const noexcept { return firstMMBIpV4Netmask; }
    IPv4Address getSecondMMBIpV4Netmask() const noexcept { return secondMMBIpV4Netmask; }
    IPv6Address getLinkLocalMMBIpV6Address() const noexcept { return linkLocalMMBIpV6Address; }
    IPv6Address getLinkGlobalMMBIpV6Address() const noexcept { return linkGlobalMMBIpV6Address; }
    std::uint32_t getLinkLocalMMBIpV6AddressPrefixLength() const noexcept {
        return linkLocalMMBIpV6AddressPrefixLength;
    }
    std::uint32_t getLinkGlobalMMBIpV6AddressPrefixLength() const noexcept {
        return linkGlobalMMBIpV6AddressPrefixLength;
    }
    MacAddress getSecondMMBMacAddress() const noexcept { return secondMMBMacAddress; }

    // Reports; true when the last command of each was answered with completion code 0.
    /// An address of the LAN port with this MAC; false without traffic if there is none.
    bool sendIpAddressInfo(const IPv4Address& ipv4addr, const MacAddress& maddr) const noexcept;
    bool sendIpAddressInfo(const IPv6Address& ipv6addr, const MacAddress& maddr) const noexcept;
    /// The state of the OS, as an event to the MMB; servers of the KESTRELBOX line only.
    bool setOSStatus(KB_systemStatus st) const noexcept;
    /// OS name (at most 127 characters) and release (at most 31).
    bool setOSPlatformInfo(const std::string& type, const std::string& release) const noexcept;

  private:
    void detectBlade();
    void readBladeData();
    void readMacTable(const tavIpmi::TavIpmi& ipmi);
    void readLegacyMacTable(const tavIpmi::TavIpmi& ipmi);
    bool getMMBNetworkInfo() noexcept;
    void readMMBIpv4(const tavIpmi::TavIpmi& ipmi);
    void readMMBIpv6(const tavIpmi::TavIpmi& ipmi);
    void readSecondMMBMac(const tavIpmi::TavIpmi& ipmi);

    std::optional<unsigned char> portOf(const MacAddress& maddr) const noexcept;
    bool sendSlotAddress(const tavIpmi::TavIpmi& ipmi, unsigned char port,
                         const IPv4Address& address) const;
    bool sendAddress(const tavIpmi::TavIpmi& ipmi, unsigned char port, AddressIndex index,
                     AddressType type, ByteView address) const;

    bool blade{false};
    bool kestrelbox{false};
    bool mmbNetworkInfo{false};
    bool mmbIpv6Capable{false};
    std::uint32_t slot_number;
    std::map<std::uint32_t, MacAddress> mmbMacAddressTable; ///< by LAN port, from 1
    IPv4Address firstMMBIpV4Address;
    IPv4Address secondMMBIpV4Address;
    IPv4Address firstMMBIpV4Netmask;
    IPv4Address secondMMBIpV4Netmask;
    IPv6Address linkLocalMMBIpV6Address;
    IPv6Address linkGlobalMMBIpV6Address;
    std::uint32_t linkLocalMMBIpV6AddressPrefixLength{0};
    std::uint32_t linkGlobalMMBIpV6AddressPrefixLength{0};
    MacAddress secondMMBMacAddress;
};
