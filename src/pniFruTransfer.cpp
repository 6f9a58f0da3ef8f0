// Bytes of the FRU, in chunks.

#include "PniAccess.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <numeric>

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace {

constexpr int maxChunk = sizeof(TavFruReadRspData::rdData);
constexpr int addressSpace = 0x10000;

bool withinReach(int offset, int count) {
    return count >= 0 && count <= addressSpace - offset;
}

/// Calls `transfer` with place, position and length of each chunk, up to the first that fails.
template <typename Transfer>
PniErrorCodes inChunks(unsigned short offset, int count, Transfer transfer) {
    if (!withinReach(offset, count)) {
        return pni_parameter_err;
    }
    for (int done = 0; done < count; done += maxChunk) {
        const int chunk = std::min(count - done, maxChunk);
        if (!transfer(static_cast<std::uint16_t>(offset + done), done, chunk)) {
            return pni_misc_err;
        }
    }
    return pni_success;
}

/// Whether a write with this completion code may have been carried out: BMC or driver lost the
/// outcome. The driver gives the last one when the BMC went silent half-way.
bool outcomeUnknown(unsigned char completionCode) {
    return completionCode == tavIpmi::ipmi_cc_timeout ||
           completionCode == tavIpmi::ipmi_cc_no_cmd_response ||
           completionCode == tavIpmi::ipmi_cc_unspecific_error;
}

/// Notes at the end of a write, however that comes, that the FRU may have changed: unless the
/// driver did not take the request, or the BMC refused it.
class WriteWatch {
  public:
    WriteWatch(const TavIpmi& ipmi_, const TavIpmi_request_msg& msg_, bool& written_) noexcept :
        ipmi(ipmi_), msg(msg_), written(written_) {}
    ~WriteWatch() {
        const ByteView answer = msg.response();
        const bool refused = !answer.empty() && answer[0] != tavIpmi::ipmi_cc_normally_cc &&
                             !outcomeUnknown(answer[0]);
        written = written || (ipmi.requestTaken() && !refused);
    }
    WriteWatch(const WriteWatch&) = delete;
    WriteWatch& operator=(const WriteWatch&) = delete;

  private:
    const TavIpmi& ipmi;
    const TavIpmi_request_msg& msg;
    bool& written;
};

} // namespace

void PniAccess::noteFailure(const char* transfer, unsigned offset,
                            ByteView response) const noexcept {
    if (response.empty()) {
        static_cast<void>(std::snprintf(failure.data(), failure.size(),
                                        "%s at FRU offset %u: no answer", transfer, offset));
    } else {
        static_cast<void>(std::snprintf(failure.data(), failure.size(),
                                        "%s at FRU offset %u: answer %02x of %zu bytes", transfer,
                                        offset, unsigned{response[0]}, response.size()));
    }
}

PniErrorCodes PniAccess::readFru(const TavIpmi& ipmi, unsigned short offset, int count,
                                 unsigned char* buf) const {
    std::fill_n(buf, std::max(count, 0), std::uint8_t{0});
    return inChunks(offset, count, [&](std::uint16_t place, int position, int chunk) {
        const TavFruReadReqData request{pniInfoCache.deviceId, place,
                                        static_cast<unsigned char>(chunk)};
        TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_storage, tavIpmi::ipmi_cmd_read_fru_data,
                                recordBytes(request));
        TavFruReadRspData response;
        constexpr std::size_t head = offsetof(TavFruReadRspData, rdData);
        // What was asked for counts, not what the answer says of itself.
        if (!exchange(ipmi, msg, response, head + static_cast<std::size_t>(chunk))) {
            noteFailure("read", place, msg.response());
            return false;
        }
        std::copy_n(response.rdData, chunk, buf + position);
        return true;
    });
}

PniErrorCodes PniAccess::writeFru(const TavIpmi& ipmi, unsigned short offset, int count,
                                  const unsigned char* buf) {
    return inChunks(offset, count, [&](std::uint16_t place, int position, int chunk) {
        TavFruWriteReqData request{pniInfoCache.deviceId, place, {}};
        std::copy_n(buf + position, chunk, request.wrData);
        constexpr std::size_t head = offsetof(TavFruWriteReqData, wrData);
        TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_storage, tavIpmi::ipmi_cmd_write_fru_data,
                                recordBytes(request, head + static_cast<std::size_t>(chunk)));
        const WriteWatch watch(ipmi, msg, written);
        if (!exchange(ipmi, msg)) {
            noteFailure("write", place, msg.response());
            return false;
        }
        return true;
    });
}

PniErrorCodes PniAccess::moveFru(const TavIpmi& ipmi, unsigned short to, unsigned short from,
                                 unsigned short count) {
    if (count == 0) {
        return pni_success;
    }
    const std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[count]);
    if (!bytes) {
        return pni_memory_err;
    }
    const PniErrorCodes result = readFru(ipmi, from, count, bytes.get());
    return result == pni_success ? writeFru(ipmi, to, count, bytes.get()) : result;
}

bool PniAccess::validateZeroChecksum(const unsigned char* data, int len,
                                     unsigned char seed) noexcept {
    return ((seed + sum(data, static_cast<unsigned>(std::max(len, 0)))) & 0xFFU) == 0;
}

unsigned char PniAccess::sum(const unsigned char* data, unsigned int len) noexcept {
    return static_cast<unsigned char>(std::accumulate(data, data + len, 0U));
}
