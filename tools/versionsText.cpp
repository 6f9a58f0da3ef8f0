#include "versionsText.h"

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

} // namespace

std::string eepromText(const TavGetEEPROMVersionInfoData& record) {
    const unsigned auxBooter = record.AuxBooterRevision;
    return "firmware " + version(record.MajorFWRevision, record.MinorFWRevision) + " " +
           sim::hexText(record.AuxFWRevision_bin) + " " + letter(record.AuxFWRevision_char) +
           ", SDR " + version(record.MajorSDRRevision, record.MinorSDRRevision) + " " +
           letter(record.SDRRRevision_char) + " id " + digits(record.SDRR_ID_msb) +
           digits(record.SDRR_ID_lsb) + ", booter " +
           version(record.MajorBooterRevision, record.MinorBooterRevision) + " aux " +
           std::to_string(auxBooter) + ", status " + sim::hexByte(record.status);
}

std::string versionsText() {
    const TavIpmiEEPROMVersionInfo versions;
    return "EEPROM 0: " + eepromText(versions.record(0)) +
           "\nEEPROM 1: " + eepromText(versions.record(1)) + "\n";
}
