#pragma once

#include "tavIpmiCmd.h"

#include <atomic>
#include <chrono>

#include <linux/ipmi.h>
#include <sys/time.h>

namespace tavIpmi {

/// One connection to the IPMI device: an open descriptor and the address that all its requests go
/// to. Made for one operation and gone after it; not shared between threads.
class TavIpmi {
  public:
    /// The kernel's address types.
    enum IpmiAddressType {
        ipmiSystemInterface = IPMI_SYSTEM_INTERFACE_ADDR_TYPE,
        ipmiIpmb = IPMI_IPMB_ADDR_TYPE,
        ipmiIpmbBroadcast = IPMI_IPMB_BROADCAST_ADDR_TYPE,
        ipmiLanAddress = IPMI_LAN_ADDR_TYPE
    };

    /// Opens the device and fixes the target: a LUN of the local BMC, or an IPMB slave address
    /// (channel 0). Throws TavIpmiError when no device node opens or for other address types.
    TavIpmi(unsigned char lun_, unsigned char slave_addr_, IpmiAddressType addrType);
    TavIpmi(const TavIpmi&) = delete;
    TavIpmi& operator=(const TavIpmi&) = delete;
    virtual ~TavIpmi();

    /// The next message id, 0 or greater; pseudo-random, one sequence for the process.
    static int getMsgId() noexcept;

    /// One exchange. True when a response record came (completion code not judged; no bytes are
    /// stored when it was empty or answered another id), false when none came: the BMC has 5
    /// seconds in all. Throws TavIpmiError when a system call fails.
    bool sendCmd(TavIpmi_request_msg& msg) const;
    /// Whether the driver took the request of the last exchange, however that ended.
    bool requestTaken() const noexcept { return taken; }
    /// Has the device to itself, as far as other programs ask for that, until it is closed. False
    /// with errno set when that fails, with EWOULDBLOCK when another one has it.
    bool tryLock() const noexcept;

  private:
    void openDevice();
    void setTarget(unsigned char lun, unsigned char slaveAddress, IpmiAddressType addrType);
    void sendRequest(const TavIpmi_request_msg& msg, int id) const;
    bool awaitResponse(TavIpmi_request_msg& msg, int id) const;
    bool waitReadable(fd_set& readable, timeval& budget) const;
    bool receiveRecord(TavIpmi_request_msg& msg, int id) const;

    int fd{-1};
    // The kernel writes the responder's address into the one in use.
    mutable ipmi_system_interface_addr sysi_addr{};
    mutable ipmi_ipmb_addr ipmb_addr{};
    [[maybe_unused]] ipmi_lan_addr lan_addr{}; ///< never filled: LAN addressing is refused
    unsigned char* ipmiAddr{nullptr};
    unsigned int ipmiAddrLen{0};
    mutable bool taken{false};
    static std::atomic<unsigned int> msgId_seed;
};

/// While one lives, exchanges rewrite a record that would be left torn if they stopped: an end that
/// is requested meanwhile leaves them five seconds an answer, and nine in all. One at a time.
class RecordUpdate {
  public:
    RecordUpdate() noexcept;
    ~RecordUpdate();
    RecordUpdate(const RecordUpdate&) = delete;
    RecordUpdate& operator=(const RecordUpdate&) = delete;
};

/// While one lives, exchanges are the last that an ending agent makes: each waits one and a half
/// seconds at most, and together they wait no longer than a span of time. One at a time.
class Farewell {
  public:
    explicit Farewell(std::chrono::milliseconds span) noexcept;
    ~Farewell();
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;

    /// From now on so much of the span is kept for what comes later.
    void keep(std::chrono::milliseconds span) noexcept;
    /// True when a request could be sent, but its answer not be waited for.
    static bool over() noexcept;
};

/// Sends `msg` and tells whether it was answered with completion code 0 and at least `needed`
/// bytes, completion code included. Throws as sendCmd does.
bool exchange(const TavIpmi& ipmi, TavIpmi_request_msg& msg, std::size_t needed = 1);

/// The same, with the response as a record; true only if the record is whole.
template <typename Record>
bool exchange(const TavIpmi& ipmi, TavIpmi_request_msg& msg, Record& record,
              std::size_t needed = sizeof(Record)) {
    const bool answered = exchange(ipmi, msg, needed);
    return readRecord(msg.response(), record, needed) && answered;
}

} // namespace tavIpmi
