#include "bladeLink.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

constexpr unsigned char typeIpv4 = 1;
constexpr unsigned char typeIpv6 = 2;
constexpr std::size_t ipv4Length = 4;
constexpr std::size_t ipv6Length = 16;
constexpr std::size_t pieceLength = 32; // characters in one request

unsigned char typeOf(std::size_t index) {
    return index < addressIndex::ipv6LinkLocal ? typeIpv4 : typeIpv6;
}

Bytes ipv6Prefix(std::size_t bits) {
    Bytes netmask(ipv6Length);
    std::fill_n(netmask.begin(), bits / 8, static_cast<unsigned char>(0xFF));
    return netmask;
}

/// Type and index of an address in a request: success when they belong together.
unsigned char checkAddressKind(unsigned char type, unsigned char index) {
    if (type != typeIpv4 && type != typeIpv6) {
        return completion::invalidDataField;
    }
    const bool fits = index < addressIndex::count && typeOf(index) == type;
    return fits ? completion::success : completion::parameterOutOfRange;
}

/// Answers with one of the addresses, or netmasks, that the request names by type and index.
Reply addressReply(const ManagementBlade& chassis, Data request,
                   Bytes ManagementBlade::Address::*member) {
    constexpr unsigned char perType = 2;
    const unsigned char verdict = checkAddressKind(request[0], request[1]);
    if (verdict != completion::success) {
        return {verdict};
    }
    const Bytes& found = chassis.addresses[request[1]].*member;
    if (found.empty()) {
        return {completion::recordNotPresent};
    }
    Bytes data = {request[0], perType};
    data.insert(data.end(), found.begin(), found.end());
    data.resize(2 + ipv6Length); // the field has room for the longer kind
    return {completion::success, data};
}

/// The characters of one piece of text; none when a short one lacks its terminating zero.
std::optional<std::string> pieceText(Data piece) {
    const auto end = std::ranges::find(piece, 0);
    if (end == piece.end() && piece.size() < pieceLength) {
        return std::nullopt;
    }
    return std::string(piece.begin(), end);
}

/// Keeps a text that comes in a single piece behind the blade number.
Reply storePiece(Data request, std::string& text) {
    const std::optional<std::string> piece = pieceText(request.subspan(1));
    if (!piece) {
        return {completion::invalidDataField};
    }
    text = *piece;
    return {completion::success};
}

} // namespace

ManagementBlade::ManagementBlade() :
    addresses({{
        {{192, 0, 2, 10}, {255, 255, 255, 0}},
        {{198, 51, 100, 10}, {255, 255, 255, 128}},
        {{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10}, ipv6Prefix(64)},
        {{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10}, ipv6Prefix(48)},
    }}),
    secondMacs({{{0x02, 0, 0, 0, 0x01, 0x01}, {0x02, 0, 0, 0, 0x01, 0x02}}}) {}

Reply ManagementBlade::serve(unsigned char netfn, unsigned char cmd, Data request) {
    const bool isEvent = netfn == netfn::sensorEvent && cmd == command::platformEvent;
    return isEvent ? platformEvent(request) : Reply{completion::invalidCommand};
}

Reply ManagementBlade::platformEvent(Data request) {
    constexpr std::size_t eventLength = 7;
    constexpr unsigned char messageRevision = 0x04;
    constexpr unsigned char sensorType = 0xC0;
    constexpr unsigned char highestStatus = 11;
    if (request.size() != eventLength) {
        return {completion::requestLengthInvalid};
    }
    // Offset and, above it, what kind of data comes behind it.
    const unsigned offset = request[4] & 0x0FU;
    const unsigned kinds = request[4] & 0xF0U;
    if (request[0] != messageRevision || request[1] != sensorType || kinds != 0x40U ||
        offset > highestStatus) {
        return {completion::invalidDataField};
    }
    osStatus = offset;
    ++statusEvents;
    return {completion::success};
}

BladeLink::BladeLink() {
    for (unsigned char port = 1; port <= 4; ++port) {
        ports.push_back({.mac = {0x02, 0, 0, 0, 0, port}});
    }
}

void BladeLink::makeOld() {
    missingCommands = {command::getIpv6Capability,   command::getMmbIpAddress,
                       command::getMmbIpNetmask,     command::sendBladeIpAddress,
                       command::setLongPlatformType, command::getLanInfo};
    chassis.ipv6Capable = false;
    for (const std::size_t index : {addressIndex::ipv6LinkLocal, addressIndex::ipv6Global}) {
        chassis.addresses[index] = {};
    }
    chassis.secondMacs[0] = {}; // its only second port is that of the other manager
}

struct BladeLink::Command {
    unsigned char cmd;
    std::size_t leastLength;
    std::size_t mostLength;
    Reply (BladeLink::*serve)(Data request);
};

const BladeLink::Command* BladeLink::find(unsigned char cmd) noexcept {
    constexpr std::size_t longestText = 1 + pieceLength;
    static constexpr std::array<Command, 14> commands = {{
        {command::getSlotNumber, 0, 0, &BladeLink::slot},
        {command::getNicMacs, 0, 0, &BladeLink::macList},
        {command::getLanInfo, 1, 1, &BladeLink::lanInfo},
        {command::getMmbIpv4Address, 0, 0, &BladeLink::legacyAddress},
        {command::getMmbIpv4Netmask, 0, 0, &BladeLink::legacyNetmask},
        {command::setBladeIpAddress, 6, 6, &BladeLink::setAddress},
        {command::setLongPlatformType, 2, longestText, &BladeLink::longPlatformType},
        {command::setPlatformType, 2, longestText, &BladeLink::platformType},
        {command::setPlatformRelease, 2, longestText, &BladeLink::platformRelease},
        {command::getMmbIpAddress, 2, 2, &BladeLink::mmbAddress},
        {command::getMmbIpNetmask, 2, 2, &BladeLink::mmbNetmask},
        {command::sendBladeIpAddress, 8, 20, &BladeLink::sendAddress},
        {command::getIpv6Capability, 0, 0, &BladeLink::ipv6Capability},
        {command::getMmbSecondMac, 1, 1, &BladeLink::secondMac},
    }};
    const auto* const found = std::ranges::find(commands, cmd, &Command::cmd);
    return found == commands.end() ? nullptr : found;
}

Reply BladeLink::serve(unsigned char cmd, Data request) {
    const Command* const known = find(cmd);
    if (known == nullptr || missingCommands.contains(cmd)) {
        return {completion::invalidCommand};
    }
    if (request.size() < known->leastLength || request.size() > known->mostLength) {
        return {completion::requestLengthInvalid};
    }
    return (this->*known->serve)(request);
}

Reply BladeLink::slot(Data) {
    return {completion::success, {slotNumber}};
}

Reply BladeLink::lanInfo(Data request) {
    constexpr unsigned char present = 0x10;
    constexpr unsigned char enabled = 0x80;
    const unsigned port = request[0];
    if (port == 0 || port > ports.size()) {
        return {completion::parameterOutOfRange};
    }
    const LanPort& found = ports[port - 1];
    Bytes data = {static_cast<unsigned char>(ports.size()),
                  static_cast<unsigned char>(present | (found.enabled ? enabled : 0U))};
    data.insert(data.end(), found.mac.begin(), found.mac.end());
    data.insert(data.end(), {0, 0}); // on the board, behind no switch module
    return {completion::success, data};
}

Reply BladeLink::macList(Data) {
    Bytes data = {static_cast<unsigned char>(ports.size())};
    for (const LanPort& port : ports) {
        data.insert(data.end(), port.mac.rbegin(), port.mac.rend());
    }
    return {completion::success, data};
}

Reply BladeLink::ipv6Capability(Data) {
    return {completion::success, {static_cast<unsigned char>(chassis.ipv6Capable ? 1 : 0), 0, 0}};
}

Reply BladeLink::mmbAddress(Data request) {
    return addressReply(chassis, request, &ManagementBlade::Address::address);
}

Reply BladeLink::mmbNetmask(Data request) {
    return addressReply(chassis, request, &ManagementBlade::Address::netmask);
}

Reply BladeLink::legacyAddress(Data) {
    return {completion::success, chassis.addresses[addressIndex::ipv4First].address};
}

Reply BladeLink::legacyNetmask(Data) {
    return {completion::success, chassis.addresses[addressIndex::ipv4First].netmask};
}

Reply BladeLink::secondMac(Data request) {
    if (request[0] >= chassis.secondMacs.size()) {
        return {completion::parameterOutOfRange};
    }
    const Mac& mac = chassis.secondMacs[request[0]];
    return {completion::success, {mac.begin(), mac.end()}};
}

/// Blade and port are numbered from 0 here, other than the slots and the ports themselves.
Reply BladeLink::storeAddress(unsigned bladeId, unsigned portIndex, unsigned index, Data address) {
    if (bladeId + 1 != slotNumber || portIndex >= ports.size()) {
        return {completion::parameterOutOfRange};
    }
    chassis.bladeAddresses[{portIndex + 1, index}] = Bytes(address.begin(), address.end());
    return {completion::success};
}

Reply BladeLink::setAddress(Data request) {
    return storeAddress(request[0], request[1], addressIndex::ipv4First, request.subspan(2));
}

Reply BladeLink::sendAddress(Data request) {
    constexpr std::size_t head = 4;
    const unsigned char verdict = checkAddressKind(request[3], request[2]);
    if (verdict != completion::success) {
        return {verdict};
    }
    const Data address = request.subspan(head);
    if (address.size() != (request[3] == typeIpv4 ? ipv4Length : ipv6Length)) {
        return {completion::requestLengthInvalid};
    }
    return storeAddress(request[0], request[1], request[2], address);
}

/// A text in up to four pieces: each replaces what was known from its place on.
Reply BladeLink::longPlatformType(Data request) {
    const unsigned bladeId = request[0] & 0x3FU;
    const std::size_t place = pieceLength * (request[0] >> 6U);
    if (bladeId + 1 != slotNumber) {
        return {completion::parameterOutOfRange};
    }
    const std::optional<std::string> piece = pieceText(request.subspan(1));
    if (!piece || place > chassis.platformType.size()) {
        return {completion::invalidDataField};
    }
    chassis.platformType.replace(place, std::string::npos, *piece);
    return {completion::success};
}

// These two take the request for that of the blade it came from, whatever its first byte says:
// that is left over from the pieces of the long form.
Reply BladeLink::platformType(Data request) {
    return storePiece(request, chassis.platformType);
}

Reply BladeLink::platformRelease(Data request) {
    return storePiece(request, chassis.platformRelease);
}

} // namespace sim
