// Discovery of the port information record.

#include "PniAccess.h"

#include "pniLayout.h"
#include "pniLock.h"
#include "sysLog.h"

#include <cstdio>
#include <memory>
#include <new>

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace {

constexpr unsigned areaUnit = 8;
constexpr unsigned char pniRecordType = 0xF0;
constexpr unsigned char pniSubRecordType = 1;
constexpr unsigned lastFormat = 12;

void requireRead(PniErrorCodes result, unsigned line) {
    if (result != pni_success) {
        throw PniAccessError("Read FRU failed ", __FILE__, line);
    }
}

void requireZeroChecksum(ByteView bytes, unsigned char seed, unsigned line) {
    if (!PniAccess::validateZeroChecksum(bytes.data(), static_cast<int>(bytes.size()), seed)) {
        throw PniAccessError("Checksum error ", __FILE__, line);
    }
}

void requireSupported(bool supported, unsigned line) {
    if (!supported) {
        throw PniAccessError("Invalid unsupported record ", __FILE__, line);
    }
}

std::string refusal(unsigned char completionCode) {
    char digits[3];
    static_cast<void>(std::snprintf(digits, sizeof digits, "%x", completionCode));
    return std::string("IPMI access has failed. (Return code: ") + digits;
}

} // namespace

PniAccess::PniAccess() {
    try {
        discover();
        if (layoutOutdated) {
            noteBusy();
        }
    } catch (const tavIpmi::TavIpmiError& error) {
        sysLog(LOG_ERR, "IPMI access has failed.");
        sysLog(LOG_ERR, "%s", error.what());
    }
}

/// What another agent is just rewriting looks unsound, and would be left alone for good.
void PniAccess::discover() {
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    findDevice(ipmi);
    layoutOutdated = !lockPniRecord(ipmi);
    if (!layoutOutdated) {
        readLayout(ipmi);
    }
}

bool PniAccess::renew() noexcept {
    if (!layoutOutdated) {
        return false;
    }
    try {
        PniAccess fresh{Unread{}};
        fresh.discover();
        if (!fresh.usable()) {
            return false;
        }
        *this = fresh;
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void PniAccess::noteChange() noexcept {
    layoutOutdated = true;
    sysLog(LOG_INFO, "Another program has changed the NIC ports' record; it is read anew before "
                     "anything is written to it");
}

void PniAccess::noteBusy() noexcept {
    layoutOutdated = true;
    sysLog(LOG_ERR, "Another program keeps the NIC ports' record to itself; it is not updated now");
}

void PniAccess::findDevice(const TavIpmi& ipmi) {
    const TavGetMezzReqData request{};
    TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_oem_2, tavIpmi::ipmi_oemcmd_get_mezz,
                            recordBytes(request));
    TavGetMezzRspData response;
    if (exchange(ipmi, msg, response, offsetof(TavGetMezzRspData, accessType))) {
        pniInfoCache.deviceId = response.fruDeviceId;
        pniInfoCache.fruSize = response.fruSize;
        return;
    }
    if (response.completion_code == tavIpmi::ipmi_cc_invalid_cmd) {
        throw std::runtime_error("IPMI access has failed."); // this server has no such device
    }
    throw PniAccessError(response.completion_code == tavIpmi::ipmi_cc_normally_cc
                             ? "IPMI access has failed. "
                             : refusal(response.completion_code),
                         __FILE__, __LINE__);
}

void PniAccess::readLayout(const TavIpmi& ipmi) {
    findRecord(ipmi);
    OemPniMultirecordHeader header;
    requireRead(readFruRecord(ipmi, pniInfoCache.pniHdrOffset, header), __LINE__);
    requireZeroChecksum(recordBytes(header), 0, __LINE__);
    const unsigned format = header.recordInfo.recordFormatVersion;
    requireSupported(header.recordTypeId == pniRecordType && format >= pniFormatWithNames &&
                         format <= lastFormat,
                     __LINE__);
    pniInfoCache.formatVersion = static_cast<std::uint8_t>(format);
    readBody(ipmi, header);
    pniInfoCache.state.valid = 1;
    pniInfoCache.state.initdone = 1;
}

/// By way of the FRU's common header and the maker's area.
void PniAccess::findRecord(const TavIpmi& ipmi) {
    IpmiFruCommonHeader fru;
    requireRead(readFruRecord(ipmi, 0, fru), __LINE__);
    requireZeroChecksum(recordBytes(fru), 0, __LINE__);
    const unsigned areaOffset = fru.internalUseAreaOffset * areaUnit;
    OemInternalUseArea area;
    requireRead(readFruRecord(ipmi, static_cast<std::uint16_t>(areaOffset), area), __LINE__);
    requireZeroChecksum(recordBytes(area), 0, __LINE__);
    requireSupported(area.formatVersion == 1 && area.areaSubtype == 1, __LINE__);
    pniInfoCache.numModules = area.oemMultirecordCount;
    pniInfoCache.pniHdrOffset =
        static_cast<std::uint16_t>(areaOffset + area.oemMultirecordAreaOffset * areaUnit);
}

void PniAccess::readBody(const TavIpmi& ipmi, const OemPniMultirecordHeader& header) {
    const std::uint16_t length = header.recordLength;
    const std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[length]);
    if (!bytes) {
        throw PniAccessError("Memory Error ", __FILE__, __LINE__);
    }
    const ByteView body(bytes.get(), length);
    pniInfoCache.commonOffset =
        static_cast<std::uint16_t>(pniInfoCache.pniHdrOffset + sizeof header);
    requireRead(readFru(ipmi, pniInfoCache.commonOffset, length, bytes.get()), __LINE__);
    requireZeroChecksum(body, header.recordChecksum, __LINE__);
    PniCommonArea common;
    readRecord(body, common);
    requireSupported(common.subRecordTypeId == pniSubRecordType, __LINE__);
    pniInfoCache.commonsize = sizeof common;
    readPniLayout(body, pniInfoCache);
    recordEnd = pniInfoCache.commonOffset + unsigned{length};
}

int PniAccess::getModuleIndex(unsigned char moduleId) const noexcept {
    for (unsigned m = 0; usable() && m < pniInfoCache.keptModules(); ++m) {
        if (pniInfoCache.module[m].moduleId == moduleId) {
            return static_cast<int>(m);
        }
    }
    return -1;
}
