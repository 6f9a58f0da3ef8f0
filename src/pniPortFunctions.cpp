// Port functions: reading, replacing and growing them in the record.

#include "PniAccess.h"
#include "agentSignals.h"
#include "pniLayout.h"
#include "sysLog.h"

#include <algorithm>
#include <memory>
#include <new>

using tavIpmi::TavIpmi;

namespace {

constexpr int sizeUnit = 4; // of a port function's total length
constexpr int maxTotalSize = 0xFF * sizeUnit;

int commonLength(const PniInfoCache::PortFn& portFn) {
    return std::min<int>(portFn.commonSize, sizeof(PniPortfnCommon));
}

int specificLength(const PniInfoCache::PortFn& portFn) {
    return portFn.totalSize - portFn.commonSize;
}

std::uint16_t specificOffset(const PniInfoCache::PortFn& portFn) {
    return static_cast<std::uint16_t>(portFn.fruOffset + portFn.commonSize);
}

void add(unsigned char& byte, unsigned amount) {
    byte = static_cast<unsigned char>(byte + amount);
}

/// Sum of the header's bytes that its own checksum has to make up for.
unsigned summed(const OemPniMultirecordHeader& header) {
    return PniAccess::sum(recordBytes(header).data(),
                          offsetof(OemPniMultirecordHeader, headerChecksum));
}

} // namespace

const PniInfoCache::PortFn* PniAccess::portFnAt(PortFnIndex index) const noexcept {
    if (!*this || index.module >= pniInfoCache.keptModules()) {
        return nullptr;
    }
    const PniInfoCache::Module& module = pniInfoCache.module[index.module];
    if (index.port >= module.keptPorts()) {
        return nullptr;
    }
    const PniInfoCache::Port& port = module.port[index.port];
    return index.fn < port.keptPortFns() ? &port.portFn[index.fn] : nullptr;
}

PniErrorCodes PniAccess::readPortFnCommonArea(const TavIpmi& ipmi, unsigned char module,
                                              unsigned char port, unsigned char fn,
                                              PniPortfnCommon* out) const {
    const PniInfoCache::PortFn* const portFn = portFnAt({module, port, fn});
    if (portFn == nullptr) {
        return pni_parameter_err;
    }
    unsigned char bytes[sizeof(PniPortfnCommon)];
    const int length = commonLength(*portFn);
    const PniErrorCodes result = readFru(ipmi, portFn->fruOffset, length, bytes);
    readRecord(ByteView(bytes, static_cast<std::size_t>(length)), *out);
    return result;
}

PniErrorCodes PniAccess::writePortFnCommonArea(const TavIpmi& ipmi, unsigned char module,
                                               unsigned char port, unsigned char fn,
                                               const PniPortfnCommon* in) {
    const PniInfoCache::PortFn* const portFn = portFnAt({module, port, fn});
    return portFn == nullptr
               ? pni_parameter_err
               : writeFru(ipmi, portFn->fruOffset, commonLength(*portFn), recordBytes(*in).data());
}

std::string PniAccess::getPortFunctionType(const TavIpmi& ipmi, unsigned char module,
                                           unsigned char port, unsigned char fn) const {
    PniPortfnCommon common;
    if (readPortFnCommonArea(ipmi, module, port, fn, &common) != pni_success) {
        return "Unknown";
    }
    const std::size_t length = portFnAt({module, port, fn})->commonSize;
    return portFnType(pniInfoCache.formatVersion, recordBytes(common, length));
}

PniErrorCodes PniAccess::readPortFnSpecificArea(const TavIpmi& ipmi, unsigned char module,
                                                unsigned char port, unsigned char fn, int len,
                                                unsigned char* out) const {
    const PniInfoCache::PortFn* const portFn = portFnAt({module, port, fn});
    return portFn == nullptr ? pni_parameter_err
                             : readFru(ipmi, specificOffset(*portFn),
                                       std::min(len, specificLength(*portFn)), out);
}

PniErrorCodes PniAccess::writePortFnSpecificArea(const TavIpmi& ipmi, unsigned char module,
                                                 unsigned char port, unsigned char fn, int len,
                                                 const unsigned char* data) {
    const PortFnIndex index{module, port, fn};
    if (portFnAt(index) == nullptr || len < 0) {
        return pni_parameter_err;
    }
    // Once the end is requested there is little time left: no update begins any more.
    if (!writable() || agentSignals::endRequested()) {
        return pni_misc_err;
    }
    const tavIpmi::RecordUpdate update;
    written = false;
    try {
        const PniErrorCodes result =
            rewritePortFn(ipmi, index, {data, static_cast<std::size_t>(len)});
        if (result != pni_success && written) {
            leaveAlone(index, result == pni_memory_err ? "out of memory" : failure.data());
        }
        return result;
    } catch (const std::exception& error) {
        if (written) {
            leaveAlone(index, error.what());
        }
        throw;
    }
}

/// Offsets and checksums of a record that is half rewritten are anybody's guess: a further update
/// would destroy what is still right.
void PniAccess::leaveAlone(PortFnIndex index, const char* what) noexcept {
    leftAlone = true;
    sysLog(LOG_ERR,
           "The NIC ports' record is left alone until the agent is restarted: an update of module "
           "%u, port %u, function %u failed half-way: %s",
           unsigned{index.module}, unsigned{index.port}, unsigned{index.fn}, what);
}

PniErrorCodes PniAccess::rewritePortFn(const TavIpmi& ipmi, PortFnIndex index, ByteView data) {
    const PniInfoCache::PortFn& portFn = *portFnAt(index);
    const int length = static_cast<int>(data.size());
    const int oldLength = std::min(length, specificLength(portFn));
    if (length > oldLength) {
        const PniErrorCodes result = growPortFn(ipmi, index, length - oldLength);
        if (result != pni_success) {
            return result;
        }
    }
    return replaceBytes(ipmi, specificOffset(portFn), oldLength, data);
}

/// Whether the function begins with what the layout was read from.
bool PniAccess::asInLayout(PortFnIndex index, const PniPortfnCommon& common) const {
    const PniInfoCache::PortFn& portFn = *portFnAt(index);
    const std::string type =
        portFnType(pniInfoCache.formatVersion, recordBytes(common, portFn.commonSize));
    return common.pfId.id == index.fn && common.totalRecordLen * sizeUnit == portFn.totalSize &&
           common.commonAreaLen == portFn.commonSize &&
           techTypeStringToEnum(type.c_str()) == portFn.techType;
}

/// What is to be moved reaches to the record's end, wherever that is by now.
PniErrorCodes PniAccess::compareEnd(const TavIpmi& ipmi) {
    OemPniMultirecordHeader header;
    const PniErrorCodes result = readFruRecord(ipmi, pniInfoCache.pniHdrOffset, header);
    if (result == pni_success &&
        pniInfoCache.commonOffset + unsigned{header.recordLength} != recordEnd) {
        noteChange();
        return pni_format_err;
    }
    return result;
}

PniErrorCodes PniAccess::growPortFn(const TavIpmi& ipmi, PortFnIndex index, int delta) {
    const PniInfoCache::PortFn& portFn = *portFnAt(index);
    if (delta % sizeUnit != 0 || portFn.totalSize + delta > maxTotalSize ||
        delta > pniInfoCache.fruSize - static_cast<int>(recordEnd)) {
        return pni_parameter_err;
    }
    if (const PniErrorCodes result = compareEnd(ipmi); result != pni_success) {
        return result;
    }
    const auto units = static_cast<unsigned>(delta / sizeUnit);
    const unsigned end = portFn.fruOffset + unsigned{portFn.totalSize};
    if (const PniErrorCodes result =
            moveFru(ipmi, static_cast<std::uint16_t>(end + static_cast<unsigned>(delta)),
                    static_cast<std::uint16_t>(end), static_cast<std::uint16_t>(recordEnd - end));
        result != pni_success) {
        return result;
    }
    if (const PniErrorCodes result = lengthenPortFn(ipmi, index, units); result != pni_success) {
        return result;
    }
    if (const PniErrorCodes result = lengthenRecord(ipmi, units); result != pni_success) {
        return result;
    }
    shiftLayout(index, static_cast<std::uint16_t>(delta));
    return pni_success;
}

PniErrorCodes PniAccess::lengthenPortFn(const TavIpmi& ipmi, PortFnIndex index, unsigned units) {
    PniPortfnCommon common;
    const PniErrorCodes result =
        readPortFnCommonArea(ipmi, index.module, index.port, index.fn, &common);
    if (result != pni_success) {
        return result;
    }
    add(common.totalRecordLen, units);
    return writePortFnCommonArea(ipmi, index.module, index.port, index.fn, &common);
}

/// The body's sum has grown by `units`, in the function's total length.
PniErrorCodes PniAccess::lengthenRecord(const TavIpmi& ipmi, unsigned units) {
    OemPniMultirecordHeader header;
    const PniErrorCodes result = readFruRecord(ipmi, pniInfoCache.pniHdrOffset, header);
    if (result != pni_success) {
        return result;
    }
    const unsigned before = summed(header);
    header.recordLength = static_cast<std::uint16_t>(header.recordLength + units * sizeUnit);
    add(header.recordChecksum, 0U - units);
    add(header.headerChecksum, before - summed(header));
    return writeFruRecord(ipmi, pniInfoCache.pniHdrOffset, header);
}

void PniAccess::shiftLayout(PortFnIndex grown, std::uint16_t delta) noexcept {
    PniInfoCache::PortFn& portFn =
        pniInfoCache.module[grown.module].port[grown.port].portFn[grown.fn];
    const auto shift = [start = portFn.fruOffset, delta](auto& area) {
        if (area.fruOffset > start) {
            area.fruOffset = static_cast<std::uint16_t>(area.fruOffset + delta);
        }
    };
    for (PniInfoCache::Module& module : pniInfoCache.module) {
        shift(module);
        for (PniInfoCache::Port& port : module.port) {
            shift(port);
            std::ranges::for_each(port.portFn, shift);
        }
    }
    portFn.totalSize = static_cast<std::uint16_t>(portFn.totalSize + delta);
    pniInfoCache.fruDataSize = static_cast<std::uint16_t>(pniInfoCache.fruDataSize + delta);
    recordEnd += delta;
}

/// Writes `bytes` over an area of which the first `oldLength` bytes counted in the record's sum
/// until now, and brings the checksums into line.
PniErrorCodes PniAccess::replaceBytes(const TavIpmi& ipmi, unsigned short offset, int oldLength,
                                      ByteView bytes) {
    const auto oldSize = static_cast<unsigned>(oldLength);
    const std::unique_ptr<unsigned char[]> old(new (std::nothrow) unsigned char[oldSize]);
    if (!old) {
        return pni_memory_err;
    }
    PniErrorCodes result = readFru(ipmi, offset, oldLength, old.get());
    if (result != pni_success) {
        return result;
    }
    result = writeFru(ipmi, offset, static_cast<int>(bytes.size()), bytes.data());
    if (result != pni_success) {
        return result;
    }
    OemPniMultirecordHeader header;
    result = readFruRecord(ipmi, pniInfoCache.pniHdrOffset, header);
    if (result != pni_success) {
        return result;
    }
    const unsigned difference =
        sum(old.get(), oldSize) - unsigned{sum(bytes.data(), static_cast<unsigned>(bytes.size()))};
    add(header.recordChecksum, difference);
    add(header.headerChecksum, 0U - difference);
    return writeFruRecord(ipmi, pniInfoCache.pniHdrOffset, header);
}
