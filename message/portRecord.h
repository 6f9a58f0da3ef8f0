#pragma once

#include "ipmiMessage.h"

#include <array>
#include <cstddef>
#include <string_view>

/// Layout of the port information record: byte offsets in its areas, and lengths of these.
namespace sim::portRecord {

inline constexpr unsigned char recordType = 0xF0;
inline constexpr unsigned char subRecordType = 1;
inline constexpr unsigned formatWithNames = 10;

// Header.
inline constexpr std::size_t headerLength = 6;
inline constexpr std::size_t formatVersion = 1; // the low four bits
inline constexpr std::size_t bodyLength = 2;    // two bytes, the low one first
inline constexpr std::size_t bodyChecksum = 4;

// Body: maker and kind, then the modules; everything contiguous.
inline constexpr std::size_t bodyHeadLength = 4;

// Modules and ports begin alike.
inline constexpr std::size_t areaLength = 1;
inline constexpr std::size_t childCount = 2;
inline constexpr std::size_t moduleName = 3;
inline constexpr std::size_t moduleFirmware = 24;
inline constexpr unsigned char moduleLength = 56;
inline constexpr unsigned char portLength = 4;

// Port functions.
inline constexpr std::size_t totalLength = 1; // units of 4 bytes
inline constexpr std::size_t commonPartLength = 2;
inline constexpr std::size_t bootOption = 4;
inline constexpr std::size_t technology = 14;
inline constexpr std::size_t technologyLength = 25; // of a name
inline constexpr std::size_t commonLength = 39;

// NIC functions, behind the common part.
inline constexpr std::size_t nicManufacturedMac = 0;
inline constexpr std::size_t nicActiveMac = 6;
inline constexpr std::size_t nicRomVersion = 12;
inline constexpr std::size_t nicAddressCounts = 44; // IPv4 in the low, IPv6 in the high nibble
inline constexpr std::size_t nicAddresses = 45;

} // namespace sim::portRecord

namespace sim {

/// Technologies of port functions, by number.
inline constexpr std::array<std::string_view, 6> technologyNames = {"NIC",   "FC", "FCoE",
                                                                    "iSCSI", "IB", "SAS"};
unsigned char technologyNumber(std::string_view name) noexcept; // 255 for others

/// Where things are in a FRU, by its own pointers; they may lead out of it.
struct PortRecordPlaces {
    std::size_t makerArea;
    std::size_t header;
    std::size_t body;
    std::size_t bodyLength;
};
PortRecordPlaces findPortRecord(Data image) noexcept;

} // namespace sim
