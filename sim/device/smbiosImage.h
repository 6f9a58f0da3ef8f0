#pragma once

#include "ipmiMessage.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace sim {

/// A structure table of the DMTF's SMBIOS standard in the making.
class SmbiosTable {
  public:
    struct System {
        std::string_view manufacturer = "example vendor";
        std::string_view product;
        std::string_view serialNumber;
        std::string_view family;
    };

    /// Adds a structure: what stands in its formatted area behind the header, and its strings,
    /// which are numbered from 1. An empty string would end the set and is left out.
    void add(unsigned char type, Data formatted, std::initializer_list<std::string_view> strings);
    void addBios();
    void addSystem(const System& system);
    void addEnclosure(std::string_view serialNumber);
    void addEnd();

    const Bytes& bytes() const noexcept { return table; }
    std::uint16_t structureCount() const noexcept { return count; }
    std::uint16_t longestStructure() const noexcept { return longest; }

  private:
    Bytes table;
    std::uint16_t count = 0;
    std::uint16_t longest = 0;
};

/// What an entry point says of its table, true or not.
struct SmbiosTablePlace {
    std::uint32_t address = 0;
    std::size_t length = 0;
    std::size_t structures = 0;
    std::size_t longestStructure = 0;
};

/// The "_SM_" entry point of SMBIOS 2.x, for a table at this physical address.
Bytes smbiosEntryPoint2(const SmbiosTable& table, std::uint32_t address);
Bytes smbiosEntryPoint2(const SmbiosTablePlace& place);
/// The "_SM3_" entry point of SMBIOS 3.x.
Bytes smbiosEntryPoint3(const SmbiosTable& table, std::uint64_t address);
/// The first MiB of physical memory, as a legacy firmware leaves it: entry point at 0xF0000 and
/// the table below 1 MiB behind it. Throws std::length_error when the table is too long for that.
Bytes smbiosPhysicalMemory(const SmbiosTable& table);

} // namespace sim
