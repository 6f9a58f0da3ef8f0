// IPv6 addresses from the kernel's routing socket.

#include "tavIp.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tavIp {
namespace {

constexpr std::uint32_t bufferStep = 256;
constexpr std::size_t ipv6Length = 16;

/// What comes after the first `length` bytes, netlink's padding included.
ByteView after(ByteView bytes, std::size_t length) {
    return bytes.subspan(std::min<std::size_t>(NLMSG_ALIGN(length), bytes.size()));
}

/// The header at the start of `bytes`, which must be large enough.
template <typename Header>
Header headerAt(ByteView bytes) {
    Header header;
    std::memcpy(&header, bytes.data(), sizeof header);
    return header;
}

IPv6Address addressOf(ByteView payload) {
    return payload.size() >= ipv6Length ? IPv6Address(payload.data()) : IPv6Address();
}

TavIpv6AddressInfo infoOf(unsigned short attribute, ByteView payload) {
    TavIpv6AddressInfo info;
    switch (attribute) {
    case IFA_ADDRESS:
        info.type = TavIpv6AddressInfo::ipv6_addresstype_global_unicast;
        break;
    case IFA_LOCAL:
        info.type = TavIpv6AddressInfo::ipv6_addresstype_link_local_unicast;
        break;
    case IFA_BROADCAST:
        info.type = TavIpv6AddressInfo::ipv6_addresstype_broadcast;
        break;
    case IFA_ANYCAST:
        info.type = TavIpv6AddressInfo::ipv6_addresstype_anycast;
        break;
    default:
        return info;
    }
    info.address = addressOf(payload);
    return info;
}

std::string labelOf(ByteView payload) {
    const auto end = std::find(payload.begin(), payload.end(), 0);
    return {payload.begin(), end};
}

/// Every attribute adds an entry; one that is no address adds an empty one.
void addAttributes(ByteView attributes, TavIfParameter& parameter) {
    while (attributes.size() >= sizeof(rtattr)) {
        const auto attribute = headerAt<rtattr>(attributes);
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > attributes.size()) {
            return;
        }
        const ByteView payload =
            attributes.subspan(sizeof(rtattr), attribute.rta_len - sizeof(rtattr));
        if (attribute.rta_type == IFA_LABEL && parameter.ifName.empty()) {
            parameter.ifName = labelOf(payload);
        }
        parameter.ipv6AddressInfos.push_back(infoOf(attribute.rta_type, payload));
        attributes = after(attributes, attribute.rta_len);
    }
}

TavIfParameter& entryFor(std::uint32_t index, IfParameters& interfaces, int& ifNumber) {
    try {
        const auto [place, added] = interfaces.try_emplace(index);
        if (added) {
            place->second.ifName = "noname";
            ++ifNumber;
        }
        return place->second;
    } catch (const std::bad_alloc&) {
        throw TavIpError("Unable to create new entry in ifParameters list. ", __FILE__, __LINE__);
    }
}

void sendAddressQuestion(const FileDescriptor& routingSocket) {
    struct {
        nlmsghdr header;
        ifaddrmsg body;
    } request{};
    static_assert(sizeof request == 24);
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT;
    request.header.nlmsg_pid = static_cast<std::uint32_t>(::getpid());
    request.body.ifa_family = AF_INET6;
    if (::send(routingSocket.get(), &request, sizeof request, 0) == -1) {
        throw TavIpError(errnoText("send call returned with error: "), __FILE__, __LINE__);
    }
}

} // namespace

void addRoutingAddresses(ByteView messages, IfParameters& interfaces, int& ifNumber) {
    while (messages.size() > sizeof(nlmsghdr)) {
        const auto header = headerAt<nlmsghdr>(messages);
        if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > messages.size()) {
            throw TavIpError(errnoText("buffer length error: "), __FILE__, __LINE__);
        }
        const ByteView body =
            messages.subspan(sizeof(nlmsghdr), header.nlmsg_len - sizeof(nlmsghdr));
        if (body.size() >= sizeof(ifaddrmsg)) { // the closing message has no address part
            const auto address = headerAt<ifaddrmsg>(body);
            addAttributes(after(body, sizeof(ifaddrmsg)),
                          entryFor(address.ifa_index, interfaces, ifNumber));
        }
        messages = after(messages, header.nlmsg_len);
    }
}

ByteView TavIp::peekRoutingAnswer(const FileDescriptor& routingSocket) {
    ssize_t received = 0;
    do {
        recv_buffer_size += bufferStep;
        void* const grown = std::realloc(recv_buffer.get(), recv_buffer_size);
        if (grown == nullptr) {
            recv_buffer.reset();
            recv_buffer_size = 0;
            throw TavIpError("realloc failed. ", __FILE__, __LINE__);
        }
        static_cast<void>(recv_buffer.release()); // realloc took it over
        recv_buffer.reset(static_cast<unsigned char*>(grown));
        received = ::recv(routingSocket.get(), grown, recv_buffer_size, MSG_PEEK);
    } while (received == static_cast<ssize_t>(recv_buffer_size));
    return {recv_buffer.get(), static_cast<std::size_t>(std::max<ssize_t>(received, 0))};
}

void TavIp::getIPv6AddrData() {
    FileDescriptor routingSocket(::socket(PF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
    if (!routingSocket) {
        throw TavIpError(errnoText("Could not create socket for PF_NETLINK: "), __FILE__, __LINE__);
    }
    sendAddressQuestion(routingSocket);
    const ByteView answer = peekRoutingAnswer(routingSocket);
    if (!routingSocket.close()) {
        throw TavIpError(errnoText("Could not close socket: "), __FILE__, __LINE__);
    }
    addRoutingAddresses(answer, ifParameters, ifNumber);
}

} // namespace tavIp
