#include "hostDescription.h"

#include "tavSmbios.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <numeric>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace sim {

namespace {

using tavSmbios::TavSmbios;

std::string timeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string kernelText() {
    utsname names{};
    if (::uname(&names) != 0) {
        return "";
    }
    return std::string(names.sysname) + " " + names.release + " " + names.version + " " +
           names.machine;
}

void describeMachine(RecordHeader& header) {
    const TavSmbios tables;
    const auto* const system = tables.getFirstEntry(tavSmbios::smbios_type_SystemInformation);
    if (system != nullptr) {
        const auto record = TavSmbios::record<tavSmbios::SMBSystemInformation>(*system);
        const auto text = [system](unsigned char number) {
            return std::string(TavSmbios::getSmbiosString(system, number));
        };
        header.system = {text(record.manufacturer), text(record.productName),
                         text(record.serialNumber), text(record.family)};
    }
    for (auto* entry = tables.getFirstEntry(tavSmbios::smbios_type_SystemEnclosure);
         entry != nullptr; entry = tables.getNextEntry(entry)) {
        const auto record = TavSmbios::record<tavSmbios::SMBSystemEnclosure>(*entry);
        header.enclosureSerials.emplace_back(
            TavSmbios::getSmbiosString(entry, record.serialNumber));
    }
}

template <typename Address>
Address addressAs(const sockaddr* address) {
    Address result{};
    if (address != nullptr) {
        std::memcpy(&result, address, sizeof result);
    }
    return result;
}

template <std::size_t size>
unsigned prefixLength(const std::array<unsigned char, size>& mask) {
    return std::accumulate(mask.begin(), mask.end(), 0U, [](unsigned sum, unsigned char byte) {
        return sum + static_cast<unsigned>(std::popcount(byte));
    });
}

std::array<unsigned char, 4> ipv4Of(const sockaddr* address) {
    return std::bit_cast<std::array<unsigned char, 4>>(addressAs<sockaddr_in>(address).sin_addr);
}

std::array<unsigned char, 16> ipv6Of(const sockaddr* address) {
    return std::bit_cast<std::array<unsigned char, 16>>(addressAs<sockaddr_in6>(address).sin6_addr);
}

void takeAddress(const ifaddrs& element, RecordedInterface& interface) {
    switch (element.ifa_addr->sa_family) {
    case AF_PACKET: {
        const auto link = addressAs<sockaddr_ll>(element.ifa_addr);
        std::copy_n(link.sll_addr, interface.mac.size(), interface.mac.begin());
        break;
    }
    case AF_INET: {
        const auto address = ipv4Of(element.ifa_addr);
        // The list has the address itself there when there is none.
        const bool hasBroadcast =
            (element.ifa_flags & IFF_BROADCAST) != 0 && ipv4Of(element.ifa_broadaddr) != address;
        interface.ipv4.push_back({address, prefixLength(ipv4Of(element.ifa_netmask)),
                                  ipv4Of(hasBroadcast ? element.ifa_broadaddr : nullptr)});
        break;
    }
    case AF_INET6:
        interface.ipv6.push_back(
            {ipv6Of(element.ifa_addr), prefixLength(ipv6Of(element.ifa_netmask))});
        break;
    default:
        break;
    }
}

unsigned mtuOf(const std::string& name) {
    const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq query{};
    name.copy(query.ifr_name, sizeof query.ifr_name - 1);
    const bool answered = ::ioctl(sock, SIOCGIFMTU, &query) == 0;
    ::close(sock);
    return answered ? static_cast<unsigned>(query.ifr_mtu) : 0;
}

/// Without the label of an alias: "eth0:1".
std::string deviceName(const char* name) {
    return {name, std::strcspn(name, ":")};
}

} // namespace

std::vector<RecordedInterface> describeInterfaces() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    std::map<unsigned, RecordedInterface> found;
    for (const ifaddrs* element = list; element != nullptr; element = element->ifa_next) {
        const std::string name = deviceName(element->ifa_name);
        const unsigned index = ::if_nametoindex(name.c_str());
        if (index == 0 || element->ifa_addr == nullptr) {
            continue;
        }
        RecordedInterface& interface = found[index];
        if (interface.index == 0) {
            interface.index = index;
            interface.name = name;
            interface.flags = element->ifa_flags;
            interface.mtu = mtuOf(name);
        }
        takeAddress(*element, interface);
    }
    std::vector<RecordedInterface> interfaces;
    interfaces.reserve(found.size());
    for (auto& [index, interface] : found) {
        interfaces.push_back(std::move(interface));
    }
    return interfaces;
}

RecordHeader describeHost(const std::string& program, std::span<char* const> options) {
    RecordHeader header{.program = program + " " + TAV_VERSION,
                        .started = timeNow(),
                        .kernel = kernelText(),
                        .maker = TAV_IANA_ENTERPRISE_NUMBER};
    for (const char* const option : options) {
        if (option == nullptr) {
            break;
        }
        header.options.emplace_back(option);
    }
    header.interfaces = describeInterfaces();
    try {
        describeMachine(header);
    } catch (const std::exception&) {
        // the agent will not find out either
    }
    return header;
}

} // namespace sim
