#include "recordMask.h"

#include "confVariables.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

using Field = std::span<unsigned char>;

/// The bytes from `from` on, none where there are fewer.
Field behind(Bytes& bytes, std::size_t from) {
    return Field(bytes).subspan(std::min(from, bytes.size()));
}

template <typename Secret>
void add(Field address, const Secret& secret) {
    for (std::size_t i = 0; i < secret.size(); ++i) {
        address[i] = static_cast<unsigned char>(address[i] + secret[i]);
    }
}

/// "xxxxxx0007"; where the number does not fit its last digits.
std::string standIn(std::size_t length, std::size_t number) {
    const std::string digits = std::to_string(number);
    return digits.size() < length ? std::string(length - digits.size(), 'x') + digits
                                  : digits.substr(digits.size() - length);
}

} // namespace

void RecordMask::apply(RecordHeader& header) {
    if (header.system) {
        maskText(header.system->serialNumber);
    }
    for (std::string& serial : header.enclosureSerials) {
        maskText(serial);
    }
    for (RecordedInterface& interface : header.interfaces) {
        maskMac(interface.mac);
        for (auto& [address, prefixLength, broadcast] : interface.ipv4) {
            maskIp(address);
            maskIp(broadcast);
        }
        for (auto& [address, prefixLength] : interface.ipv6) {
            maskIp(address);
        }
    }
}

/// What a foreign answer says belongs to another request; the agent does not look at it.
void RecordMask::apply(Exchange& exchange) {
    std::optional<Bytes> foreign;
    if (exchange.foreignId) {
        foreign.swap(exchange.response);
    }
    maskAnswered(exchange);
    if (foreign) {
        std::ranges::fill(behind(*foreign, 1), static_cast<unsigned char>(0));
        exchange.response = std::move(foreign);
    }
}

void RecordMask::maskAnswered(Exchange& exchange) {
    if (exchange.netfn == netfn::oem && exchange.cmd == command::configurationSpace) {
        maskConfSpace(exchange);
    } else if (exchange.netfn == netfn::blade) {
        maskBlade(exchange);
    } else {
        fru.apply(exchange);
    }
}

/// But blanks and zeros at the end, which readers of texts leave out.
void RecordMask::maskText(Field text) {
    const auto isFiller = [](unsigned char c) { return c == ' ' || c == 0; };
    const auto last = std::find_if_not(text.rbegin(), text.rend(), isFiller);
    const std::string original(text.begin(), last.base());
    if (original.empty()) {
        return;
    }
    const auto [entry, isNew] = texts.try_emplace(original);
    if (isNew) {
        entry->second = standIn(original.size(), texts.size());
    }
    std::ranges::copy(entry->second, text.begin());
}

void RecordMask::maskText(std::string& text) {
    Bytes bytes(text.begin(), text.end());
    maskText(Field(bytes));
    text.assign(bytes.begin(), bytes.end());
}

void RecordMask::maskMac(Field address) {
    if (address.size() >= AddressShift::Mac{}.size()) {
        add(address, shift.forMac(address));
    }
}

/// By its length; what is none stays.
void RecordMask::maskIp(Field address) {
    if (address.size() == AddressShift::Ipv4{}.size()) {
        add(address, shift.forIpv4(address));
    } else if (address.size() == AddressShift::Ipv6{}.size()) {
        add(address, shift.forIpv6(address));
    }
}

void RecordMask::maskConfSpace(Exchange& exchange) {
    constexpr std::size_t variableAt = ianaLength + 2;
    constexpr std::size_t readLength = variableAt + 2;
    constexpr std::size_t answerHead = 1 + ianaLength + 1;
    Bytes& request = exchange.request;
    if (request.size() < readLength) {
        return;
    }
    const auto variable =
        static_cast<std::uint16_t>(request[variableAt] | request[variableAt + 1] << 8);
    maskConfValue(variable, behind(request, readLength + 1));
    if (exchange.response) {
        maskConfValue(variable, behind(*exchange.response, answerHead));
    }
}

void RecordMask::maskConfValue(std::uint16_t variable, Field value) {
    const ConfVariable* const known = findConfVariable(variable);
    if (known != nullptr && known->kind == ValueKind::text) {
        maskText(value);
    } else if (known != nullptr && known->kind == ValueKind::ipv4Address) {
        maskIp(value);
    }
}

void RecordMask::maskBlade(Exchange& exchange) {
    constexpr std::size_t addressInSet = 2;
    constexpr std::size_t addressInSend = 4;
    constexpr unsigned char ipv4 = 1; // type of an address
    Bytes none;
    Bytes& response = exchange.response ? *exchange.response : none;
    switch (exchange.cmd) {
    case command::getNicMacs:
        maskMacList(behind(response, 2));
        break;
    case command::getLanInfo:
        maskMac(behind(response, 3));
        break;
    case command::getMmbSecondMac:
        maskMac(behind(response, 1));
        break;
    case command::getMmbIpv4Address:
        maskIp(behind(response, 1));
        break;
    case command::getMmbIpAddress: {
        const Field address = behind(response, 3);
        const std::size_t length = response.size() > 1 && response[1] == ipv4 ? 4 : 16;
        maskIp(address.first(std::min(length, address.size())));
        break;
    }
    case command::setBladeIpAddress:
        maskIp(behind(exchange.request, addressInSet));
        break;
    case command::sendBladeIpAddress:
        maskIp(behind(exchange.request, addressInSend));
        break;
    default:
        break;
    }
}

/// They come with the last octet first.
void RecordMask::maskMacList(Field list) {
    constexpr std::size_t length = AddressShift::Mac{}.size();
    for (; list.size() >= length; list = list.subspan(length)) {
        const Field address = list.first(length);
        std::ranges::reverse(address);
        maskMac(address);
        std::ranges::reverse(address);
    }
}

} // namespace sim
