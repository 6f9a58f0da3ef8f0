// Look-ups in the structure table.

#include "tavSmbios.h"

#include <numeric>

namespace tavSmbios {
namespace {

constexpr unsigned char intermediateLength = 15;
constexpr std::size_t intermediateOffset = offsetof(SmbiosTableEntryPoint, intermediate_anchor);

const char* stringSet(const SmbiosStructHeader* entry) noexcept {
    return reinterpret_cast<const char*>(entry) + entry->length;
}

} // namespace

const char TavSmbios::empty_string[2] = {};

unsigned TavSmbios::getEntryNumber(SmbiosEntryTypes type) const noexcept {
    unsigned number = 0;
    std::size_t position = 0;
    for (unsigned left = entryPoint.structureCount; left != 0; --left) {
        const SmbiosStructHeader* const entry = entryAt(position);
        if (entry == nullptr) {
            break;
        }
        number += entry->type == type ? 1U : 0U;
        position = positionAfter(entry);
    }
    return number;
}

SmbiosStructHeader* TavSmbios::getFirstEntry(SmbiosEntryTypes type) const noexcept {
    return findFrom(0, static_cast<unsigned char>(type));
}

SmbiosStructHeader* TavSmbios::getNextEntry(SmbiosStructHeader* entry) const noexcept {
    return entry == nullptr ? nullptr : findFrom(positionAfter(entry), entry->type);
}

SmbiosStructHeader* TavSmbios::entryAt(std::size_t position) const noexcept {
    const bool whole = position + sizeof(SmbiosStructHeader) <= data_len;
    return whole ? reinterpret_cast<SmbiosStructHeader*>(data.get() + position) : nullptr;
}

SmbiosStructHeader* TavSmbios::findFrom(std::size_t position, unsigned char type) const noexcept {
    SmbiosStructHeader* entry = entryAt(position);
    while (entry != nullptr && entry->type != type) {
        entry = entryAt(positionAfter(entry));
    }
    return entry;
}

/// A structure without length ends the walk.
std::size_t TavSmbios::positionAfter(const SmbiosStructHeader* entry) const noexcept {
    const std::size_t length = dataLength(entry);
    const auto start =
        static_cast<std::size_t>(reinterpret_cast<const unsigned char*>(entry) - data.get());
    return length == 0 ? data_len : start + length;
}

/// Up to and with the end-of-table structure.
unsigned TavSmbios::countStructures() const noexcept {
    unsigned number = 0;
    for (const SmbiosStructHeader* entry = entryAt(0); entry != nullptr;
         entry = entryAt(positionAfter(entry))) {
        ++number;
        if (entry->type == smbios_type_EndOfTable) {
            break;
        }
    }
    return number;
}

std::size_t TavSmbios::dataLength(const SmbiosStructHeader* entry) noexcept {
    if (entry->length == 0) {
        return 0;
    }
    const char* end = stringSet(entry);
    while (end[0] != '\0' || end[1] != '\0') {
        ++end;
    }
    return static_cast<std::size_t>(end + 2 - reinterpret_cast<const char*>(entry));
}

const char* TavSmbios::getSmbiosString(const SmbiosStructHeader* entry,
                                       unsigned char index) noexcept {
    if (entry == nullptr || index == 0) {
        return empty_string;
    }
    const char* text = stringSet(entry);
    for (; index > 1 && *text != '\0'; --index) {
        text += std::strlen(text) + 1;
    }
    return *text != '\0' ? text : empty_string;
}

std::string TavSmbios::getSmbiosStringS(const SmbiosStructHeader* entry, unsigned char index) {
    std::string text = getSmbiosString(entry, index);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

bool TavSmbios::checksum(const unsigned char* bytes, std::size_t length) noexcept {
    return std::accumulate(bytes, bytes + length, 0U) % 256U == 0;
}

bool TavSmbios::isSmbiosHeader(const char* bytes) noexcept {
    const auto* const raw = reinterpret_cast<const unsigned char*>(bytes);
    return std::memcmp(bytes, "_SM_", 4) == 0 &&
           checksum(raw, raw[offsetof(SmbiosTableEntryPoint, entryPointLength)]) &&
           checksum(raw + intermediateOffset, intermediateLength) &&
           std::memcmp(bytes + intermediateOffset, "_DMI_", 5) == 0;
}

bool isKestrelbox(const TavSmbios& tables) noexcept {
    const SmbiosStructHeader* const entry = tables.getFirstEntry(smbios_type_SystemInformation);
    if (entry == nullptr) {
        return false;
    }
    const auto system = TavSmbios::record<SMBSystemInformation>(*entry);
    constexpr const char* line = "KESTRELBOX";
    return std::strcmp(TavSmbios::getSmbiosString(entry, system.family), line) == 0 ||
           std::strstr(TavSmbios::getSmbiosString(entry, system.productName), line) != nullptr;
}

} // namespace tavSmbios
