#include "text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include <arpa/inet.h>

namespace sim {

std::string hexByte(unsigned char value) {
    constexpr const char* digits = "0123456789ABCDEF";
    return {'0', 'x', digits[value >> 4U], digits[value & 0xFU]};
}

std::string hexText(Data bytes) {
    constexpr std::size_t most = 32; // as much as fits in a line
    std::string text;
    for (const unsigned char byte : bytes.first(std::min(bytes.size(), most))) {
        text += text.empty() ? '[' : ' ';
        text += hexByte(byte).substr(2);
    }
    if (bytes.size() > most) {
        text += " ... " + std::to_string(bytes.size()) + " bytes";
    }
    if (!text.empty()) {
        text += ']';
    }
    return text;
}

std::string decimal(double value, int places) {
    char text[64];
    const auto end =
        std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, places);
    return {text, end.ptr};
}

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) {
        text.resize(width, ' ');
    }
    return text;
}

std::string quoted(Data characters) {
    std::string text = "\"";
    for (const unsigned char character : characters) {
        if (std::isprint(character) != 0) {
            text += static_cast<char>(character);
        } else {
            text += "\\x" + hexByte(character).substr(2);
        }
    }
    return text + '"';
}

std::string addressText(Data address) {
    constexpr std::size_t ipv4Length = 4;
    constexpr std::size_t ipv6Length = 16;
    if (address.size() != ipv4Length && address.size() != ipv6Length) {
        return hexText(address);
    }
    char text[INET6_ADDRSTRLEN];
    return ::inet_ntop(address.size() == ipv4Length ? AF_INET : AF_INET6, address.data(), text,
                       sizeof text);
}

std::string macText(Data mac) {
    std::string text;
    for (const unsigned char octet : mac) {
        text += (text.empty() ? "" : ":") + hexByte(octet).substr(2);
    }
    return text;
}

std::string errnoName(int error) {
    const char* const name = ::strerrorname_np(error);
    return name == nullptr ? std::to_string(error) : name;
}

int errnoNamed(std::string_view name) {
    constexpr int highestErrno = 133;
    for (int error = 1; error <= highestErrno; ++error) {
        const char* const known = ::strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    throw std::invalid_argument("'" + std::string(name) + "' is not the name of an errno value");
}

long parseNumber(std::string_view text, long least, long most) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    const char* const end = digits.data() + digits.size();
    long value = 0;
    const auto [stop, error] = std::from_chars(digits.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end || value < least || value > most) {
        throw std::invalid_argument("'" + std::string(text) + "' is not a number from " +
                                    std::to_string(least) + " to " + std::to_string(most));
    }
    return value;
}

} // namespace sim
