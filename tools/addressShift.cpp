#include "addressShift.h"

#include <random>

namespace sim {

namespace {

/// Leaves the first `kept` bytes 0, but never all.
template <typename Secret>
void draw(Secret& secret, std::size_t kept) {
    std::random_device random;
    std::uniform_int_distribution<unsigned> anyByte(0, 0xFF);
    while (secret == Secret{}) {
        unsigned sum = 0;
        for (std::size_t i = kept; i + 1 < secret.size(); ++i) {
            secret[i] = static_cast<unsigned char>(anyByte(random));
            sum += secret[i];
        }
        secret.back() = static_cast<unsigned char>(0U - sum);
    }
}

} // namespace

AddressShift::AddressShift() {
    draw(macSecret, 3);  // the manufacturer
    draw(ipv4Secret, 1); // loopback and multicast are told by it
    draw(ipv6Secret, 2); // and the scopes by these
}

AddressShift::Mac AddressShift::forMac(Data address) const noexcept {
    return (address[0] | address[1] | address[2]) == 0 ? Mac{} : macSecret;
}

AddressShift::Ipv4 AddressShift::forIpv4(Data address) const noexcept {
    constexpr unsigned char loopback = 127;
    return address[0] == 0 || address[0] == loopback ? Ipv4{} : ipv4Secret;
}

AddressShift::Ipv6 AddressShift::forIpv6(Data address) const noexcept {
    return (address[0] | address[1]) == 0 ? Ipv6{} : ipv6Secret;
}

} // namespace sim
