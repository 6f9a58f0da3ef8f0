#include "bladeText.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

template <std::size_t size>
std::string nameAt(const std::array<const char*, size>& names, unsigned index) {
    return index < size ? names[index] : "number " + std::to_string(index);
}

/// Slots and ports count from 1 for people, from 0 in the reports.
std::string fromZero(const char* what, unsigned number) {
    return what + std::to_string(number + 1);
}

/// The characters up to the terminating zero, if there is one.
std::string shownPiece(Data piece) {
    const auto length = std::ranges::find(piece, 0) - piece.begin();
    return quoted(piece.first(static_cast<std::size_t>(length)));
}

std::string slotTold(Data request, Data response) {
    return response.size() == 1 ? "slot " + std::to_string(response[0])
                                : toldInHex(request, response);
}

std::string portAsked(Data request) {
    return request.size() == 1 ? "port " + std::to_string(request[0]) : hexText(request);
}

std::string lanInfoTold(Data request, Data response) {
    if (response.size() != 4 + macLength) {
        return toldInHex(request, response);
    }
    const bool enabled = (response[1] & 0x80U) != 0;
    return macText(response.subspan(2, macLength)) + (enabled ? "" : " (not enabled)") + " of " +
           std::to_string(response[0]) + " ports";
}

std::string macListTold(Data request, Data response) {
    if (response.size() < 1 + macLength || (response.size() - 1) % macLength != 0) {
        return toldInHex(request, response);
    }
    std::string text;
    for (Data rest = response.subspan(1); !rest.empty(); rest = rest.subspan(macLength)) {
        Bytes mac(rest.begin(), rest.begin() + macLength);
        std::ranges::reverse(mac); // they come with the last octet first
        text += (text.empty() ? "" : ", ") + macText(mac);
    }
    return text;
}

std::string macTold(Data request, Data response) {
    return response.size() == macLength ? macText(response) : toldInHex(request, response);
}

std::string managerAsked(Data request) {
    return request.size() == 1 ? "manager " + std::to_string(request[0]) : hexText(request);
}

std::string capabilityTold(Data request, Data response) {
    if (response.size() != 3) {
        return toldInHex(request, response);
    }
    return (response[0] & 1U) != 0 ? "IPv6" : "no IPv6";
}

std::string addressAsked(Data request) {
    return request.size() == 2 ? addressIndexText(request[1]) : hexText(request);
}

std::string addressTold(Data request, Data response) {
    constexpr std::size_t head = 2;
    const std::size_t length = !response.empty() && response[0] == 1 ? 4 : 16;
    if (response.size() < head + length) {
        return toldInHex(request, response);
    }
    return addressText(response.subspan(head, length));
}

std::string legacyTold(Data request, Data response) {
    return response.size() == 4 ? addressText(response) : toldInHex(request, response);
}

std::string setAddressAsked(Data request) {
    if (request.size() != 6) {
        return hexText(request);
    }
    return fromZero("slot ", request[0]) + fromZero(" port ", request[1]) + " = " +
           addressText(request.subspan(2));
}

std::string sendAddressAsked(Data request) {
    if (request.size() != 8 && request.size() != 20) {
        return hexText(request);
    }
    return fromZero("slot ", request[0]) + fromZero(" port ", request[1]) + " " +
           addressIndexText(request[2]) + " = " + addressText(request.subspan(4));
}

std::string longTypeAsked(Data request) {
    if (request.size() < 2) {
        return hexText(request);
    }
    return fromZero("slot ", request[0] & 0x3FU) + " part " + std::to_string(request[0] >> 6U) +
           " = " + shownPiece(request.subspan(1));
}

std::string textAsked(Data request) {
    return request.size() < 2 ? hexText(request) : shownPiece(request.subspan(1));
}

std::string eventAsked(Data request) {
    constexpr unsigned char systemStatus = 0xC0;
    if (request.size() != 7 || request[1] != systemStatus) {
        return hexText(request);
    }
    return osStatusText(request[4] & 0x0FU);
}

constexpr std::array<CommandText, 15> bladeCommands = {{
    {netfn::sensorEvent, command::platformEvent, "Platform Event", eventAsked, toldInHex},
    {netfn::blade, command::getSlotNumber, "Get slot number", hexText, slotTold},
    {netfn::blade, command::getNicMacs, "Get NIC MAC addresses", hexText, macListTold},
    {netfn::blade, command::getLanInfo, "Get LAN info", portAsked, lanInfoTold},
    {netfn::blade, command::getMmbIpv4Address, "Get MMB IPv4 address", hexText, legacyTold},
    {netfn::blade, command::getMmbIpv4Netmask, "Get MMB IPv4 netmask", hexText, legacyTold},
    {netfn::blade, command::setBladeIpAddress, "Set blade address", setAddressAsked, toldInHex},
    {netfn::blade, command::setLongPlatformType, "Set long platform type", longTypeAsked,
     toldInHex},
    {netfn::blade, command::setPlatformType, "Set platform type", textAsked, toldInHex},
    {netfn::blade, command::setPlatformRelease, "Set platform release", textAsked, toldInHex},
    {netfn::blade, command::getMmbIpAddress, "Get MMB address", addressAsked, addressTold},
    {netfn::blade, command::getMmbIpNetmask, "Get MMB netmask", addressAsked, addressTold},
    {netfn::blade, command::sendBladeIpAddress, "Send blade address", sendAddressAsked, toldInHex},
    {netfn::blade, command::getIpv6Capability, "Get MMB IPv6 capability", hexText, capabilityTold},
    {netfn::blade, command::getMmbSecondMac, "Get MMB second MAC", managerAsked, macTold},
}};

} // namespace

std::span<const CommandText> bladeTexts() noexcept {
    return bladeCommands;
}

std::string addressIndexText(unsigned index) {
    constexpr std::array names = {"IPv4 first", "IPv4 second", "IPv6 link-local", "IPv6 global"};
    return nameAt(names, index);
}

std::string osStatusText(unsigned status) {
    constexpr std::array names = {"power off",
                                  "power on in progress",
                                  "reset",
                                  "POST",
                                  "boot",
                                  "OS running",
                                  "OS shutdown",
                                  "panic",
                                  "power off in progress",
                                  "check stop",
                                  "dumping",
                                  "halt"};
    return nameAt(names, status);
}

} // namespace sim
