#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

static_assert(std::endian::native == std::endian::little,
              "tav_init runs on little-endian machines only: the records' bit fields count on it");
static_assert(sizeof(void*) == 8, "tav_init runs on 64-bit machines only");

/// Bytes of a message, as received or as to be sent.
using ByteView = std::span<const unsigned char>;

/// 16-bit integer of a wire record: little-endian whatever the host, without alignment.
class LittleEndian16 {
  public:
    LittleEndian16() = default;
    constexpr LittleEndian16(std::uint16_t value) noexcept :
        low(static_cast<unsigned char>(value & 0xFFU)),
        high(static_cast<unsigned char>(value >> 8U)) {}
    constexpr operator std::uint16_t() const noexcept {
        return static_cast<std::uint16_t>(low | (high << 8U));
    }

  private:
    unsigned char low;
    unsigned char high;
};
static_assert(sizeof(LittleEndian16) == 2 && alignof(LittleEndian16) == 1);

/// 32-bit integer of a wire record or firmware table: little-endian, without alignment.
struct LittleEndian32 {
    LittleEndian16 low;
    LittleEndian16 high;
    LittleEndian32& operator=(std::uint32_t value) noexcept {
        low = static_cast<std::uint16_t>(value & 0xFFFFU);
        high = static_cast<std::uint16_t>(value >> 16U);
        return *this;
    }
    operator std::uint32_t() const noexcept {
        return static_cast<std::uint32_t>(low) | (static_cast<std::uint32_t>(high) << 16U);
    }
};

/// Fills `record` from the start of `bytes`, never looking past them; what was not received is
/// zero. False when fewer than `needed` bytes (default: the whole record) were there.
template <typename Record>
bool readRecord(ByteView bytes, Record& record, std::size_t needed = sizeof(Record)) noexcept {
    static_assert(std::is_trivially_copyable_v<Record> && alignof(Record) == 1);
    std::memset(&record, 0, sizeof(Record));
    if (const std::size_t length = std::min(bytes.size(), sizeof(Record)); length != 0) {
        std::memcpy(&record, bytes.data(), length);
    }
    return bytes.size() >= needed;
}

/// The first `used` bytes of `record` (default: all of it) as they go into a message.
template <typename Record>
ByteView recordBytes(const Record& record, std::size_t used = sizeof(Record)) noexcept {
    static_assert(std::is_trivially_copyable_v<Record> && alignof(Record) == 1);
    return {reinterpret_cast<const unsigned char*>(&record), std::min(used, sizeof(Record))};
}
