#include "hostNetwork.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

Network network;

namespace {

constexpr unsigned long questions[] = {SIOCGIFCONF,    SIOCGIFINDEX,   SIOCGIFMTU,  SIOCGIFHWADDR,
                                       SIOCGIFNETMASK, SIOCGIFBRDADDR, SIOCGIFFLAGS};

void answer(const Network::Interface& interface, std::ptrdiff_t question, ifreq& query) {
    std::ranges::copy(interface.name, query.ifr_name);
    std::memcpy(&query.ifr_ifru, interface.answers[question], sizeof interface.answers[question]);
}

void listInterfaces(ifconf& list) {
    const auto room = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq);
    const std::size_t count = std::min(room, network.interfaces.size());
    for (std::size_t n = 0; n < count; ++n) {
        answer(network.interfaces[n], 0, list.ifc_req[n]);
    }
    list.ifc_len = static_cast<int>(count * sizeof(ifreq)) + network.lengthError;
}

int answerQuery(unsigned long request, ifreq& query) {
    const auto question = std::ranges::find(questions, request) - questions;
    const auto asked = std::ranges::find_if(network.interfaces, [&query](const auto& interface) {
        return std::memcmp(interface.name, query.ifr_name, IFNAMSIZ) == 0;
    });
    if (asked == network.interfaces.end() || (asked->failing >> question & 1U) != 0) {
        errno = ENODEV;
        return -1;
    }
    answer(*asked, question, query);
    return 0;
}

/// An element of the list of getifaddrs(3), with what it points to.
struct ListElement {
    ifaddrs element;
    char name[IFNAMSIZ + 1];
    sockaddr_in6 parts[2]; // address, mask

    void fill(const Network::Ipv6Entry& entry) {
        const std::size_t interface = entry.interface % network.interfaces.size();
        std::ranges::copy(network.interfaces[interface].name, name);
        std::ranges::copy(entry.address, parts[0].sin6_addr.s6_addr);
        std::ranges::copy(entry.mask, parts[1].sin6_addr.s6_addr);
        parts[0].sin6_family = (entry.kind & 4U) != 0 ? AF_INET : AF_INET6;
        sockaddr* const address = reinterpret_cast<sockaddr*>(&parts[0]);
        sockaddr* const mask = reinterpret_cast<sockaddr*>(&parts[1]);
        element.ifa_name = name;
        element.ifa_addr = (entry.kind & 1U) != 0 ? nullptr : address;
        element.ifa_netmask = (entry.kind & 2U) != 0 ? nullptr : mask;
    }
};

} // namespace

extern "C" {

int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

int ioctl(int /*fd*/, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request != SIOCGIFCONF) {
        return answerQuery(request, *static_cast<ifreq*>(argument));
    }
    listInterfaces(*static_cast<ifconf*>(argument));
    return 0;
}

ssize_t send(int /*fd*/, const void* /*bytes*/, std::size_t length, int /*flags*/) {
    return static_cast<ssize_t>(length);
}

ssize_t recv(int /*fd*/, void* buffer, std::size_t length, int /*flags*/) {
    const std::size_t count = std::min(length, network.routingAnswer.size());
    std::copy_n(network.routingAnswer.begin(), count, static_cast<unsigned char*>(buffer));
    return static_cast<ssize_t>(count);
}

int getifaddrs(ifaddrs** list) noexcept {
    *list = nullptr;
    for (const Network::Ipv6Entry& entry : network.ipv6) {
        // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): there is memory
        auto* const added = new ListElement{};
        added->fill(entry);
        added->element.ifa_next = std::exchange(*list, &added->element);
    }
    return 0;
}

void freeifaddrs(ifaddrs* list) noexcept {
    while (list != nullptr) {
        delete reinterpret_cast<ListElement*>(std::exchange(list, list->ifa_next));
    }
}

} // extern "C"
