#pragma once

#include "bmc.h"
#include "deviceSection.h"
#include "exchange.h"
#include "ipmiDevice.h"
#include "misbehaviour.h"

#include <array>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace sim {

/// Lets that much time pass; false when a signal cut it short.
using PassTime = std::function<bool(std::chrono::microseconds)>;

/// The kernel's IPMI device with a simulated BMC behind it. Its descriptors are made up: they are
/// numbers that select(2) could take, unknown to the system. Only /dev/ipmi0 exists. Thread-safe,
/// and no signal handler ever runs in the middle of a call except while time passes in a wait.
class SimDevice final : public IpmiDevice {
  public:
    SimDevice(Bmc& bmc_, PassTime passTime_);

    int open(const char* path) noexcept override;
    int send(int fd, ipmi_req& request) noexcept override;
    int wait(int fd, fd_set& readable, timeval& budget) noexcept override;
    int receive(int fd, ipmi_recv& record) noexcept override;
    int lock(int fd) noexcept override;
    int close(int fd) noexcept override;

    /// `observer_` is called inside the device: it must not use it.
    void observe(Observer observer_);
    /// From now on all of this goes wrong, and nothing else.
    void misbehave(const Misbehaviour& misbehaviour_);
    /// Adds one fault.
    void misbehave(const Fault& fault);
    /// Nothing goes wrong any more.
    void behave() { misbehave(Misbehaviour{}); }
    /// Without its node every open fails with ENOENT.
    void setNodePresent(bool present);

    unsigned long callCount() const;
    unsigned long callCount(DeviceCall call) const;
    unsigned exchangeCount() const;
    std::size_t openCount() const;
    /// Calls `use(bmc)` while no exchange can touch the BMC.
    template <typename Use>
    auto withBmc(Use use) {
        const DeviceSection section(mutex);
        return use(bmc);
    }

  private:
    struct Record {
        int type;
        long msgid;
        unsigned char netfn;
        unsigned char cmd;
        Bytes data;
        std::chrono::milliseconds readyAt;
    };

    struct Descriptor {
        std::deque<Record> records;
        Exchange exchange;
        long msgid = 0;       // of its request
        bool pending = false; // the outcome of `exchange` is not known yet
        bool locked = false;
    };

    struct Readiness {
        int error = 0;                                    // errno
        std::optional<std::chrono::microseconds> readyIn; // none: nothing is on its way
    };

    // Inside, results below zero are negated errno values, as in the kernel; `scheduledError` is
    // the errno that Misbehaviour::errorAt() has in store for this call.
    template <typename Work>
    int perform(DeviceCall call, Work work) noexcept;
    template <typename Work>
    int performOn(int fd, DeviceCall call, Work work) noexcept;
    int enter(DeviceCall call) noexcept;
    int openNode(const char* path, int scheduledError);
    int sendRequest(Descriptor& sender, const ipmi_req& request, int scheduledError);
    Readiness look(int fd, const fd_set& readable, int scheduledError);
    int receiveRecord(Descriptor& receiver, ipmi_recv& destination, int scheduledError);
    int lockNode(Descriptor& locking, int scheduledError);
    int closeDescriptor(int fd, Descriptor& closing, int scheduledError);

    int lowestUnused() const;
    void begin(Descriptor& sender, const ipmi_req& request);
    void carryOut(Descriptor& sender);
    Bytes answerTo(const Exchange& exchange);
    void queueOtherRecords(Descriptor& sender);
    void deliver(Descriptor& receiver, ipmi_recv& destination);
    void finish(Descriptor& descriptor);
    int fail(Descriptor& descriptor, DeviceCall call, int error);
    void reportFailedOpen(int error);

    Bmc& bmc;
    const PassTime passTime;
    mutable std::mutex mutex;
    Observer observer;
    Misbehaviour misbehaviour;
    bool nodePresent = true;
    std::map<int, Descriptor> descriptors;
    unsigned exchanges = 0;
    /// When the BMC will have answered all so far: the driver gives it one request at a time.
    std::chrono::milliseconds idleAt{0};
    std::array<unsigned long, std::size(deviceCallNames)> calls{};
};

} // namespace sim
