#pragma once

#include "ipmiMessage.h"

#include <array>
#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace sim {

using Mac = std::array<unsigned char, 6>;

/// Of the management blade, on the bus that the blades of a chassis share.
inline constexpr unsigned char managementBladeAddress = 0x24;

/// The addresses that a management blade deals in, as the wire numbers them.
namespace addressIndex {
inline constexpr std::size_t ipv4First = 0;
inline constexpr std::size_t ipv4Second = 1;
inline constexpr std::size_t ipv6LinkLocal = 2;
inline constexpr std::size_t ipv6Global = 3;
inline constexpr std::size_t count = 4;
} // namespace addressIndex

/// The management blade of a chassis, as seen from one blade in it: what it tells the blade, and
/// what it knows of the blade.
class ManagementBlade {
  public:
    /// An address and its netmask, 4 or 16 bytes each; empty when there is none.
    struct Address {
        Bytes address;
        Bytes netmask;
    };
    /// One of the blade's addresses: LAN port from 1, and addressIndex.
    struct BladeAddress {
        unsigned port = 0;
        unsigned index = 0;
        // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the comparison with 0
        auto operator<=>(const BladeAddress&) const = default;
    };

    /// Starts with every address, and with IPv6.
    ManagementBlade();

    /// Serves a request that came over the bus: it is an event receiver.
    Reply serve(unsigned char netfn, unsigned char cmd, Data request);

    std::array<Address, addressIndex::count> addresses;
    bool ipv6Capable = true;
    std::array<Mac, 2> secondMacs; // of the second port of each of its managers

    std::map<BladeAddress, Bytes> bladeAddresses;
    std::string platformType;
    std::string platformRelease;
    std::optional<unsigned> osStatus; // none: no event came
    unsigned statusEvents = 0;

  private:
    Reply platformEvent(Data request);
};

/// What the BMC of a blade has beyond that of a plain server: it knows its place in the chassis
/// and its LAN ports, and passes on what the blade and the management blade want of each other.
class BladeLink {
  public:
    struct LanPort {
        Mac mac{};
        bool enabled = true;
    };

    /// Slot 3, four LAN ports with the MAC addresses 02:00:00:00:00:01 to :04.
    BladeLink();

    /// Serves a request of the blades' network function.
    Reply serve(unsigned char cmd, Data request);
    /// From now on as with a management blade of the first generation: without IPv6 and all
    /// commands that came later, LAN information among them.
    void makeOld();

    unsigned char slotNumber = 3;
    std::vector<LanPort> ports;
    std::set<unsigned char> missingCommands; // answered as unknown ones are
    ManagementBlade chassis;

  private:
    struct Command;
    static const Command* find(unsigned char cmd) noexcept;

    Reply slot(Data request);
    Reply lanInfo(Data request);
    Reply macList(Data request);
    Reply ipv6Capability(Data request);
    Reply mmbAddress(Data request);
    Reply mmbNetmask(Data request);
    Reply legacyAddress(Data request);
    Reply legacyNetmask(Data request);
    Reply secondMac(Data request);
    Reply setAddress(Data request);
    Reply sendAddress(Data request);
    Reply longPlatformType(Data request);
    Reply platformType(Data request);
    Reply platformRelease(Data request);

    Reply storeAddress(unsigned bladeId, unsigned portIndex, unsigned index, Data address);
};

} // namespace sim
