#include "replayDevice.h"

#include "madeUpDevice.h"
#include "requestAddress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>
#include <utility>

namespace sim {

namespace {

using std::chrono::milliseconds;

/// What both sides have of a request, whatever else is known of it.
auto requestOf(const Exchange& exchange) {
    return std::tie(exchange.addressType, exchange.slaveAddress, exchange.lun, exchange.netfn,
                    exchange.cmd, exchange.request);
}

bool failsAt(DeviceCall call, const Exchange& exchange) {
    return exchange.failedCall == call;
}

/// An event or command, of which only the kind is recorded.
Bytes otherRecord() {
    constexpr std::size_t eventLength = 16;
    return Bytes(eventLength);
}

int deliver(const Bytes& data, ipmi_recv& record) {
    if (record.msg.data_len < data.size()) {
        return -EMSGSIZE;
    }
    record.msg.data_len = static_cast<unsigned short>(data.size());
    std::ranges::copy(data, record.msg.data);
    return 0;
}

} // namespace

ReplayDevice::ReplayDevice(ReplayClock& clock_, NextStep next_, Mismatch mismatch_) :
    clock(clock_), next(std::move(next_)), mismatch(std::move(mismatch_)) {}

/// Inside, results below zero are negated errno values.
template <typename Work>
int ReplayDevice::perform(Work work) noexcept {
    const std::lock_guard held(mutex);
    if (!begun) {
        begun = true;
        goOn();
    }
    const int result = work();
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

template <typename Work>
int ReplayDevice::performOn(int fd, Work work) noexcept {
    return perform([&] {
        const auto found = descriptors.find(fd);
        return found == descriptors.end() ? -EBADF : work(found->second);
    });
}

int ReplayDevice::open(const char* path) noexcept {
    return perform([&] { return std::strcmp(path, node) == 0 ? openNode() : -ENOENT; });
}

int ReplayDevice::send(int fd, ipmi_req& request) noexcept {
    return performOn(fd, [&](Descriptor& sender) { return sendRequest(sender, request); });
}

int ReplayDevice::wait(int fd, fd_set& readable, timeval& budget) noexcept {
    return performOn(fd,
                     [&](Descriptor& waiter) { return waitForRecord(waiter, readable, budget); });
}

int ReplayDevice::receive(int fd, ipmi_recv& record) noexcept {
    return performOn(fd, [&](Descriptor& receiver) { return receiveRecord(receiver, record); });
}

int ReplayDevice::lock(int fd) noexcept {
    return performOn(fd, [](Descriptor& /*locking*/) { return 0; });
}

int ReplayDevice::close(int fd) noexcept {
    return performOn(fd, [&](Descriptor& closing) { return closeDescriptor(fd, closing); });
}

int ReplayDevice::openNode() {
    tellToEnd();
    if (step && step->exchange && failsAt(DeviceCall::open, *step->exchange)) {
        clock.advanceToRecorded(step->exchange->sentAt);
        const int error = step->exchange->error;
        ++played;
        goOn();
        tellToEnd();
        return -error;
    }
    int fd = lowestDescriptor;
    while (descriptors.contains(fd)) {
        ++fd;
    }
    descriptors.try_emplace(fd);
    return fd;
}

int ReplayDevice::sendRequest(Descriptor& sender, const ipmi_req& request) {
    Exchange asked;
    takeAddress(request, asked);
    asked.netfn = request.msg.netfn;
    asked.cmd = request.msg.cmd;
    asked.request.assign(request.msg.data, request.msg.data + request.msg.data_len);
    tellToEnd();
    compare(asked);
    sender = {std::move(*step->exchange), request.msgid, 0, false};
    clock.advanceToRecorded(sender.exchange.sentAt);
    ++played;
    const bool fails = failsAt(DeviceCall::send, sender.exchange);
    sender.finished = fails;
    goOn();
    return fails ? -sender.exchange.error : 0;
}

void ReplayDevice::compare(const Exchange& asked) const {
    const bool same = step && step->exchange && !failsAt(DeviceCall::open, *step->exchange) &&
                      requestOf(*step->exchange) == requestOf(asked);
    if (!same) {
        mismatch(upcoming(), asked);
    }
}

int ReplayDevice::waitForRecord(Descriptor& waiter, fd_set& readable, timeval& budget) {
    const Exchange& exchange = waiter.exchange;
    const auto left = std::chrono::floor<milliseconds>(spanOf(budget));
    const bool othersLeft = waiter.othersGiven < exchange.otherRecords.size();
    if (!othersLeft && !waiter.finished && failsAt(DeviceCall::wait, exchange)) {
        return -exchange.error;
    }
    const bool answered = exchange.response || failsAt(DeviceCall::receive, exchange);
    if (othersLeft || (!waiter.finished && answered)) {
        const milliseconds took = std::min(exchange.endedAt - exchange.sentAt, left);
        clock.advanceToRecorded(exchange.sentAt + took);
        budget = toTimeval(left - took);
        return 1;
    }
    clock.pass(left);
    budget = {};
    FD_ZERO(&readable);
    return 0;
}

int ReplayDevice::receiveRecord(Descriptor& receiver, ipmi_recv& record) {
    const Exchange& exchange = receiver.exchange;
    giveAddress(exchange, record);
    record.msgid = receiver.msgid;
    record.msg.netfn = static_cast<unsigned char>(exchange.netfn | 1U);
    record.msg.cmd = exchange.cmd;
    if (receiver.othersGiven < exchange.otherRecords.size()) {
        record.recv_type = exchange.otherRecords[receiver.othersGiven++];
        return deliver(otherRecord(), record);
    }
    if (receiver.finished) {
        return -EAGAIN;
    }
    receiver.finished = true;
    if (failsAt(DeviceCall::receive, exchange)) {
        return -exchange.error;
    }
    record.recv_type = IPMI_RESPONSE_RECV_TYPE;
    record.msgid ^= exchange.foreignId ? 1 : 0;
    return deliver(exchange.response.value_or(Bytes()), record);
}

int ReplayDevice::closeDescriptor(int fd, Descriptor& closing) {
    const int result = failsAt(DeviceCall::close, closing.exchange) ? -closing.exchange.error : 0;
    descriptors.erase(fd);
    tellToEnd();
    return result;
}

/// Where the record has it, between two exchanges: behind the one before, if its connection ends
/// with it or did not come about, so that what the agent does in between is done by one that is
/// told to end.
void ReplayDevice::tellToEnd() {
    while (step && !step->exchange) {
        clock.advanceToRecorded(step->toldAt);
        clock.end();
        goOn();
    }
}

/// What a failed open was for is not recorded. A heartbeat begins with a look at the timer; a pass
/// never does.
void ReplayDevice::goOn() {
    step = next();
    std::optional<ReplayClock::Upcoming> upcoming;
    if (step && step->exchange && !failsAt(DeviceCall::open, *step->exchange)) {
        const Exchange& exchange = *step->exchange;
        upcoming = {exchange.sentAt,
                    exchange.netfn == netfn::app && exchange.cmd == command::getWatchdogTimer};
    }
    clock.expect(upcoming);
}

} // namespace sim
