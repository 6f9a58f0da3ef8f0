#pragma once

#include "bladeLink.h"
#include "ipmiMessage.h"

#include <array>
#include <string>
#include <vector>

namespace sim {

/// What adapters describe in their FRU: modules, their ports, and the ports' functions.
struct PortFunction {
    std::string technology = "NIC"; // or "FC", "FCoE", "iSCSI", "IB", or one without a number
    Mac manufacturedMac{};
    Mac activeMac{};
    std::vector<std::array<unsigned char, 4>> ipv4 = {};
    std::vector<std::array<unsigned char, 16>> ipv6 = {};
    std::size_t commonLength = 39;
    /// Bytes behind the common part; more if the addresses or the 4-byte boundary need it.
    std::size_t specificLength = 53;
};

struct Port {
    std::vector<PortFunction> functions = {};
};

struct Module {
    unsigned char id = 0;
    std::vector<Port> ports = {};
};

struct PortInformation {
    unsigned format = 11; // 10: technologies are names; 11 and 12: numbers
    std::vector<Module> modules = {};
};

/// A FRU of that size with the record in it: common header, the maker's area at 8, the record's
/// header at 16. Throws std::length_error if a length does not fit its field or the FRU.
Bytes fruImage(const PortInformation& record, std::size_t size);

/// Makes all checksums right again, as far as the areas still lie inside the FRU.
void fixChecksums(Bytes& image);

} // namespace sim
