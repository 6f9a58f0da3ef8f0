#pragma once

#include "IPv4Address.h"
#include "MacAddress.h"
#include "bmcQuestions.h"
#include "ipmiMessage.h"
#include "tavIpmiEEPROMVersionInfo.h"
#include "tavIpmiWatchdogRecords.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavStatus {

/// What the BMC says of itself.
struct Identity {
    unsigned deviceId;
    unsigned deviceRevision;
    unsigned firmwareMajor;
    unsigned char firmwareMinor; ///< BCD
    bool updating;               ///< firmware or sensor data are just being replaced
    unsigned ipmiMajor;
    unsigned ipmiMinor;
    std::uint32_t manufacturer; ///< IANA enterprise number
    std::uint16_t product;
    sim::Bytes auxiliary; ///< 4, or as many as there were
    bool agentTakesIt;    ///< the answer has the one length that the agent takes
};

/// A LAN port of a blade.
struct LanPort {
    unsigned number; ///< from 1
    MacAddress mac;
    bool enabled;
};

/// One address at which a management blade can be reached.
struct BladeAddress {
    unsigned index;                 ///< `AddressIndex`
    sim::Bytes address;             ///< 4 or 16
    std::optional<unsigned> prefix; ///< bits
};

/// What the BMC of a blade knows of the chassis around it.
struct BladeStatus {
    unsigned slot;
    std::vector<LanPort> ports;
    bool ipv6Capable;
    std::vector<BladeAddress> addresses;
    MacAddress secondMac; ///< all zero: none
};

/// A port function of the port information record.
struct PortFunction {
    unsigned module;
    unsigned port;
    unsigned function;
    std::string technology;
    MacAddress activeMac; ///< with what follows: of a NIC only
    MacAddress manufacturedMac;
    std::vector<sim::Bytes> addresses; ///< 4 or 16 bytes each
};

/// The record of a network adapter's ports.
struct PortRecord {
    unsigned format = 0;
    unsigned length = 0; ///< bytes of the body
    bool headerChecksumRight = false;
    bool bodyChecksumRight = false;
    std::string fault;                   ///< why the agent leaves it alone; empty: it is sound
    sim::Bytes image;                    ///< the FRU as far as it was read, otherwise zero
    std::vector<PortFunction> functions; ///< of a sound record
};

using EepromRecord = tavIpmi::TavGetEEPROMVersionInfoData;

/// The BMC's side of the status. What is absent was refused, does not exist, or was not asked to
/// its end.
struct BmcStatus {
    Reach reach = Reach::answering;
    std::string trouble; ///< why the asking ended early
    unsigned answers = 0;
    std::optional<Identity> identity;
    std::optional<tavIpmi::TavWatchdogTimerGetRespData> watchdog;
    /// Whether it carries out requests under this build's maker's number; absent, too, when its
    /// answers do not tell.
    std::optional<bool> makerAccepted;
    std::optional<bool> agentConnected;
    std::map<std::uint16_t, sim::Bytes> confSpace; ///< by number
    std::optional<BladeStatus> blade;
    std::optional<PortRecord> portRecord;
    std::array<std::optional<EepromRecord>, tavIpmi::TavIpmiEEPROMVersionInfo::eeproms> eeproms;
};

/// Asks the BMC everything once. Nothing in it changes by that.
BmcStatus askBmc();

// Its parts, for a BMC of the maker's.
std::optional<BladeStatus> askBlade(BmcQuestions& bmc);
std::optional<PortRecord> askPortRecord(BmcQuestions& bmc);

} // namespace tavStatus
