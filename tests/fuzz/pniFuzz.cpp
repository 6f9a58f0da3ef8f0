// The port information record in an arbitrary FRU: discovery, and then every kind of update. What
// was updated with success must be a sound record again, laid out as the agent believes.

#include "PniAccess.h"
#include "agentSignals.h"
#include "fruDevice.h"
#include "ipmiDevice.h"
#include "portInformation.h"
#include "stillClock.h"
#include "sysLog.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr std::size_t maxFru = 0xFFFF;

/// Answers each request at once, from the FRU.
class FruOnly final : public IpmiDevice {
  public:
    sim::FruDevice fru;

    int open(const char* /*path*/) noexcept override { return 3; }
    int close(int /*fd*/) noexcept override { return 0; }
    int lock(int /*fd*/) noexcept override { return 0; }
    int wait(int /*fd*/, fd_set& /*readable*/, timeval& /*budget*/) noexcept override { return 1; }
    int send(int /*fd*/, ipmi_req& request) noexcept override {
        id = request.msgid;
        reply = serve(request.msg.cmd, {request.msg.data, request.msg.data_len});
        return 0;
    }
    int receive(int /*fd*/, ipmi_recv& record) noexcept override {
        record.recv_type = IPMI_RESPONSE_RECV_TYPE;
        record.msgid = id;
        record.msg.data[0] = reply.code;
        std::ranges::copy(reply.data, record.msg.data + 1);
        record.msg.data_len = static_cast<unsigned short>(1 + reply.data.size());
        return 0;
    }

  private:
    sim::Reply serve(unsigned char cmd, sim::Data request) {
        switch (cmd) {
        case tavIpmi::ipmi_cmd_read_fru_data:
            return fru.read(request);
        case tavIpmi::ipmi_cmd_write_fru_data:
            return fru.write(request);
        default:
            return fru.adapter(request);
        }
    }

    long id = 0;
    sim::Reply reply{};
};

FruOnly& device() {
    static FruOnly only;
    return only;
}

std::list<IPv6Address> addresses(unsigned count) {
    constexpr unsigned char bytes[16] = {0x20, 0x01, 0x0D, 0xB8};
    return std::list<IPv6Address>(count, IPv6Address(bytes));
}

bool sameFunctions(const PniAccess& left, const PniAccess& right) {
    const unsigned count = left.getNumberOfMacAddresses();
    if (count != right.getNumberOfMacAddresses() ||
        left.layout().fruDataSize != right.layout().fruDataSize) {
        return false;
    }
    for (unsigned n = 0; n < count; ++n) {
        if (!(left.getMacAddress(static_cast<int>(n)) ==
              right.getMacAddress(static_cast<int>(n)))) {
            return false;
        }
    }
    return true;
}

void requireSound(const PniAccess& access) {
    try {
        if (sameFunctions(PniAccess(), access)) {
            return;
        }
    } catch (const std::exception&) { // the record was sound before
    }
    std::abort();
}

void updateEverything(PniAccess& access, unsigned choice) {
    IPv4Address address;
    address = "192.0.2.1";
    if (access.clearIpAddressData()) {
        requireSound(access);
    }
    const MacAddress mac = access.getMacAddress(static_cast<int>(choice & 3U));
    if (access.setIpv4Address(mac, address)) {
        requireSound(access);
    }
    if (access.setIpv6Address(mac, addresses(choice >> 2U & 0x1FU))) {
        requireSound(access);
    }
}

} // namespace

IpmiDevice& ipmiDevice() noexcept {
    return device();
}
void sysLog(int /*priority*/, const char* /*format*/, ...) noexcept {}
bool agentSignals::endRequested() noexcept {
    return false;
}
AgentClock& agentClock() noexcept {
    static sim::StillClock clock;
    return clock;
}

/// The first byte chooses what is updated, the second how much room there is behind the image, both
/// whether the checksums are made right first.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    constexpr std::size_t head = 2;
    constexpr std::size_t roomUnit = 8;
    if (size <= head) {
        return 0;
    }
    sim::Bytes& image = device().fru.image;
    image.assign(bytes + head, bytes + size);
    image.resize(std::min(maxFru, image.size() + bytes[1] * roomUnit));
    if (bytes[0] != bytes[1]) {
        sim::fixChecksums(image);
    }
    try {
        PniAccess access;
        if (access.usable()) {
            updateEverything(access, bytes[0]);
        }
    } catch (const PniAccessError&) { // most images are no sound record
    } catch (const std::runtime_error&) {
    }
    return 0;
}
