#pragma once

#include "tavIpmiCmd.h"

#include <array>
#include <ctime>

namespace tavIpmi {

struct TavGetEEPROMVersionInfoReq {
    OemRequestPrefix prefix;
    unsigned char EEPROM_num; ///< 0 or 1
};
static_assert(sizeof(TavGetEEPROMVersionInfoReq) == 5);

struct TavGetEEPROMVersionInfoData {
    unsigned char completionCode;
    LittleEndian16 iana_enterprise_number;  ///< low 16 bits
    unsigned char iana_enterprise_number_1; ///< bits 16 to 23
    unsigned char status;
    unsigned char MajorFWRevision;
    unsigned char MinorFWRevision;
    unsigned char AuxFWRevision_bin[3];
    unsigned char AuxFWRevision_char;
    unsigned char MajorSDRRevision;
    unsigned char MinorSDRRevision;
    unsigned char SDRRRevision_char;
    unsigned char SDRR_ID_lsb;
    unsigned char SDRR_ID_msb;
    unsigned char MajorBooterRevision;
    unsigned char MinorBooterRevision;
    LittleEndian16 AuxBooterRevision;
};
static_assert(sizeof(TavGetEEPROMVersionInfoData) == 20);

/// The version records of the BMC's two firmware EEPROMs. Errors of the transport pass out; a
/// record that is refused or not answered stays as it was.
class TavIpmiEEPROMVersionInfo {
  public:
    static constexpr unsigned eeproms = 2;
    enum {
        update_period = 120 ///< seconds
    };

    /// Fetches both records.
    TavIpmiEEPROMVersionInfo();
    TavIpmiEEPROMVersionInfo(const TavIpmiEEPROMVersionInfo&) = default;
    TavIpmiEEPROMVersionInfo& operator=(const TavIpmiEEPROMVersionInfo&) = default;
    virtual ~TavIpmiEEPROMVersionInfo() = default;

    /// Fetches both records now; true if one of them changed.
    bool update();
    /// Fetches them when the last time is more than `update_period` ago; true if one changed,
    /// false also when it was not time yet.
    bool isUpToDate();

    /// Record of EEPROM `number`, 0 or 1; zero until there was an answer. What a short answer did
    /// not hold is zero.
    const TavGetEEPROMVersionInfoData& record(unsigned number) const { return data.at(number); }

  private:
    std::array<TavGetEEPROMVersionInfoData, eeproms> data{};
    std::time_t last_update; ///< seconds of the monotonic clock
};

} // namespace tavIpmi
