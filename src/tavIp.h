#pragma once

#include "IPv4Address.h"
#include "IPv6Address.h"
#include "MacAddress.h"
#include "fileDescriptor.h"
#include "tavError.h"
#include "wireBytes.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <net/if.h>

namespace tavIp {

/// Errors of the network interface inventory.
class TavIpError : public TavError {
  public:
    using TavError::TavError;
};

/// One IPv6 address of an interface.
class TavIpv6AddressInfo {
  public:
    /// Classes of addresses; the numbers travel to the BMC.
    enum IPv6AddressType {
        ipv6_addresstype_unknown = 0,
        ipv6_addresstype_loopback = 1,
        ipv6_addresstype_multicast = 2,
        ipv6_addresstype_broadcast = 3,
        ipv6_addresstype_anycast = 4,
        ipv6_addresstype_link_local_unicast = 5,
        ipv6_addresstype_global_unicast = 6,
        ipv6_addresstype_site_local_unicast = 8,
        ipv6_addresstype_v4_mapped = 10,
        ipv6_addresstype_v4_compatible = 11
    };
    enum IPv6AddressSource {
        ipv6_address_source_unknown = 0,
        ipv6_address_source_static = 1,
        ipv6_address_source_autoconfiguration = 2,
        ipv6_address_source_system = 3,
        ipv6_address_source_other = 4
    };

    /// True unless the address is ::.
    explicit operator bool() const noexcept { return static_cast<bool>(address); }
    bool operator==(const TavIpv6AddressInfo& other) const noexcept = default;

    IPv6Address address;
    std::uint32_t prefixLength{0}; ///< bits
    IPv6AddressType type{ipv6_addresstype_unknown};
    IPv6AddressSource source{ipv6_address_source_unknown};
};

/// The class of an address by its prefix.
TavIpv6AddressInfo::IPv6AddressType classify(const IPv6Address& address) noexcept;

/// The kernel's interface flags.
enum IfFlags {
    iff_up = 1,
    iff_broadcast = 2,
    iff_debug = 4,
    iff_loopback = 8,
    iff_pointopoint = 16,
    iff_notrailers = 32,
    iff_running = 64,
    iff_noarp = 128,
    iff_promisc = 256,
    iff_allmulti = 512,
    iff_master = 1024,
    iff_slave = 2048,
    iff_multicast = 4096,
    iff_portsel = 8192,
    iff_automedia = 16384,
    iff_dynamic = 32768
};

/// One network interface.
struct TavIfParameter {
    std::int32_t i{-1}; ///< position in the kernel's interface list; -1 if not from there
    std::string ifName;
    IPv4Address ipv4Address;
    IPv4Address ipv4SubnetMask;
    IPv4Address ipv4BroadcastAddress;
    MacAddress macAddress;
    std::int32_t mtu{0};
    std::int16_t ifFlags{0};
    bool ipV6{false}; ///< the host reported an IPv6 address, even ::
    std::vector<TavIpv6AddressInfo> ipv6AddressInfos;
};

/// Interfaces by kernel interface index.
using IfParameters = std::map<std::uint32_t, TavIfParameter>;

/// Indices, in ascending order, of the interfaces whose addresses are reported: those with an IPv4
/// address that are no loopback. 0 and indices of 2^31 and above are no interface of a host.
std::vector<std::uint32_t> reportedInterfaces(const IfParameters& interfaces);

/// Whether an inventory needs no new push, given the one before it. Two or more interfaces that are
/// the same in the same order need none; otherwise the change detector's own matching decides, not
/// set equality: it overlooks some changes, and finds one interface alone always changed.
bool sameInterfaces(const IfParameters& left, const IfParameters& right);

/// Takes the addresses out of an RTM_GETADDR answer (rtnetlink(7)); interfaces not listed yet are
/// added to `interfaces` and counted in `ifNumber`. Throws TavIpError for a message that is shorter
/// than its header or longer than what is there.
void addRoutingAddresses(ByteView messages, IfParameters& interfaces, int& ifNumber);

/// A snapshot of the host's network interfaces that have an IPv4 address.
class TavIp {
  public:
    /// Takes the snapshot. Throws TavIpError when a query for the whole list fails, or when two
    /// list entries (address aliases) share one interface index.
    TavIp();
    TavIp(const TavIp&) = delete;
    TavIp& operator=(const TavIp&) = delete;
    virtual ~TavIp() = default;

    int getIfNumber() const noexcept { return ifNumber; }
    const IfParameters& getIfParameters() const noexcept { return ifParameters; }

    // By interface index; index 0 and unknown ones yield a neutral value (false, 0, empty).
    /// Position in the kernel's interface list, -1 if there is none.
    std::int32_t getIndex(unsigned index) const;
    std::string getName(unsigned index) const;
    IPv4Address getIpv4Address(unsigned index) const;
    IPv4Address getIpv4SubnetMask(unsigned index) const;
    IPv4Address getIpv4BroadcastAddress(unsigned index) const;
    MacAddress getMacAddress(unsigned index) const;
    std::int32_t getMtu(unsigned index) const;
    bool isUp(unsigned index) const;
    bool isRunning(unsigned index) const;
    bool isLoopback(unsigned index) const;
    bool supportsIpv6(unsigned index) const;
    std::size_t getNumberOfIpv6Addresses(unsigned index) const;
    TavIpv6AddressInfo getIpv6AddressInfo(unsigned index, unsigned n) const;

    /// The change detector (see sameInterfaces).
    bool operator==(const TavIp& other) const;

    /// Reads the flags of one entry again; 0 if the kernel does not know it any more.
    void updateFlags(IfParameters::iterator entry);
    /// Adds the IPv6 addresses of the kernel's routing socket. Throws TavIpError.
    void getIPv6AddrData();

  private:
    struct Free {
        void operator()(void* block) const noexcept { std::free(block); }
    };

    std::size_t readInterfaceList();
    void addInterface(std::int32_t position);
    void queryParameters(TavIfParameter& parameter, const ifreq& entry) const;
    void addIpv6Addresses();
    const TavIfParameter& find(unsigned index) const;
    ByteView peekRoutingAnswer(const FileDescriptor& routingSocket);

    FileDescriptor sock;
    int ifNumber{0};
    std::unique_ptr<unsigned char, Free> recv_buffer;
    std::uint32_t recv_buffer_size{0};
    std::unique_ptr<ifreq[], Free> ifconfBuffer; ///< what `SIOCGIFCONF` filled
    std::size_t ifconfEntries{0};
    IfParameters ifParameters;
};

} // namespace tavIp
