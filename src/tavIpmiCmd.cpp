#include "tavIpmiCmd.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace tavIpmi {
TavIpmi_request_msg::TavIpmi_request_msg(unsigned char netfn_, unsigned char cmd_,
                                         unsigned short len, const unsigned char* data) :
    TavIpmi_request_msg(netfn_, cmd_, ByteView(data, len)) {}

TavIpmi_request_msg::TavIpmi_request_msg(unsigned char netfn_, unsigned char cmd_, ByteView data) :
    netfn(netfn_), cmd(cmd_), snd_data(buffer), buffer{} {
    if (data.size() <= maxSendData) {
        std::copy(data.begin(), data.end(), buffer);
        snd_data_len = data.size();
    }
}

TavIpmi_request_msg::TavIpmi_request_msg(const TavIpmi_request_msg& other) :
    TavIpmi_request_msg(other.netfn, other.cmd) {
    *this = other;
}

TavIpmi_request_msg& TavIpmi_request_msg::operator=(const TavIpmi_request_msg& other) {
    if (this != &other) {
        netfn = other.netfn;
        cmd = other.cmd;
        snd_data_len = other.snd_data_len;
        std::copy(std::begin(other.buffer), std::end(other.buffer), buffer);
        storeResponse(other.response());
    }
    return *this;
}

TavIpmi_request_msg::~TavIpmi_request_msg() {
    dropResponse();
}

void TavIpmi_request_msg::replaceSendData(const unsigned char* data, unsigned short len) {
    replaceSendData(ByteView(data, len));
}

void TavIpmi_request_msg::replaceSendData(ByteView data) {
    if (data.empty() || data.size() > maxSendData) {
        throw std::length_error("TavIpmi_request_msg::replaceSendData");
    }
    std::copy(data.begin(), data.end(), buffer);
    snd_data_len = data.size();
    dropResponse();
}

void TavIpmi_request_msg::dropResponse() noexcept {
    std::free(rcv_data);
    rcv_data = nullptr;
    rcv_data_len = 0;
}

bool TavIpmi_request_msg::storeResponse(ByteView bytes) noexcept {
    dropResponse();
    if (bytes.empty()) {
        return false;
    }
    rcv_data = std::malloc(bytes.size());
    if (rcv_data == nullptr) {
        return false;
    }
    std::memcpy(rcv_data, bytes.data(), bytes.size());
    rcv_data_len = bytes.size();
    return true;
}

ByteView TavIpmi_request_msg::response() const noexcept {
    return {static_cast<const unsigned char*>(rcv_data), rcv_data_len};
}

} // namespace tavIpmi
