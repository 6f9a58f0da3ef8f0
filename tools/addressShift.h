#pragma once

#include "ipmiMessage.h"

#include <array>

namespace sim {

/// Turns addresses into others of their kind, by adding a secret to each byte that tells hosts
/// apart: the same address always becomes the same one, different ones stay different, and the
/// start of each, by which its class is known, stays. The bytes of a secret add up to 0, so that
/// checksums over what contains an address stay right.
class AddressShift {
  public:
    /// With secrets that the system's source of randomness gives.
    AddressShift();

    using Mac = std::array<unsigned char, 6>;
    using Ipv4 = std::array<unsigned char, 4>;
    using Ipv6 = std::array<unsigned char, 16>;

    // What is added to the bytes of an address that begins with these, at least three; all zero
    // for addresses that everybody has: none, loopback.
    Mac forMac(Data address) const noexcept;
    Ipv4 forIpv4(Data address) const noexcept;
    Ipv6 forIpv6(Data address) const noexcept;

  private:
    Mac macSecret{};
    Ipv4 ipv4Secret{};
    Ipv6 ipv6Secret{};
};

} // namespace sim
