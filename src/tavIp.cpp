// Taking the inventory, and reading single values of it.

#include "tavIp.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace tavIp {
namespace {

constexpr std::size_t firstCapacity = 10;
constexpr std::size_t maxEntries = 512;

IPv4Address addressOf(const sockaddr& address) noexcept {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof ipv4);
    unsigned char bytes[sizeof ipv4.sin_addr];
    std::memcpy(bytes, &ipv4.sin_addr, sizeof bytes);
    IPv4Address result;
    result = bytes;
    return result;
}

/// Masks and broadcast addresses go through their text form.
void assignText(IPv4Address& field, const sockaddr& address) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof ipv4);
    field = inet_ntoa(ipv4.sin_addr);
}

std::string nameOf(const ifreq& entry) {
    return {entry.ifr_name, strnlen(entry.ifr_name, sizeof entry.ifr_name)};
}

IPv6Address ipv6Of(const sockaddr* address) noexcept {
    sockaddr_in6 ipv6{};
    if (address != nullptr) {
        std::memcpy(&ipv6, address, sizeof ipv6);
    }
    return IPv6Address(ipv6.sin6_addr);
}

TavIpv6AddressInfo infoOf(const ifaddrs& element) noexcept {
    TavIpv6AddressInfo info;
    info.address = ipv6Of(element.ifa_addr);
    info.prefixLength = ipv6Of(element.ifa_netmask).getNumberOfLeadingOnes();
    info.type = classify(info.address);
    return info;
}

} // namespace

TavIpv6AddressInfo::IPv6AddressType classify(const IPv6Address& address) noexcept {
    if (address.isLoopback()) {
        return TavIpv6AddressInfo::ipv6_addresstype_loopback;
    }
    if (address.isMulticast()) {
        return TavIpv6AddressInfo::ipv6_addresstype_multicast;
    }
    if (address.isLinklocal()) {
        return TavIpv6AddressInfo::ipv6_addresstype_link_local_unicast;
    }
    if (address.isSitelocal()) {
        return TavIpv6AddressInfo::ipv6_addresstype_site_local_unicast;
    }
    if (address.isV4Mapped()) {
        return TavIpv6AddressInfo::ipv6_addresstype_v4_mapped;
    }
    if (address.isV4Compatible()) {
        return TavIpv6AddressInfo::ipv6_addresstype_v4_compatible;
    }
    return TavIpv6AddressInfo::ipv6_addresstype_global_unicast;
}

std::vector<std::uint32_t> reportedInterfaces(const IfParameters& interfaces) {
    constexpr std::uint32_t maxIndex = std::numeric_limits<std::int32_t>::max();
    std::vector<std::uint32_t> indices;
    for (const auto& [index, parameter] : interfaces) {
        if (index != 0 && index <= maxIndex && parameter.ipv4Address &&
            (parameter.ifFlags & iff_loopback) == 0) {
            indices.push_back(index);
        }
    }
    return indices;
}

TavIp::TavIp() : sock(::socket(AF_INET, SOCK_DGRAM, 0)) {
    if (!sock) {
        throw TavIpError(errnoText("Could not create socket: "), __FILE__, __LINE__);
    }
    ifconfEntries = readInterfaceList();
    for (std::size_t position = 0; position < ifconfEntries; ++position) {
        addInterface(static_cast<std::int32_t>(position));
    }
    addIpv6Addresses();
}

/// Fetches the list with room for one entry more than last time, until the kernel leaves room.
std::size_t TavIp::readInterfaceList() {
    std::size_t entries = firstCapacity;
    for (;;) {
        const std::size_t requested = (entries + 1) * sizeof(ifreq);
        void* const grown = std::realloc(ifconfBuffer.get(), requested);
        if (grown == nullptr) {
            throw TavIpError("realloc failed. ", __FILE__, __LINE__);
        }
        static_cast<void>(ifconfBuffer.release()); // realloc took it over
        ifconfBuffer.reset(static_cast<ifreq*>(grown));
        ifconf request{};
        request.ifc_len = static_cast<int>(requested);
        request.ifc_req = ifconfBuffer.get();
        if (::ioctl(sock.get(), SIOCGIFCONF, &request) == -1) {
            throw TavIpError(errnoText("SIOCGIFCONF failed: "), __FILE__, __LINE__);
        }
        const auto returned = std::min(static_cast<std::size_t>(request.ifc_len), requested);
        entries = returned / sizeof(ifreq);
        if (entries > maxEntries || returned < requested) {
            return entries;
        }
    }
}

void TavIp::addInterface(std::int32_t position) {
    const ifreq& entry = ifconfBuffer[static_cast<std::size_t>(position)];
    ifreq query = entry;
    if (::ioctl(sock.get(), SIOCGIFINDEX, &query) == -1) {
        return; // gone since the list was made
    }
    const auto key = static_cast<std::uint32_t>(query.ifr_ifindex);
    const auto [place, added] = ifParameters.try_emplace(key);
    if (!added) {
        throw TavIpError("if entry for " + place->second.ifName + " is already existing.", __FILE__,
                         __LINE__);
    }
    ++ifNumber;
    place->second.i = position;
    place->second.ifName = nameOf(entry);
    place->second.ipv4Address = addressOf(entry.ifr_addr);
    queryParameters(place->second, entry);
}

/// Each value on its own: one that the kernel does not give stays zero.
void TavIp::queryParameters(TavIfParameter& parameter, const ifreq& entry) const {
    ifreq query{};
    const auto answered = [this, &query, &entry](unsigned long question) {
        query = entry;
        return ::ioctl(sock.get(), question, &query) != -1;
    };
    if (answered(SIOCGIFMTU)) {
        parameter.mtu = query.ifr_mtu;
    }
    if (answered(SIOCGIFHWADDR)) {
        parameter.macAddress = query.ifr_hwaddr.sa_data;
    }
    if (answered(SIOCGIFNETMASK)) {
        assignText(parameter.ipv4SubnetMask, query.ifr_netmask);
    }
    if (answered(SIOCGIFBRDADDR)) {
        assignText(parameter.ipv4BroadcastAddress, query.ifr_broadaddr);
    }
    if (answered(SIOCGIFFLAGS)) {
        parameter.ifFlags = query.ifr_flags;
    }
}

void TavIp::addIpv6Addresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) == -1) {
        throw TavIpError(errnoText("call of getifaddrs failed: "), __FILE__, __LINE__);
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    for (const ifaddrs* element = list; element != nullptr; element = element->ifa_next) {
        if (element->ifa_addr == nullptr || element->ifa_addr->sa_family != AF_INET6) {
            continue;
        }
        const auto named =
            std::find_if(ifParameters.begin(), ifParameters.end(), [element](const auto& entry) {
                return entry.second.ifName == element->ifa_name;
            });
        if (named == ifParameters.end()) {
            continue;
        }
        named->second.ipV6 = true;
        if (const TavIpv6AddressInfo info = infoOf(*element)) {
            named->second.ipv6AddressInfos.push_back(info);
        }
    }
}

void TavIp::updateFlags(IfParameters::iterator entry) {
    TavIfParameter& parameter = entry->second;
    if (parameter.i < 0 || static_cast<std::size_t>(parameter.i) >= ifconfEntries) {
        return;
    }
    ifreq query = ifconfBuffer[static_cast<std::size_t>(parameter.i)];
    const bool answered = ::ioctl(sock.get(), SIOCGIFFLAGS, &query) != -1;
    parameter.ifFlags = answered ? query.ifr_flags : std::int16_t{0};
}

const TavIfParameter& TavIp::find(unsigned index) const {
    static const TavIfParameter neutral;
    const auto place = index == 0 ? ifParameters.end() : ifParameters.find(index);
    return place == ifParameters.end() ? neutral : place->second;
}

std::int32_t TavIp::getIndex(unsigned index) const {
    return find(index).i;
}

std::string TavIp::getName(unsigned index) const {
    return find(index).ifName;
}

IPv4Address TavIp::getIpv4Address(unsigned index) const {
    return find(index).ipv4Address;
}

IPv4Address TavIp::getIpv4SubnetMask(unsigned index) const {
    return find(index).ipv4SubnetMask;
}

IPv4Address TavIp::getIpv4BroadcastAddress(unsigned index) const {
    return find(index).ipv4BroadcastAddress;
}

MacAddress TavIp::getMacAddress(unsigned index) const {
    return find(index).macAddress;
}

std::int32_t TavIp::getMtu(unsigned index) const {
    return find(index).mtu;
}

bool TavIp::isUp(unsigned index) const {
    return (find(index).ifFlags & iff_up) != 0;
}

bool TavIp::isRunning(unsigned index) const {
    return (find(index).ifFlags & iff_running) != 0;
}

bool TavIp::isLoopback(unsigned index) const {
    return (find(index).ifFlags & iff_loopback) != 0;
}

bool TavIp::supportsIpv6(unsigned index) const {
    return find(index).ipV6;
}

std::size_t TavIp::getNumberOfIpv6Addresses(unsigned index) const {
    return find(index).ipv6AddressInfos.size();
}

TavIpv6AddressInfo TavIp::getIpv6AddressInfo(unsigned index, unsigned n) const {
    const std::vector<TavIpv6AddressInfo>& infos = find(index).ipv6AddressInfos;
    return n < infos.size() ? infos[n] : TavIpv6AddressInfo();
}

bool TavIp::operator==(const TavIp& other) const {
    return this == &other ||
           (ifNumber == other.ifNumber && sameInterfaces(ifParameters, other.ifParameters));
}

} // namespace tavIp
