#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

/// What a port function is.
enum Portfn_tech : std::uint8_t {
    portfn_tech_nic = 0,
    portfn_tech_fc = 1,
    portfn_tech_fcoe = 2,
    portfn_tech_iscsi = 3,
    portfn_tech_ib = 4,
    portfn_tech_sas = 5,
    portfn_tech_unknown = 255
};

/// Where the modules, ports and port functions of a port information record lie in the FRU. Counts
/// are those of the record and can be larger than what is kept here: the `kept...` functions tell
/// how far the arrays are filled. All offsets are FRU offsets.
struct PniInfoCache {
    static constexpr std::uint8_t maxModules = 8;
    static constexpr std::uint8_t maxPorts = 16;
    static constexpr std::uint8_t maxPortFns = 16;

    struct PortFn {
        std::uint16_t fruOffset;
        std::uint16_t totalSize;  ///< bytes
        std::uint16_t commonSize; ///< bytes of the common part, never more than `totalSize`
        Portfn_tech techType;
    };
    struct Port {
        std::uint16_t fruOffset;
        std::uint16_t size; ///< bytes up to the first function
        std::uint8_t numPortFn;
        std::array<PortFn, maxPortFns> portFn;

        std::uint8_t keptPortFns() const noexcept { return std::min(numPortFn, maxPortFns); }
    };
    struct Module {
        std::uint8_t moduleId;
        std::uint16_t fruOffset;
        std::uint16_t size; ///< bytes up to the first port
        std::uint8_t numPorts;
        std::array<Port, maxPorts> port;

        std::uint8_t keptPorts() const noexcept { return std::min(numPorts, maxPorts); }
    };

    struct {
        std::uint8_t valid : 1;
        std::uint8_t initdone : 1;
        std::uint8_t reserved : 6;
    } state;
    std::uint8_t deviceId;
    std::uint16_t fruSize;
    std::uint16_t fruDataSize;  ///< just past the last module
    std::uint16_t pniHdrOffset; ///< of the record's header
    std::uint8_t formatVersion; ///< 10, 11 or 12
    std::uint8_t numModules;
    std::uint16_t commonOffset; ///< of the record's body
    std::uint8_t commonsize;    ///< bytes of the body before the first module
    std::array<Module, maxModules> module;

    std::uint8_t keptModules() const noexcept { return std::min(numModules, maxModules); }
};
