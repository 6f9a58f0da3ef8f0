#include "tavIpmi.h"

#include "agentClock.h"
#include "agentSignals.h"
#include "ipmiDevice.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace tavIpmi {
namespace {

using std::chrono::milliseconds;

constexpr int maxPolls = 5;
constexpr std::size_t receiveBufferSize = 272;
constexpr short systemInterfaceChannel = IPMI_BMC_CHANNEL;

/// `recv_type` of the records that the driver delivers.
enum RecordType {
    record_response = IPMI_RESPONSE_RECV_TYPE,
    record_event = IPMI_ASYNC_EVENT_RECV_TYPE,
    record_command = IPMI_CMD_RECV_TYPE
};

constexpr milliseconds full{5000};
constexpr milliseconds longestAnswer{1500};
constexpr milliseconds leftovers{500};
constexpr milliseconds longestUpdate{9000};
constexpr milliseconds whole{9700};
constexpr milliseconds never{milliseconds::max()};

/// How long exchanges may wait for the BMC. Each has five seconds, until the agent is asked to end.
/// From then on what is left of an operation shares half a second, for nobody needs its outcome any
/// more; an update of a record is brought to its end; and the last words have their own time. All
/// of it ends before ten seconds are over, so that a dead BMC cannot hold up the host's shutdown.
class Patience {
  public:
    /// For an exchange that begins now.
    milliseconds budget() noexcept {
        const bool ending = noteEnd(milliseconds{0});
        if (farewellEnd.load() != never) {
            return left(farewellEnd.load() - kept.load(), longestAnswer);
        }
        if (!ending) {
            return full;
        }
        if (updating) {
            return left(endSince.load() + longestUpdate, full);
        }
        if (leftoversEnd.load() == never) {
            leftoversEnd = agentClock().monotonic() + leftovers;
        }
        return left(leftoversEnd, leftovers);
    }

    /// Behind an exchange: the end may have been requested at any moment of a long wait.
    void waited(milliseconds span) noexcept {
        constexpr milliseconds unnoticed{100};
        if (span > unnoticed) {
            noteEnd(span);
        }
    }

    void setUpdating(bool now) noexcept { updating = now; }
    void beginFarewell(milliseconds span) noexcept {
        const milliseconds soonest = agentClock().monotonic() + span;
        farewellEnd =
            noteEnd(milliseconds{0}) ? std::min(soonest, endSince.load() + whole) : soonest;
    }
    void finishFarewell() noexcept { farewellEnd = never; }
    void keep(milliseconds span) noexcept { kept = span; }

  private:
    static milliseconds left(milliseconds end, milliseconds most) noexcept {
        return std::clamp(end - agentClock().monotonic(), milliseconds{0}, most);
    }

    /// True once the end is requested; the first time that this is seen it counts as `ago`.
    bool noteEnd(milliseconds ago) noexcept {
        if (endSince.load() == never && agentSignals::endRequested()) {
            endSince = agentClock().monotonic() - ago;
        }
        return endSince.load() != never;
    }

    std::atomic<milliseconds> endSince{never};
    std::atomic<milliseconds> leftoversEnd{never};
    std::atomic<milliseconds> farewellEnd{never};
    std::atomic<milliseconds> kept{milliseconds{0}};
    std::atomic<bool> updating{false};
};

Patience patience;

timeval toTimeval(milliseconds span) noexcept {
    return {static_cast<time_t>(span.count() / 1000),
            static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

milliseconds toMilliseconds(const timeval& span) noexcept {
    return std::chrono::seconds(span.tv_sec) + milliseconds(span.tv_usec / 1000);
}

/// An exchange's wait: it counts however it ends.
struct Waiting {
    Waiting() noexcept = default;
    ~Waiting() { patience.waited(granted - toMilliseconds(budget)); }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    const milliseconds granted = patience.budget();
    timeval budget = toTimeval(granted); ///< what is left of it
};

[[noreturn]] void throwSystemError(const char* what, unsigned line) {
    throw TavIpmiError(errnoText(what), __FILE__, line);
}

} // namespace

RecordUpdate::RecordUpdate() noexcept {
    patience.setUpdating(true);
}

RecordUpdate::~RecordUpdate() {
    patience.setUpdating(false);
}

Farewell::Farewell(milliseconds span) noexcept {
    patience.beginFarewell(span);
}

Farewell::~Farewell() {
    patience.finishFarewell();
    patience.keep(milliseconds{0});
}

void Farewell::keep(milliseconds span) noexcept {
    patience.keep(span);
}

bool Farewell::over() noexcept {
    return patience.budget() == milliseconds{0};
}

std::atomic<unsigned int> TavIpmi::msgId_seed = static_cast<unsigned int>(std::time(nullptr));

TavIpmi::TavIpmi(unsigned char lun_, unsigned char slave_addr_, IpmiAddressType addrType) {
    openDevice();
    try {
        setTarget(lun_, slave_addr_, addrType);
    } catch (...) {
        ipmiDevice().close(fd);
        throw;
    }
}

TavIpmi::~TavIpmi() {
    ipmiDevice().close(fd);
}

void TavIpmi::openDevice() {
    for (const char* path : {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"}) {
        fd = ipmiDevice().open(path);
        if (fd != -1) {
            break;
        }
    }
    if (fd >= FD_SETSIZE) { // select(2) could not watch it
        ipmiDevice().close(fd);
        fd = -1;
        errno = EMFILE;
    }
    if (fd == -1) {
        throwSystemError("Open failed: ", __LINE__);
    }
}

void TavIpmi::setTarget(unsigned char lun, unsigned char slaveAddress, IpmiAddressType addrType) {
    switch (addrType) {
    case ipmiSystemInterface:
        sysi_addr.addr_type = addrType;
        sysi_addr.channel = systemInterfaceChannel;
        sysi_addr.lun = lun;
        ipmiAddr = reinterpret_cast<unsigned char*>(&sysi_addr);
        ipmiAddrLen = sizeof sysi_addr;
        break;
    case ipmiIpmb:
    case ipmiIpmbBroadcast:
        ipmb_addr.addr_type = addrType;
        ipmb_addr.channel = 0;
        ipmb_addr.slave_addr = slaveAddress;
        ipmb_addr.lun = lun;
        ipmiAddr = reinterpret_cast<unsigned char*>(&ipmb_addr);
        ipmiAddrLen = sizeof ipmb_addr;
        break;
    case ipmiLanAddress:
    default:
        throw TavIpmiError("Address Type not supported", __FILE__, __LINE__);
    }
    static_assert(sizeof sysi_addr == 8 && sizeof ipmb_addr == 8);
}

int TavIpmi::getMsgId() noexcept {
    unsigned int seed = msgId_seed; // a step that threads make both only repeats an id
    const int id = rand_r(&seed);
    msgId_seed = seed;
    return id;
}

bool TavIpmi::tryLock() const noexcept {
    return ipmiDevice().lock(fd) == 0;
}

bool TavIpmi::sendCmd(TavIpmi_request_msg& msg) const {
    taken = false;
    if (fd == -1) {
        return false;
    }
    msg.dropResponse();
    const int id = getMsgId();
    sendRequest(msg, id);
    taken = true;
    return awaitResponse(msg, id);
}

void TavIpmi::sendRequest(const TavIpmi_request_msg& msg, int id) const {
    ipmi_req request{};
    request.addr = ipmiAddr;
    request.addr_len = ipmiAddrLen;
    request.msgid = id;
    request.msg.netfn = msg.netfn;
    request.msg.cmd = msg.cmd;
    request.msg.data = static_cast<unsigned char*>(msg.snd_data);
    request.msg.data_len = static_cast<unsigned short>(msg.snd_data_len);
    if (ipmiDevice().send(fd, request) == -1) {
        throwSystemError("ioctl IPMICTL_SEND_COMMAND failed: ", __LINE__);
    }
}

bool TavIpmi::awaitResponse(TavIpmi_request_msg& msg, int id) const {
    // Set and budget are prepared once: the time is one budget for the whole exchange, whatever
    // the number of waits.
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    Waiting waiting;
    bool answered = false;
    for (int poll = 0; poll < maxPolls && !answered; ++poll) {
        answered = waitReadable(readable, waiting.budget) && receiveRecord(msg, id);
    }
    return answered;
}

bool TavIpmi::waitReadable(fd_set& readable, timeval& budget) const {
    const int ready = ipmiDevice().wait(fd, readable, budget);
    if (ready < 0) {
        throwSystemError("select failed: ", __LINE__);
    }
    if (ready > 0 && !FD_ISSET(fd, &readable)) {
        throw TavIpmiError("select after ioctl IPMICTL_SEND_COMMAND failed for unknown reasons",
                           __FILE__, __LINE__);
    }
    return ready > 0;
}

/// Takes one record; true if it is a response. Events and commands are consumed and ignored.
bool TavIpmi::receiveRecord(TavIpmi_request_msg& msg, int id) const {
    std::array<unsigned char, receiveBufferSize> data;
    ipmi_recv record{};
    record.addr = ipmiAddr;
    record.addr_len = ipmiAddrLen;
    record.msg.data = data.data();
    record.msg.data_len = data.size();
    if (ipmiDevice().receive(fd, record) == -1) {
        throwSystemError("ioctl IPMICTL_RECEIVE_MSG failed: ", __LINE__);
    }
    if (record.recv_type == record_event || record.recv_type == record_command) {
        return false;
    }
    if (record.recv_type != record_response) {
        throw TavIpmiError("reply message has wrong type: ", __FILE__, __LINE__, record.recv_type);
    }
    // An answer to another id ends the exchange all the same, without data.
    if (record.msgid == id && record.msg.data_len != 0) {
        const std::size_t length = std::min<std::size_t>(record.msg.data_len, data.size());
        if (!msg.storeResponse({data.data(), length})) {
            throw TavIpmiError("memory request error", __FILE__, __LINE__);
        }
    }
    return true;
}

bool exchange(const TavIpmi& ipmi, TavIpmi_request_msg& msg, std::size_t needed) {
    if (!ipmi.sendCmd(msg)) {
        return false;
    }
    const ByteView response = msg.response();
    return !response.empty() && response.size() >= needed && response[0] == ipmi_cc_normally_cc;
}

} // namespace tavIpmi
