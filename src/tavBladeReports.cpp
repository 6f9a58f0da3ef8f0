// Reports to the management blade.

#include "tavBladeInfo.h"
#include "tavBladeRecords.h"
#include "tavIpmi.h"

#include <algorithm>
#include <string_view>

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace {

constexpr unsigned char mmbSlaveAddress = 0x24;
constexpr std::size_t pieceLength = 32;
constexpr unsigned lastPart = 3;

/// Sends pieces of text, one record for all: what one piece leaves in its first byte goes out
/// with the next.
class PlatformReport {
  public:
    PlatformReport(const TavIpmi& connection, unsigned char slotIndex) : ipmi(connection) {
        request.bladeId.id = slotIndex & 0x3FU;
    }

    /// Lays in the piece and sends it. A piece that fills all 32 bytes goes out whole; `terminate`
    /// gives up its last character for a zero.
    bool send(unsigned char cmd, std::string_view piece, bool terminate) {
        std::fill(std::begin(request.data), std::end(request.data), std::uint8_t{0});
        const std::size_t count = std::min(piece.size(), pieceLength);
        std::copy_n(piece.begin(), count, request.data);
        std::size_t length = 1 + count + 1;
        if (count == pieceLength) {
            length = sizeof request;
            if (terminate) {
                request.data[pieceLength - 1] = 0;
            }
        }
        TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_oem_1, cmd, recordBytes(request, length));
        completionCode.reset();
        if (ipmi.sendCmd(msg) && !msg.response().empty()) {
            completionCode = msg.response()[0];
        }
        return succeeded();
    }

    bool succeeded() const { return completionCode == tavIpmi::ipmi_cc_normally_cc; }
    bool unknownCommand() const { return completionCode == tavIpmi::ipmi_cc_invalid_cmd; }
    void setPart(unsigned part) { request.bladeId.part = part & 3U; }
    void clearId() { request.bladeId.id = 0; }

  private:
    const TavIpmi& ipmi;
    TavSetServerBladeOSPlatformReqData request{};
    std::optional<unsigned char> completionCode; ///< of the last piece; none without an answer
};

std::string_view pieceOf(std::string_view text, unsigned part) {
    return text.substr(std::min(text.size(), part * pieceLength));
}

/// In up to four pieces; the first that is shorter than 32 characters is the last.
void sendLongType(PlatformReport& report, std::string_view type) {
    for (unsigned part = 0; part <= lastPart; ++part) {
        const std::string_view piece = pieceOf(type, part);
        report.setPart(part);
        if (!report.send(tavIpmi::ipmi_oemcmd_set_serv_blade_long_os_platform_type, piece,
                         part == lastPart) ||
            piece.size() < pieceLength) {
            return;
        }
    }
}

} // namespace

std::optional<unsigned char> TavBladeInfo::portOf(const MacAddress& maddr) const noexcept {
    if (!*this) {
        return std::nullopt;
    }
    const auto found = std::find_if(mmbMacAddressTable.begin(), mmbMacAddressTable.end(),
                                    [&maddr](const auto& entry) { return entry.second == maddr; });
    if (found == mmbMacAddressTable.end()) {
        return std::nullopt;
    }
    return static_cast<unsigned char>(found->first - 1);
}

bool TavBladeInfo::sendSlotAddress(const TavIpmi& ipmi, unsigned char port,
                                   const IPv4Address& address) const {
    TavSetServerBladeIpAddressReqData request{};
    request.bladeId = static_cast<unsigned char>(slot_number - 1);
    request.lanPortNumber = port;
    std::copy(std::begin(address.v), std::end(address.v), request.data);
    TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_oem_1,
                            tavIpmi::ipmi_oemcmd_set_serv_blade_ipaddress, recordBytes(request));
    return exchange(ipmi, msg);
}

bool TavBladeInfo::sendAddress(const TavIpmi& ipmi, unsigned char port, AddressIndex index,
                               AddressType type, ByteView address) const {
    TavSendServerBladeIpAddressInfoReqData request{};
    request.bladeId = static_cast<unsigned char>(slot_number - 1);
    request.lanPortNumber.number = port & 0x7FU;
    request.addressIndex = static_cast<unsigned char>(index);
    request.addressType = static_cast<unsigned char>(type);
    std::copy(address.begin(), address.end(), request.data);
    constexpr std::size_t header = offsetof(TavSendServerBladeIpAddressInfoReqData, data);
    TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_oem_1,
                            tavIpmi::ipmi_oemcmd_send_serv_blade_ip_addr_info,
                            recordBytes(request, header + address.size()));
    return exchange(ipmi, msg);
}

bool TavBladeInfo::sendIpAddressInfo(const IPv4Address& ipv4addr,
                                     const MacAddress& maddr) const noexcept {
    const std::optional<unsigned char> port = portOf(maddr);
    if (!port) {
        return false;
    }
    try {
        const TavIpmi ipmi(1, 0, TavIpmi::ipmiSystemInterface);
        return sendSlotAddress(ipmi, *port, ipv4addr) ||
               sendAddress(ipmi, *port, address_index_ipv4_1, address_type_ipv4, ipv4addr.v);
    } catch (const std::exception&) {
        return false;
    }
}

bool TavBladeInfo::sendIpAddressInfo(const IPv6Address& ipv6addr,
                                     const MacAddress& maddr) const noexcept {
    const std::optional<unsigned char> port = portOf(maddr);
    if (!port) {
        return false;
    }
    const AddressIndex index =
        ipv6addr.isLinklocal() ? address_index_ipv6_link_local : address_index_ipv6_global;
    try {
        const TavIpmi ipmi(1, 0, TavIpmi::ipmiSystemInterface);
        return sendAddress(ipmi, *port, index, address_type_ipv6, ipv6addr.inv);
    } catch (const std::exception&) {
        return false;
    }
}

bool TavBladeInfo::setOSStatus(KB_systemStatus st) const noexcept {
    if (!kestrelbox) {
        return false;
    }
    const TavPlatformEventMessageIpmbReqData event{
        .evMRev = 0x04,
        .sensorType = 0xC0,
        .sensorNumber = 0x09,
        .eventDir_eventType = 0x6F,
        .eventData_1 = static_cast<unsigned char>(static_cast<unsigned>(st) | 0x40U),
        .eventData_2 = 0x8F,
        .eventData_3 = 0xFF};
    try {
        const TavIpmi ipmi(0, mmbSlaveAddress, TavIpmi::ipmiIpmb);
        TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_sensor_event,
                                tavIpmi::ipmi_cmd_platform_event_message, recordBytes(event));
        return exchange(ipmi, msg);
    } catch (const std::exception&) {
        return false;
    }
}

bool TavBladeInfo::setOSPlatformInfo(const std::string& type,
                                     const std::string& release) const noexcept {
    if (!*this) {
        return false;
    }
    try {
        const TavIpmi ipmi(1, 0, TavIpmi::ipmiSystemInterface);
        PlatformReport report(ipmi, static_cast<unsigned char>(slot_number - 1));
        sendLongType(report, type);
        if (report.unknownCommand()) {
            report.clearId();
            report.send(tavIpmi::ipmi_oemcmd_set_serv_blade_os_platform_type, type, false);
        }
        return report.succeeded() &&
               report.send(tavIpmi::ipmi_oemcmd_set_serv_blade_os_platform_release, release, true);
    } catch (const std::exception&) {
        return false;
    }
}
