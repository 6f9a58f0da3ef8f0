// Reading the record in which a network adapter keeps its ports. It is not locked at first: that
// would keep the agent waiting. What is read while the agent rewrites it looks unsound; then it is
// read again, with the agent kept away.

#include "PniAccess.h"
#include "agentClock.h"
#include "bmcStatus.h"
#include "pniLayout.h"
#include "pniLock.h"
#include "portRecord.h"

#include <algorithm>
#include <cerrno>
#include <optional>

using tavIpmi::TavIpmi;

namespace tavStatus {

namespace {

constexpr std::size_t chunk = sizeof(TavFruReadRspData::rdData);
constexpr unsigned lastFormat = 12;

/// Bytes of one FRU, kept at their places.
class FruReader {
  public:
    FruReader(BmcQuestions& questions, const TavGetMezzRspData& adapter) :
        bmc(questions), deviceId(adapter.fruDeviceId), size(adapter.fruSize) {}

    /// False when the range leads out of the FRU or was not answered.
    bool read(std::size_t offset, std::size_t count) {
        if (offset + count > size) {
            return false;
        }
        image.resize(std::max(image.size(), offset + count));
        for (std::size_t done = 0; done < count; done += chunk) {
            if (!readChunk(offset + done, std::min(count - done, chunk))) {
                return false;
            }
        }
        return true;
    }
    ByteView at(std::size_t offset, std::size_t count) const {
        return ByteView(image).subspan(offset, count);
    }

    sim::Bytes image;

  private:
    bool readChunk(std::size_t offset, std::size_t count) {
        const TavFruReadReqData request{deviceId, static_cast<std::uint16_t>(offset),
                                        static_cast<unsigned char>(count)};
        TavFruReadRspData response;
        constexpr std::size_t head = offsetof(TavFruReadRspData, rdData);
        if (!bmc.ask({tavIpmi::ipmi_netfn_req_storage, tavIpmi::ipmi_cmd_read_fru_data,
                      recordBytes(request)},
                     response, head + count)) {
            return false;
        }
        std::copy_n(response.rdData, count, image.begin() + static_cast<std::ptrdiff_t>(offset));
        return true;
    }

    BmcQuestions& bmc;
    unsigned char deviceId;
    std::size_t size;
};

bool sumsToZero(ByteView bytes, unsigned char seed = 0) {
    return PniAccess::validateZeroChecksum(bytes.data(), static_cast<int>(bytes.size()), seed);
}

/// The common header and the maker's area, which lead to the record; what is wrong with them.
const char* findRecord(FruReader& fru) {
    if (!fru.read(0, sizeof(IpmiFruCommonHeader))) {
        return "the FRU's header cannot be read";
    }
    if (!sumsToZero(fru.image)) {
        return "checksum error in the FRU's header";
    }
    const std::size_t area = sim::findPortRecord(fru.image).makerArea;
    if (area < sizeof(IpmiFruCommonHeader) || !fru.read(area, sizeof(OemInternalUseArea))) {
        return "the maker's area cannot be read";
    }
    if (!sumsToZero(fru.at(area, sizeof(OemInternalUseArea)))) {
        return "checksum error in the maker's area";
    }
    OemInternalUseArea fields;
    readRecord(fru.at(area, sizeof fields), fields);
    return fields.formatVersion == 1 && fields.areaSubtype == 1 ? "" : "unsupported maker's area";
}

/// The record itself, with its two checksums; what is wrong with it.
const char* readRecordBytes(FruReader& fru, PortRecord& record) {
    const std::size_t header = sim::findPortRecord(fru.image).header;
    OemPniMultirecordHeader fields;
    if (!fru.read(header, sizeof fields)) {
        return "the record's header cannot be read";
    }
    readRecord(fru.at(header, sizeof fields), fields);
    record.format = fields.recordInfo.recordFormatVersion;
    record.length = fields.recordLength;
    record.headerChecksumRight = sumsToZero(fru.at(header, sizeof fields));
    if (!record.headerChecksumRight) {
        return "checksum error in the record's header";
    }
    if (fields.recordTypeId != sim::portRecord::recordType || record.format < pniFormatWithNames ||
        record.format > lastFormat) {
        return "unsupported record";
    }
    const std::size_t body = header + sizeof fields;
    if (!fru.read(body, record.length)) {
        return "the record cannot be read";
    }
    record.bodyChecksumRight = sumsToZero(fru.at(body, record.length), fields.recordChecksum);
    return record.bodyChecksumRight ? "" : "checksum error in the record";
}

std::vector<sim::Bytes> addressesOf(const PniPortfnNic& nic, std::size_t length) {
    std::vector<sim::Bytes> addresses;
    ByteView rest = ByteView(nic.ipAddress).first(std::min(length, sizeof nic.ipAddress));
    const auto take = [&](unsigned count, std::size_t bytes) {
        for (; count != 0 && rest.size() >= bytes; --count) {
            addresses.emplace_back(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(bytes));
            rest = rest.subspan(bytes);
        }
    };
    take(nic.numIpAddress.ipv4, 4);
    take(nic.numIpAddress.ipv6, 16);
    return addresses;
}

void addNic(PortFunction& function, ByteView specific) {
    PniPortfnNic nic;
    constexpr std::size_t head = offsetof(PniPortfnNic, ipAddress);
    if (readRecord(specific, nic, head)) {
        function.activeMac = MacAddress(nic.activeMACAddr);
        function.manufacturedMac = MacAddress(nic.mfgMACAddr);
        function.addresses = addressesOf(nic, specific.size() - head);
    }
}

PortFunction functionAt(const PniInfoCache& layout, const PniInfoCache::PortFn& place,
                        ByteView image) {
    const ByteView whole = image.subspan(place.fruOffset, place.totalSize);
    PortFunction function{};
    function.technology = portFnType(layout.formatVersion, whole.first(place.commonSize));
    if (place.techType == portfn_tech_nic) {
        addNic(function, whole.subspan(place.commonSize));
    }
    return function;
}

std::vector<PortFunction> functionsOf(const PniInfoCache& layout, ByteView image) {
    std::vector<PortFunction> functions;
    for (unsigned m = 0; m < layout.keptModules(); ++m) {
        const PniInfoCache::Module& module = layout.module[m];
        for (unsigned p = 0; p < module.keptPorts(); ++p) {
            const PniInfoCache::Port& port = module.port[p];
            for (unsigned f = 0; f < port.keptPortFns(); ++f) {
                PortFunction& added =
                    functions.emplace_back(functionAt(layout, port.portFn[f], image));
                added.module = m;
                added.port = p;
                added.function = f;
            }
        }
    }
    return functions;
}

/// Takes apart what has right checksums; the agent's own walk is the judge of it.
std::string takeApart(PortRecord& record, ByteView image) {
    const sim::PortRecordPlaces places = sim::findPortRecord(image);
    const ByteView body = image.subspan(places.body, record.length);
    PniCommonArea common;
    if (!readRecord(body, common) || common.subRecordTypeId != sim::portRecord::subRecordType) {
        return "unsupported record";
    }
    PniInfoCache layout{};
    layout.formatVersion = static_cast<std::uint8_t>(record.format);
    layout.numModules = image[places.makerArea + offsetof(OemInternalUseArea, oemMultirecordCount)];
    layout.commonOffset = static_cast<std::uint16_t>(places.body);
    layout.commonsize = sizeof common;
    try {
        readPniLayout(body, layout);
    } catch (const PniAccessError&) {
        return "the record's lists contradict themselves";
    }
    record.functions = functionsOf(layout, image);
    return "";
}

PortRecord readPortRecord(BmcQuestions& bmc, const TavGetMezzRspData& adapter) {
    FruReader fru(bmc, adapter);
    PortRecord record;
    record.fault = findRecord(fru);
    if (record.fault.empty()) {
        record.fault = readRecordBytes(fru, record);
    }
    if (record.fault.empty()) {
        record.fault = takeApart(record, fru.image);
    }
    record.image = std::move(fru.image);
    return record;
}

/// Keeps agents from writing; does without when one does not let go within a second.
class WritersKeptAway {
  public:
    WritersKeptAway() noexcept {
        try {
            connection.emplace(0, 0, TavIpmi::ipmiSystemInterface);
        } catch (const tavIpmi::TavIpmiError&) {
            return; // the questions will tell of it
        }
        constexpr int maxTries = std::chrono::seconds(1) / betweenTries;
        for (int tries = 1; !connection->tryLock() && errno == EWOULDBLOCK && tries < maxTries;
             ++tries) {
            agentClock().pause(betweenTries);
        }
    }

  private:
    static constexpr std::chrono::milliseconds betweenTries = pniLockTurn / 2;
    std::optional<TavIpmi> connection;
};

} // namespace

/// None when no adapter keeps such a record, or the asking ended early.
std::optional<PortRecord> askPortRecord(BmcQuestions& bmc) {
    const TavGetMezzReqData request{};
    TavGetMezzRspData adapter;
    if (!bmc.ask(
            {tavIpmi::ipmi_netfn_req_oem_2, tavIpmi::ipmi_oemcmd_get_mezz, recordBytes(request)},
            adapter, offsetof(TavGetMezzRspData, accessType)) ||
        adapter.fruDeviceId == 0) {
        return std::nullopt;
    }
    PortRecord record = readPortRecord(bmc, adapter);
    if (!record.fault.empty() && bmc.reach() == Reach::answering) {
        const WritersKeptAway alone;
        record = readPortRecord(bmc, adapter);
    }
    return bmc.reach() == Reach::answering ? std::optional(std::move(record)) : std::nullopt;
}

} // namespace tavStatus
