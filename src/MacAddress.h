#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// A 6-byte hardware address in transmission order.
union MacAddress {
    /// All zero.
    MacAddress() noexcept : v{} {}
    /// Takes 6 bytes.
    explicit MacAddress(const unsigned char* bytes) noexcept : MacAddress() { *this = bytes; }
    MacAddress(const MacAddress& other) noexcept = default;
    ~MacAddress() = default;

    MacAddress& operator=(const MacAddress& other) noexcept = default;
    /// Takes 6 bytes.
    MacAddress& operator=(const unsigned char* bytes) noexcept;
    /// The same from the kernel's `sockaddr` bytes, which are plain char.
    MacAddress& operator=(const char* bytes) noexcept;
    /// Sets every byte to `byte`.
    MacAddress& operator=(unsigned char byte) noexcept;

    /// Lower-case hex pairs with colons.
    operator std::string() const;
    operator const unsigned char*() const noexcept { return v; }
    /// True unless all zero.
    operator bool() const noexcept { return l != 0 || s != 0; }
    /// Byte `index`, 0 to 5.
    unsigned char& operator[](std::size_t index) noexcept { return v[index]; }
    const unsigned char& operator[](std::size_t index) const noexcept { return v[index]; }
    bool operator==(const MacAddress& other) const noexcept { return l == other.l && s == other.s; }

    unsigned char v[6]; ///< v[0] goes first on the wire
    __extension__ struct {
        std::uint32_t l; ///< bytes 0 to 3
        std::uint16_t s; ///< bytes 4 and 5
    };
};
static_assert(sizeof(MacAddress) == 8);
