#include "versionsText.h"

#include "tavIpmiEEPROMVersionInfo.h"
#include "text.h"

using tavIpmi::TavGetEEPROMVersionInfoData;
using tavIpmi::TavIpmiEEPROMVersionInfo;

namespace {

/// Digits as they stand in the byte: versions are written in BCD.
std::string digits(unsigned char byte) {
    return sim::hexByte(byte).substr(2);
}

std::string version(unsigned char majorNumber, unsigned char minorNumber) {
    return std::to_string(majorNumber) + "." + digits(minorNumber);
}

std::string letter(unsigned char character) {
    return sim::quoted({&character, 1});
}

std::string lineFor(unsigned number, const TavGetEEPROMVersionInfoData& record) {
    const unsigned auxBooter = record.AuxBooterRevision;
    return "EEPROM " + std::to_string(number) + ": firmware " +
           version(record.MajorFWRevision, record.MinorFWRevision) + " " +
           sim::hexText(record.AuxFWRevision_bin) + " " + letter(record.AuxFWRevision_char) +
           ", SDR " + version(record.MajorSDRRevision, record.MinorSDRRevision) + " " +
           letter(record.SDRRRevision_char) + " id " + digits(record.SDRR_ID_msb) +
           digits(record.SDRR_ID_lsb) + ", booter " +
           version(record.MajorBooterRevision, record.MinorBooterRevision) + " aux " +
           std::to_string(auxBooter) + ", status " + sim::hexByte(record.status) + "\n";
}

} // namespace

std::string versionsText() {
    const TavIpmiEEPROMVersionInfo versions;
    return lineFor(0, versions.record(0)) + lineFor(1, versions.record(1));
}
