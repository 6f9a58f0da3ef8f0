#include "pcapFile.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <numeric>

#include <fcntl.h>
#include <linux/ipmi.h>
#include <pcap/pcap.h>

namespace sim {

namespace {

constexpr int longestPacket = 65535;
constexpr unsigned char bmcAddress = 0x20;
constexpr unsigned char remoteConsole = 0x81; // the software id of who asks over a network
constexpr std::size_t longestMessage = 255;
constexpr std::uint16_t rmcpPort = 623;
// Documentation addresses (RFC 5737).
constexpr std::array<unsigned char, 4> hostAddress = {192, 0, 2, 1};
constexpr std::array<unsigned char, 4> controllerAddress = {192, 0, 2, 2};

void append(Bytes& bytes, Data more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void append16(Bytes& bytes, std::size_t value) {
    bytes.push_back(static_cast<unsigned char>(value >> 8U));
    bytes.push_back(static_cast<unsigned char>(value));
}

unsigned char checksum(Data bytes) {
    return static_cast<unsigned char>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U));
}

/// One message between two controllers, and what it says.
struct Message {
    unsigned char to;
    unsigned char from;
    unsigned char netfn;
    unsigned char toLun;
    unsigned char fromLun;
    unsigned char sequence;
    unsigned char cmd;
    Data data;
};

Bytes encode(const Message& message) {
    constexpr std::size_t headLength = 3;
    const auto withLun = [](unsigned value, unsigned lun) {
        return static_cast<unsigned char>(value << 2U | lun);
    };
    Bytes bytes = {message.to, withLun(message.netfn, message.toLun)};
    bytes.push_back(checksum(bytes));
    bytes.insert(bytes.end(),
                 {message.from, withLun(message.sequence, message.fromLun), message.cmd});
    append(bytes, message.data);
    bytes.resize(std::min(bytes.size(), longestMessage - 1));
    bytes.push_back(checksum(Data(bytes).subspan(headLength)));
    return bytes;
}

unsigned char sequenceOf(const Exchange& exchange) {
    return exchange.number & 0x3FU;
}

Bytes requestMessage(const Exchange& exchange) {
    const unsigned char sequence = sequenceOf(exchange);
    if (exchange.addressType != IPMI_IPMB_ADDR_TYPE) {
        return encode({bmcAddress, remoteConsole, exchange.netfn, exchange.lun, 0, sequence,
                       exchange.cmd, exchange.request});
    }
    constexpr unsigned char trackedOnPrimaryBus = 0x40;
    Bytes wrapped = {trackedOnPrimaryBus};
    append(wrapped, encode({exchange.slaveAddress, bmcAddress, exchange.netfn, exchange.lun, 0,
                            sequence, exchange.cmd, exchange.request}));
    return encode(
        {bmcAddress, remoteConsole, netfn::app, 0, 0, sequence, command::sendMessage, wrapped});
}

Bytes responseMessage(const Exchange& exchange) {
    const unsigned char sequence = sequenceOf(exchange);
    const auto responseOf = [](unsigned char requestNetfn) {
        return static_cast<unsigned char>(requestNetfn | 1U);
    };
    if (exchange.addressType != IPMI_IPMB_ADDR_TYPE) {
        return encode({remoteConsole, bmcAddress, responseOf(exchange.netfn), 0, exchange.lun,
                       sequence, exchange.cmd, *exchange.response});
    }
    Bytes wrapped = {completion::success};
    append(wrapped, encode({bmcAddress, exchange.slaveAddress, responseOf(exchange.netfn), 0,
                            exchange.lun, sequence, exchange.cmd, *exchange.response}));
    return encode({remoteConsole, bmcAddress, responseOf(netfn::app), 0, 0, sequence,
                   command::sendMessage, wrapped});
}

/// Version 6, no acknowledgement asked for, class IPMI; then a session without authentication.
Bytes rmcpPacket(const Bytes& message) {
    Bytes packet = {0x06, 0x00, 0xFF, 0x07};
    constexpr std::size_t sessionLength = 1 + 4 + 4; // authentication type, sequence, session
    packet.resize(packet.size() + sessionLength);
    packet.push_back(static_cast<unsigned char>(message.size()));
    append(packet, message);
    return packet;
}

/// The Internet's checksum of a header whose own field is still 0.
std::uint16_t internetChecksum(const Bytes& header) {
    unsigned sum = 0;
    for (std::size_t at = 0; at + 1 < header.size(); at += 2) {
        sum += static_cast<unsigned>(header[at]) << 8U | header[at + 1];
    }
    sum = (sum & 0xFFFFU) + (sum >> 16U);
    return static_cast<std::uint16_t>(~(sum + (sum >> 16U)));
}

Bytes udpPacket(Data from, Data to, const Bytes& payload) {
    constexpr std::size_t ipLength = 20;
    constexpr std::size_t udpLength = 8;
    constexpr unsigned char udp = 17;
    constexpr std::size_t checksumAt = 10;
    Bytes packet = {0x45, 0};
    append16(packet, ipLength + udpLength + payload.size());
    packet.insert(packet.end(), {0, 0, 0x40, 0, 64, udp, 0, 0}); // not fragmented, 64 hops
    append(packet, from);
    append(packet, to);
    const std::uint16_t sum = internetChecksum(packet);
    packet[checksumAt] = static_cast<unsigned char>(sum >> 8U);
    packet[checksumAt + 1] = static_cast<unsigned char>(sum);
    append16(packet, rmcpPort);
    append16(packet, rmcpPort);
    append16(packet, udpLength + payload.size());
    append16(packet, 0); // no checksum
    append(packet, payload);
    return packet;
}

} // namespace

PcapFile::PcapFile(const std::string& path, std::chrono::milliseconds start_,
                   std::chrono::milliseconds startedAt_) :
    start(start_),
    startedAt(startedAt_), output(path, "writing packets"),
    capture(::pcap_open_dead(DLT_RAW, longestPacket)) {
    if (!output) {
        return;
    }
    // libpcap closes what it is given.
    std::FILE* const stream =
        ::fdopen(::fcntl(output.descriptor(), F_DUPFD_CLOEXEC, output.descriptor()), "w");
    dumper = capture == nullptr || stream == nullptr ? nullptr : ::pcap_dump_fopen(capture, stream);
    if (dumper == nullptr) {
        throw std::bad_alloc();
    }
    if (::pcap_dump_flush(dumper) == -1) {
        output.stop();
    }
}

PcapFile::~PcapFile() {
    if (dumper != nullptr) {
        ::pcap_dump_close(dumper);
    }
    if (capture != nullptr) {
        ::pcap_close(capture);
    }
}

void PcapFile::write(const Exchange& exchange) {
    if (exchange.failedCall == DeviceCall::open || exchange.failedCall == DeviceCall::send) {
        return; // nothing was sent
    }
    writePacket(udpPacket(hostAddress, controllerAddress, rmcpPacket(requestMessage(exchange))),
                exchange.sentAt);
    if (exchange.response) {
        writePacket(
            udpPacket(controllerAddress, hostAddress, rmcpPacket(responseMessage(exchange))),
            exchange.endedAt);
    }
}

/// Flushed, so that a process that is forked off inherits no half of a packet.
void PcapFile::writePacket(const Bytes& packet, std::chrono::milliseconds time) {
    if (!output) {
        return;
    }
    const std::chrono::milliseconds worldTime = startedAt + (time - start);
    pcap_pkthdr header{};
    header.ts.tv_sec = worldTime.count() / 1000;
    header.ts.tv_usec = worldTime.count() % 1000 * 1000;
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    ::pcap_dump(reinterpret_cast<u_char*>(dumper), &header, packet.data());
    if (::pcap_dump_flush(dumper) == -1) {
        output.stop();
    }
}

} // namespace sim
