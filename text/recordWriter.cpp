#include "exchangeText.h"
#include "recordFile.h"
#include "text.h"

#include <algorithm>
#include <span>

#include <linux/ipmi.h>

namespace sim {

namespace {

std::string hexDigits(Data bytes) {
    std::string digits;
    digits.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        digits += hexByte(byte).substr(2);
    }
    return digits.empty() ? "-" : digits;
}

// So that each line stays below what a reader takes:
constexpr std::size_t longestText = 400;       // four of them in a line, four bytes for each byte
constexpr std::size_t mostOptions = 100;       // a line each
constexpr std::size_t mostAddressesALine = 80; // of each kind

/// In quotes; whatever could be taken for their end, or for more than a character, as \xNN. What
/// is too long is cut.
std::string word(const std::string& text) {
    std::string escaped = " \"";
    for (const char character : text.substr(0, longestText)) {
        if (character < ' ' || character > '~' || character == '"' || character == '\\') {
            escaped += "\\x" + hexByte(static_cast<unsigned char>(character)).substr(2);
        } else {
            escaped += character;
        }
    }
    return escaped + '"';
}

std::string seconds(std::chrono::milliseconds time) {
    constexpr std::size_t places = 3;
    std::string text = std::to_string(time.count());
    text.insert(0, places + 1 - std::min(places + 1, text.size()), '0');
    return text.insert(text.size() - places, 1, '.');
}

std::string target(const Exchange& exchange) {
    switch (exchange.addressType) {
    case 0:
        return "none";
    case IPMI_SYSTEM_INTERFACE_ADDR_TYPE:
        return "bmc";
    case IPMI_IPMB_ADDR_TYPE:
        return "ipmb:" + hexByte(exchange.slaveAddress).substr(2);
    default:
        return "type:" + std::to_string(exchange.addressType);
    }
}

std::string others(const Exchange& exchange) {
    std::string text;
    for (const int type : exchange.otherRecords) {
        text += (text.empty() ? " others " : ",") + std::to_string(type);
    }
    return text;
}

std::string outcome(const Exchange& exchange) {
    if (exchange.failedCall) {
        return std::string(" fail ") + deviceCallNames[static_cast<int>(*exchange.failedCall)] +
               " " + errnoName(exchange.error);
    }
    if (!exchange.response) {
        return " silent";
    }
    return (exchange.foreignId ? " foreign " : " ") + hexDigits(*exchange.response);
}

/// With the addresses from that number on, as many as a line takes.
std::string interfaceLine(const RecordedInterface& interface, std::size_t from) {
    const auto piece = [from](const auto& addresses) {
        const std::size_t begin = std::min(from, addresses.size());
        return std::span(addresses).subspan(begin,
                                            std::min(mostAddressesALine, addresses.size() - begin));
    };
    std::string line = "interface " + std::to_string(interface.index) + word(interface.name) +
                       " flags " + std::to_string(interface.flags) + " mtu " +
                       std::to_string(interface.mtu) + " mac " + hexDigits(interface.mac);
    for (const auto& [address, prefixLength, broadcast] : piece(interface.ipv4)) {
        line += " ipv4 " + addressText(address) + "/" + std::to_string(prefixLength) + " " +
                addressText(broadcast);
    }
    for (const auto& [address, prefixLength] : piece(interface.ipv6)) {
        line += " ipv6 " + addressText(address) + "/" + std::to_string(prefixLength);
    }
    return line + "\n";
}

std::string interfaceLines(const RecordedInterface& interface) {
    const std::size_t most = std::max(interface.ipv4.size(), interface.ipv6.size());
    std::string lines = interfaceLine(interface, 0);
    for (std::size_t from = mostAddressesALine; from < most; from += mostAddressesALine) {
        lines += interfaceLine(interface, from);
    }
    return lines;
}

} // namespace

std::string recordHeaderText(const RecordHeader& header) {
    std::string text = "#tav-record 1\nprogram" + word(header.program) + "\nstarted" +
                       word(header.started) + "\nkernel" + word(header.kernel) + "\nmaker " +
                       std::to_string(header.maker) + "\n";
    for (const std::string& option :
         std::span(header.options).first(std::min(mostOptions, header.options.size()))) {
        text += "options" + word(option) + "\n";
    }
    text += header.masked ? "masked\n" : "";
    if (const auto& system = header.system) {
        text += "system" + word(system->manufacturer) + word(system->product) +
                word(system->serialNumber) + word(system->family) + "\n";
    }
    for (const std::string& serial : header.enclosureSerials) {
        text += "enclosure" + word(serial) + "\n";
    }
    for (const RecordedInterface& interface : header.interfaces) {
        text += interfaceLines(interface);
    }
    return text;
}

std::string recordLine(const Exchange& exchange, std::chrono::milliseconds start) {
    return "E " + std::to_string(exchange.number) + " " + seconds(exchange.sentAt - start) + " " +
           seconds(exchange.endedAt - exchange.sentAt) + " " + target(exchange) + " " +
           hexByte(exchange.netfn).substr(2) + " " + std::to_string(exchange.lun) + " " +
           hexByte(exchange.cmd).substr(2) + " " + hexDigits(exchange.request) + " >" +
           others(exchange) + outcome(exchange) + " ; " + requestText(exchange) + " -> " +
           outcomeText(exchange) + "\n";
}

std::string recordEndRequest(std::chrono::milliseconds time) {
    return "S " + seconds(time) + " ; the agent was told to end\n";
}

std::string recordClosing(unsigned exchanges) {
    return "end " + std::to_string(exchanges) + "\n";
}

} // namespace sim
