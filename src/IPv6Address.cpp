#include "IPv6Address.h"

#include <algorithm>
#include <array>

#include <arpa/inet.h>

namespace {

bool allZero(const unsigned char* from, const unsigned char* to) noexcept {
    return std::all_of(from, to, [](unsigned char byte) { return byte == 0; });
}

} // namespace

IPv6Address::IPv6Address() noexcept : v8{}, inv{} {}

IPv6Address::IPv6Address(const unsigned char* bytes) noexcept : IPv6Address() {
    *this = bytes;
}

IPv6Address::IPv6Address(const in6_addr& address) noexcept : IPv6Address(address.s6_addr) {}

IPv6Address::IPv6Address(const IPv6Address& other) noexcept : IPv6Address() {
    *this = other;
}

IPv6Address& IPv6Address::operator=(const IPv6Address& other) noexcept {
    if (this != &other) {
        std::copy_n(other.v32, std::size(v32), v32);
        std::reverse_copy(std::begin(v8), std::end(v8), inv);
    }
    return *this;
}

IPv6Address& IPv6Address::operator=(const unsigned char* bytes) noexcept {
    std::copy_n(bytes, sizeof inv, inv);
    std::reverse_copy(std::begin(inv), std::end(inv), v8);
    return *this;
}

unsigned IPv6Address::getNumberOfLeadingOnes() const noexcept {
    static constexpr std::array<unsigned char, 8> partialMask{0x00, 0x80, 0xC0, 0xE0,
                                                              0xF0, 0xF8, 0xFC, 0xFE};
    unsigned ones = 0;
    for (const unsigned char byte : v8) {
        if (byte == 0xFF) {
            ones += 8;
            continue;
        }
        const auto* const partial = std::find(partialMask.begin(), partialMask.end(), byte);
        if (partial != partialMask.end()) {
            ones = static_cast<unsigned>(partial - partialMask.begin());
        }
    }
    return ones;
}

IPv6Address::operator std::string() const {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, inv, text, sizeof text);
    return text;
}

IPv6Address::operator bool() const noexcept {
    return std::any_of(std::begin(v32), std::end(v32),
                       [](std::uint32_t word) { return word != 0; });
}

bool IPv6Address::operator==(const IPv6Address& other) const noexcept {
    return std::equal(std::begin(v32), std::end(v32), other.v32);
}

bool IPv6Address::isLoopback() const noexcept {
    return allZero(inv, inv + 15) && inv[15] == 1;
}

bool IPv6Address::isMulticast() const noexcept {
    return inv[0] == 0xFF;
}

bool IPv6Address::isLinklocal() const noexcept {
    return inv[0] == 0xFE && (inv[1] & 0xC0U) == 0x80U;
}

bool IPv6Address::isSitelocal() const noexcept {
    return inv[0] == 0xFE && (inv[1] & 0xC0U) == 0xC0U;
}

bool IPv6Address::isV4Mapped() const noexcept {
    return allZero(inv, inv + 10) && inv[10] == 0xFF && inv[11] == 0xFF;
}

bool IPv6Address::isV4Compatible() const noexcept {
    return allZero(inv, inv + 12) && !(allZero(inv + 12, inv + 15) && inv[15] < 2);
}
