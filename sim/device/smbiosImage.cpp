#include "smbiosImage.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::size_t headerLength = 4;
constexpr std::size_t memorySize = 0x100000;
constexpr std::size_t legacyEntryPoint = 0xF0000;
constexpr std::size_t legacyTable = 0xF0040;

/// Appends the lowest `length` bytes of `value`, the lowest first.
void append(Bytes& bytes, std::uint64_t value, std::size_t length) {
    for (std::size_t done = 0; done < length; ++done) {
        bytes.push_back(static_cast<unsigned char>(value >> (8 * done) & 0xFFU));
    }
}

void append(Bytes& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

/// The value for a checksum byte that is still 0 in `bytes`: then they add up to 0.
unsigned char checksumFor(Data bytes) {
    return static_cast<unsigned char>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U));
}

void copyTo(Bytes& memory, std::size_t place, const Bytes& part) {
    std::ranges::copy(part, memory.begin() + static_cast<std::ptrdiff_t>(place));
}

} // namespace

void SmbiosTable::add(unsigned char type, Data formatted,
                      std::initializer_list<std::string_view> strings) {
    const std::size_t start = table.size();
    table.push_back(type);
    table.push_back(static_cast<unsigned char>(headerLength + formatted.size()));
    append(table, count, 2); // handle
    table.insert(table.end(), formatted.begin(), formatted.end());
    const std::size_t setStart = table.size();
    for (const std::string_view string : strings) {
        if (!string.empty()) {
            append(table, string);
            table.push_back(0);
        }
    }
    table.resize(table.size() + (table.size() == setStart ? 2 : 1)); // a set without strings: two
    longest = std::max(longest, static_cast<std::uint16_t>(table.size() - start));
    ++count;
}

void SmbiosTable::addBios() {
    constexpr unsigned char formatted[] = {
        1,    2,                            // vendor, version
        0x00, 0xE0, 3,                      // segment, release date
        0xFF,                               // 16 MiB
        0x80, 0,    0, 0, 0,    0,    0, 0, // PCI
        0,    0,    1, 4, 0xFF, 0xFF,       // release 1.4, no embedded controller
    };
    add(0, formatted, {"example vendor", "R1.4.0", "01/31/2020"});
}

void SmbiosTable::addSystem(const System& system) {
    constexpr std::size_t uuidLength = 16;
    // Numbers go to the strings that are there, in the order of the set.
    unsigned char last = 0;
    const auto number = [&last](std::string_view string) {
        return string.empty() ? static_cast<unsigned char>(0) : ++last;
    };
    Bytes formatted;
    formatted.push_back(number(system.manufacturer));
    formatted.push_back(number(system.product));
    formatted.push_back(0); // version
    formatted.push_back(number(system.serialNumber));
    formatted.resize(formatted.size() + uuidLength); // not set
    formatted.push_back(6);                          // woken by the power switch
    formatted.push_back(0);                          // SKU number
    formatted.push_back(number(system.family));
    add(1, formatted, {system.manufacturer, system.product, system.serialNumber, system.family});
}

void SmbiosTable::addEnclosure(std::string_view serialNumber) {
    const unsigned char serial = serialNumber.empty() ? 0 : 2;
    const unsigned char formatted[] = {
        1, 0x17, 0, serial, 0, // manufacturer, rack mount, version, serial number, asset tag
        3, 3,    3, 2,         // states: safe; security unknown
        0, 0,    0, 0,         // OEM
        0, 1,    0, 0,         // height, power cords, contained elements
    };
    add(3, formatted, {"example vendor", serialNumber});
}

void SmbiosTable::addEnd() {
    constexpr unsigned char endOfTable = 127;
    add(endOfTable, {}, {});
}

Bytes smbiosEntryPoint2(const SmbiosTable& table, std::uint32_t address) {
    return smbiosEntryPoint2({.address = address,
                              .length = table.bytes().size(),
                              .structures = table.structureCount(),
                              .longestStructure = table.longestStructure()});
}

Bytes smbiosEntryPoint2(const SmbiosTablePlace& place) {
    constexpr std::size_t intermediate = 16;
    Bytes entry;
    append(entry, "_SM_");
    entry.insert(entry.end(), {0, 31, 2, 8}); // checksum, length, version
    append(entry, place.longestStructure, 2);
    append(entry, 0, 6); // revision and its area
    append(entry, "_DMI_");
    entry.push_back(0); // checksum from here on
    append(entry, place.length, 2);
    append(entry, place.address, 4);
    append(entry, place.structures, 2);
    entry.push_back(0x28);
    entry[intermediate + 5] = checksumFor(Data(entry).subspan(intermediate));
    entry[4] = checksumFor(entry);
    return entry;
}

Bytes smbiosEntryPoint3(const SmbiosTable& table, std::uint64_t address) {
    Bytes entry;
    append(entry, "_SM3_");
    entry.insert(entry.end(), {0, 24, 3, 2, 0, 1, 0}); // checksum, length, version, revision
    append(entry, table.bytes().size(), 4);            // at most
    append(entry, address, 8);
    entry[5] = checksumFor(entry);
    return entry;
}

Bytes smbiosPhysicalMemory(const SmbiosTable& table) {
    if (table.bytes().size() > memorySize - legacyTable) {
        throw std::length_error("SMBIOS table does not fit below 1 MiB");
    }
    Bytes memory(memorySize);
    copyTo(memory, legacyEntryPoint, smbiosEntryPoint2(table, legacyTable));
    copyTo(memory, legacyTable, table.bytes());
    return memory;
}

} // namespace sim
