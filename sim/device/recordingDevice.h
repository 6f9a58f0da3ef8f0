#pragma once

#include "exchange.h"
#include "ipmiDevice.h"

#include <map>
#include <mutex>

namespace sim {

/// A device that passes every call on to another one and tells of each exchange once its outcome is
/// known: the answer was received, a call failed, or nobody waited any longer. Makes no call of its
/// own to the device, gives every result and errno on as they are, and goes on silently when memory
/// runs out. A process that is forked off tells of its own exchanges, and goes on counting.
///
/// For an agent whose signal handlers run in none of these calls.
class RecordingDevice final : public IpmiDevice {
  public:
    /// `begins_` is called before each exchange, `observer_` behind it, both inside of calls: they
    /// must not use the device.
    RecordingDevice(IpmiDevice& device_, Now now_, std::function<void()> begins_,
                    Observer observer_);

    int open(const char* path) noexcept override;
    int send(int fd, ipmi_req& request) noexcept override;
    int wait(int fd, fd_set& readable, timeval& budget) noexcept override;
    int receive(int fd, ipmi_recv& record) noexcept override;
    int lock(int fd) noexcept override;
    int close(int fd) noexcept override;

  private:
    /// The exchange under way on a descriptor.
    struct Pending {
        Exchange exchange;
        long msgid = 0;
        bool overdue = false; // a wait for it has timed out
    };

    template <typename Work>
    void note(Work work) noexcept;
    void noteOpen(const char* path, int error);
    void begin(int fd, const ipmi_req& request);
    void take(int fd, const ipmi_recv& record);
    void fail(int fd, DeviceCall call, int error);
    void timeOut(int fd);
    void finishOverdue();
    void finish(int fd);
    void tell(Exchange& exchange);

    IpmiDevice& device;
    const Now now;
    const std::function<void()> begins;
    const Observer observer;
    std::mutex mutex;
    std::map<int, Pending> pending; // by descriptor
    unsigned exchanges = 0;
    int openError = 0; // of the nodes tried so far, none of which opened
};

} // namespace sim
