#pragma once

#include <cstdint>
#include <string>

#include <netinet/in.h>

/// An IPv6 address, held twice: reversed in the union (its byte 0 is the address's last byte) and
/// in network order in `inv`, which is what goes into messages.
struct IPv6Address {
    /// ::
    IPv6Address() noexcept;
    /// Takes 16 bytes in network order.
    explicit IPv6Address(const unsigned char* bytes) noexcept;
    explicit IPv6Address(const in6_addr& address) noexcept;
    IPv6Address(const IPv6Address& other) noexcept;
    ~IPv6Address() = default;

    IPv6Address& operator=(const IPv6Address& other) noexcept;
    /// Takes 16 bytes in network order.
    IPv6Address& operator=(const unsigned char* bytes) noexcept;

    /// Prefix length of a netmask held here, 0 to 128. Ill-formed masks are not reported: a zero
    /// byte starts the count anew, a byte that no mask has is passed over.
    unsigned getNumberOfLeadingOnes() const noexcept;

    /// Text of RFC 5952.
    operator std::string() const;
    /// The 16 bytes in network order.
    operator const unsigned char*() const noexcept { return inv; }
    /// True unless ::.
    operator bool() const noexcept;
    bool operator==(const IPv6Address& other) const noexcept;

    bool isLoopback() const noexcept;     ///< ::1
    bool isMulticast() const noexcept;    ///< ff00::/8
    bool isLinklocal() const noexcept;    ///< fe80::/10
    bool isSitelocal() const noexcept;    ///< fec0::/10
    bool isV4Mapped() const noexcept;     ///< ::ffff:0:0/96
    bool isV4Compatible() const noexcept; ///< ::/96 but for :: and ::1

    union {
        unsigned char v8[16];
        std::uint16_t v16[8];
        std::uint32_t v32[4];
    };
    unsigned char inv[16];
};
static_assert(sizeof(IPv6Address) == 32);
