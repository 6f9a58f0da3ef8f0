#pragma once

#include <cstdint>
#include <string>

/// An IPv4 address of 4 bytes in network order.
union IPv4Address {
    /// 0.0.0.0
    IPv4Address() noexcept : v{} {}
    /// Reads dotted text leniently: four decimal numbers with any one character between them. A
    /// number that is missing counts 0, one above 255 keeps its low 8 bits.
    explicit IPv4Address(const std::string& text);

    /// Takes 4 bytes in network order.
    IPv4Address& operator=(const unsigned char* bytes) noexcept;
    /// Takes dotted text, as the constructor does.
    IPv4Address& operator=(const char* text);
    /// Takes the 32-bit view.
    IPv4Address& operator=(std::uint32_t view) noexcept;

    /// Dotted decimal text.
    operator std::string() const;
    /// The 4 bytes in network order.
    operator const unsigned char*() const noexcept { return v; }
    /// True unless 0.0.0.0.
    operator bool() const noexcept { return l != 0; }
    bool operator==(const IPv4Address& other) const noexcept { return l == other.l; }

    /// Makes it 255.255.255.255.
    void setOne() noexcept;

    std::uint32_t l;    ///< the bytes as one integer of the host
    unsigned char v[4]; ///< v[0] is the first number of the dotted form
};
static_assert(sizeof(IPv4Address) == 4);
