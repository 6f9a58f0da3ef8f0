#pragma once

#include "ipmiDevice.h"
#include "recordedStep.h"
#include "replayClock.h"

#include <map>
#include <mutex>
#include <vector>

namespace sim {

/// A device that answers from a record: each exchange in turn, with the recorded answers, errors
/// and silences, at the recorded times. A lock is always free. Its descriptors are made up, and
/// only /dev/ipmi0 exists. Thread-safe; no signal handler may run in a call.
class ReplayDevice final : public IpmiDevice {
  public:
    /// Called instead of going on: the agent asks `asked`, where `recorded` is what the record has,
    /// or nothing, when it has ended. It must not return.
    using Mismatch = std::function<void(const RecordedStep* recorded, const Exchange& asked)>;

    /// `next_` may end the process where the record cannot be read on.
    ReplayDevice(ReplayClock& clock_, NextStep next_, Mismatch mismatch_);

    int open(const char* path) noexcept override;
    int send(int fd, ipmi_req& request) noexcept override;
    int wait(int fd, fd_set& readable, timeval& budget) noexcept override;
    int receive(int fd, ipmi_recv& record) noexcept override;
    int lock(int fd) noexcept override;
    int close(int fd) noexcept override;

    /// The step that comes next; none when all of the record was played.
    const RecordedStep* upcoming() const noexcept { return step ? &*step : nullptr; }
    unsigned exchangeCount() const noexcept { return played; }

  private:
    struct Descriptor {
        Exchange exchange = {}; // what the record has for it now
        long msgid = 0;
        std::size_t othersGiven = 0;
        bool finished = true; // nothing more comes
    };

    template <typename Work>
    int perform(Work work) noexcept;
    template <typename Work>
    int performOn(int fd, Work work) noexcept;
    int openNode();
    int sendRequest(Descriptor& sender, const ipmi_req& request);
    int waitForRecord(Descriptor& waiter, fd_set& readable, timeval& budget);
    int receiveRecord(Descriptor& receiver, ipmi_recv& record);
    int closeDescriptor(int fd, Descriptor& closing);
    void compare(const Exchange& asked) const;
    void tellToEnd();
    void goOn();

    ReplayClock& clock;
    const NextStep next;
    const Mismatch mismatch;
    std::mutex mutex;
    bool begun = false;
    std::optional<RecordedStep> step; // the next one
    std::map<int, Descriptor> descriptors;
    unsigned played = 0;
};

} // namespace sim
