#include "simDevice.h"

#include "madeUpDevice.h"
#include "requestAddress.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <numeric>

#include <unistd.h>

namespace sim {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::size_t eventLength = 16; // a System Event Log record

milliseconds latency(const Fault* slow) {
    return milliseconds(slow == nullptr ? 0 : slow->value);
}

/// errno value for a request that the driver would not take, otherwise 0.
int checkRequest(const ipmi_req& request, Exchange& exchange) {
    const int addressError = takeAddress(request, exchange);
    if (request.msg.data_len > IPMI_MAX_MSG_LENGTH) {
        return EMSGSIZE;
    }
    const bool isResponse = (request.msg.netfn & 1U) != 0;
    return isResponse ? EINVAL : addressError;
}

/// Completion code and response data from the controller that the request is addressed to.
Bytes serveBy(Bmc& bmc, const Exchange& asked) {
    return asked.addressType == IPMI_IPMB_ADDR_TYPE
               ? bmc.forward(asked.slaveAddress, asked.netfn, asked.cmd, asked.request)
               : bmc.answer(asked.netfn, asked.lun, asked.cmd, asked.request);
}

} // namespace

SimDevice::SimDevice(Bmc& bmc_, PassTime passTime_) : bmc(bmc_), passTime(std::move(passTime_)) {}

/// Counts the call; gives the errno it is to fail with, if any.
int SimDevice::enter(DeviceCall call) noexcept {
    int signal = 0;
    int error = 0;
    {
        const DeviceSection section(mutex);
        ++calls[static_cast<std::size_t>(call)];
        const unsigned long number = std::accumulate(calls.begin(), calls.end(), 0UL);
        signal = misbehaviour.signalAt(number);
        error = misbehaviour.errorAt(number);
    }
    if (signal != 0) { // outside the section, so that its handler may use the device
        ::kill(::getpid(), signal);
    }
    return error;
}

template <typename Work>
int SimDevice::perform(DeviceCall call, Work work) noexcept {
    const int scheduledError = enter(call);
    int result = 0;
    {
        const DeviceSection section(mutex);
        result = work(scheduledError);
    }
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

template <typename Work>
int SimDevice::performOn(int fd, DeviceCall call, Work work) noexcept {
    return perform(call, [&](int error) {
        const auto found = descriptors.find(fd);
        return found == descriptors.end() ? -EBADF : work(found->second, error);
    });
}

int SimDevice::open(const char* path) noexcept {
    return perform(DeviceCall::open, [&](int error) { return openNode(path, error); });
}

int SimDevice::send(int fd, ipmi_req& request) noexcept {
    return performOn(fd, DeviceCall::send, [&](Descriptor& sender, int error) {
        return sendRequest(sender, request, error);
    });
}

int SimDevice::receive(int fd, ipmi_recv& record) noexcept {
    return performOn(fd, DeviceCall::receive, [&](Descriptor& receiver, int error) {
        return receiveRecord(receiver, record, error);
    });
}

int SimDevice::lock(int fd) noexcept {
    return performOn(fd, DeviceCall::lock,
                     [&](Descriptor& locking, int error) { return lockNode(locking, error); });
}

int SimDevice::close(int fd) noexcept {
    return performOn(fd, DeviceCall::close, [&](Descriptor& closing, int error) {
        return closeDescriptor(fd, closing, error);
    });
}

int SimDevice::wait(int fd, fd_set& readable, timeval& budget) noexcept {
    const int scheduledError = enter(DeviceCall::wait);
    while (true) {
        const auto [error, readyIn] = look(fd, readable, scheduledError);
        if (error != 0) {
            errno = error;
            return -1;
        }
        if (readyIn && *readyIn <= microseconds::zero()) {
            return 1;
        }
        const microseconds left = spanOf(budget);
        if (left <= microseconds::zero()) {
            FD_ZERO(&readable);
            return 0;
        }
        const microseconds span = std::min(left, readyIn.value_or(left));
        if (!passTime(span)) {
            errno = EINTR;
            return -1;
        }
        budget = toTimeval(left - span);
    }
}

int SimDevice::openNode(const char* path, int scheduledError) {
    if (std::strcmp(path, node) != 0) {
        return -(scheduledError != 0 ? scheduledError : ENOENT);
    }
    int error = misbehaviour.errorOf(DeviceCall::open, exchanges + 1, scheduledError);
    if (error == 0 && !nodePresent) {
        error = ENOENT;
    }
    const int fd = lowestUnused();
    if (error == 0 && fd >= FD_SETSIZE) {
        error = EMFILE;
    }
    if (error != 0) {
        reportFailedOpen(error);
        return -error;
    }
    descriptors.try_emplace(fd);
    return fd;
}

int SimDevice::sendRequest(Descriptor& sender, const ipmi_req& request, int scheduledError) {
    begin(sender, request);
    const int refusal = checkRequest(request, sender.exchange);
    const int fault = misbehaviour.errorOf(DeviceCall::send, exchanges, scheduledError);
    if (const int error = fault != 0 ? fault : refusal) {
        return fail(sender, DeviceCall::send, error);
    }
    carryOut(sender);
    return 0;
}

SimDevice::Readiness SimDevice::look(int fd, const fd_set& readable, int scheduledError) {
    const DeviceSection section(mutex);
    const auto found = descriptors.find(fd);
    if (found == descriptors.end()) {
        return {EBADF, {}};
    }
    Descriptor& waiter = found->second;
    if (const int error =
            misbehaviour.errorOf(DeviceCall::wait, waiter.exchange.number, scheduledError)) {
        fail(waiter, DeviceCall::wait, error);
        return {error, {}};
    }
    if (!FD_ISSET(fd, &readable) || waiter.records.empty()) {
        return {};
    }
    return {0, waiter.records.front().readyAt - bmc.now()};
}

int SimDevice::receiveRecord(Descriptor& receiver, ipmi_recv& destination, int scheduledError) {
    int error = misbehaviour.errorOf(DeviceCall::receive, receiver.exchange.number, scheduledError);
    const auto& records = receiver.records;
    if (error == 0 && (records.empty() || records.front().readyAt > bmc.now())) {
        error = EAGAIN;
    }
    if (error == 0 && destination.addr_len < addressRoom) {
        error = EINVAL;
    }
    if (error == 0 && destination.msg.data_len < records.front().data.size()) {
        error = EMSGSIZE;
    }
    if (error != 0) {
        return fail(receiver, DeviceCall::receive, error);
    }
    deliver(receiver, destination);
    return 0;
}

/// As flock(2) has it: the node is one descriptor's at a time, which may lock it again.
int SimDevice::lockNode(Descriptor& locking, int scheduledError) {
    if (const int error = misbehaviour.errorOf(DeviceCall::lock, exchanges + 1, scheduledError)) {
        return -error;
    }
    const bool taken = std::ranges::any_of(descriptors, [&](const auto& other) {
        return other.second.locked && &other.second != &locking;
    });
    if (taken) {
        return -EWOULDBLOCK;
    }
    locking.locked = true;
    return 0;
}

/// A descriptor is gone after close(2), whatever it returns.
int SimDevice::closeDescriptor(int fd, Descriptor& closing, int scheduledError) {
    const int error =
        misbehaviour.errorOf(DeviceCall::close, closing.exchange.number, scheduledError);
    if (error != 0) {
        fail(closing, DeviceCall::close, error);
    }
    finish(closing);
    descriptors.erase(fd);
    return -error;
}

int SimDevice::lowestUnused() const {
    int fd = lowestDescriptor;
    while (descriptors.contains(fd)) {
        ++fd;
    }
    return fd;
}

void SimDevice::begin(Descriptor& sender, const ipmi_req& request) {
    finish(sender);
    Exchange& exchange = sender.exchange;
    exchange = {};
    exchange.number = ++exchanges;
    exchange.sentAt = bmc.now();
    exchange.netfn = request.msg.netfn;
    exchange.cmd = request.msg.cmd;
    exchange.request.assign(request.msg.data, request.msg.data + request.msg.data_len);
    sender.msgid = request.msgid;
    sender.pending = true;
}

/// Has the BMC serve the request of `sender` and queues what comes back.
void SimDevice::carryOut(Descriptor& sender) {
    const Exchange& exchange = sender.exchange;
    const unsigned number = exchange.number;
    queueOtherRecords(sender);
    if (misbehaviour.find(FaultKind::silent, number) != nullptr ||
        (exchange.slaveAddress != 0 &&
         misbehaviour.find(FaultKind::silentBus, number) != nullptr)) {
        return;
    }
    const milliseconds readyAt =
        std::max(bmc.now(), idleAt) + latency(misbehaviour.find(FaultKind::slow, number));
    if (exchange.slaveAddress == 0) {
        idleAt = readyAt;
    }
    const bool foreignId = misbehaviour.find(FaultKind::foreignId, number) != nullptr;
    sender.records.push_back({.type = IPMI_RESPONSE_RECV_TYPE,
                              .msgid = foreignId ? sender.msgid ^ 1 : sender.msgid,
                              .netfn = static_cast<unsigned char>(exchange.netfn | 1U),
                              .cmd = exchange.cmd,
                              .data = answerTo(exchange),
                              .readyAt = readyAt});
}

Bytes SimDevice::answerTo(const Exchange& exchange) {
    if (const Fault* const refusal =
            misbehaviour.find(FaultKind::completionCode, exchange.number)) {
        return {static_cast<unsigned char>(refusal->value)};
    }
    Bytes answer = serveBy(bmc, exchange);
    if (const Fault* const length = misbehaviour.find(FaultKind::length, exchange.number)) {
        answer.resize(static_cast<std::size_t>(length->value));
    }
    if (const Fault* const other = misbehaviour.find(FaultKind::bytes, exchange.number)) {
        const auto place = static_cast<std::size_t>(other->value);
        answer.resize(std::max(answer.size(), place + other->bytes.size()));
        std::ranges::copy(other->bytes, answer.begin() + other->value);
    }
    return answer;
}

void SimDevice::queueOtherRecords(Descriptor& sender) {
    const auto queue = [&](int count, int type) {
        const Record record = {.type = type,
                               .msgid = 0,
                               .netfn = netfn::sensorEvent,
                               .cmd = command::platformEvent,
                               .data = Bytes(eventLength),
                               .readyAt = bmc.now()};
        sender.records.insert(sender.records.end(), static_cast<std::size_t>(count), record);
    };
    const unsigned number = sender.exchange.number;
    if (const Fault* const events = misbehaviour.find(FaultKind::events, number)) {
        queue(events->value, IPMI_ASYNC_EVENT_RECV_TYPE);
    }
    if (const Fault* const commands = misbehaviour.find(FaultKind::commands, number)) {
        queue(commands->value, IPMI_CMD_RECV_TYPE);
    }
    if (const Fault* const odd = misbehaviour.find(FaultKind::recordType, number)) {
        queue(1, odd->value);
    }
}

/// Hands over the first record; the caller has made sure that it fits.
void SimDevice::deliver(Descriptor& receiver, ipmi_recv& destination) {
    Record record = std::move(receiver.records.front());
    receiver.records.pop_front();
    giveAddress(receiver.exchange, destination);
    destination.recv_type = record.type;
    destination.msgid = record.msgid;
    destination.msg.netfn = record.netfn;
    destination.msg.cmd = record.cmd;
    destination.msg.data_len = static_cast<unsigned short>(record.data.size());
    std::ranges::copy(record.data, destination.msg.data);
    if (record.type != IPMI_RESPONSE_RECV_TYPE) {
        receiver.exchange.otherRecords.push_back(record.type);
        return;
    }
    receiver.exchange.response = std::move(record.data);
    // Also one that came too late for the exchange before.
    receiver.exchange.foreignId = record.msgid != receiver.msgid;
    finish(receiver);
}

void SimDevice::finish(Descriptor& descriptor) {
    if (descriptor.pending && observer) {
        descriptor.exchange.endedAt = bmc.now();
        observer(descriptor.exchange);
    }
    descriptor.pending = false;
}

/// The call's result for an exchange that ends here.
int SimDevice::fail(Descriptor& descriptor, DeviceCall call, int error) {
    descriptor.exchange.failedCall = call;
    descriptor.exchange.error = error;
    finish(descriptor);
    return -error;
}

/// Takes the place of the exchange that the descriptor was wanted for.
void SimDevice::reportFailedOpen(int error) {
    Descriptor unopened;
    unopened.exchange.number = ++exchanges;
    unopened.exchange.sentAt = bmc.now();
    unopened.pending = true;
    fail(unopened, DeviceCall::open, error);
}

void SimDevice::observe(Observer observer_) {
    const DeviceSection section(mutex);
    observer = std::move(observer_);
}

void SimDevice::misbehave(const Misbehaviour& misbehaviour_) {
    const DeviceSection section(mutex);
    misbehaviour = misbehaviour_;
}

void SimDevice::misbehave(const Fault& fault) {
    const DeviceSection section(mutex);
    misbehaviour.faults.push_back(fault);
}

void SimDevice::setNodePresent(bool present) {
    const DeviceSection section(mutex);
    nodePresent = present;
}

unsigned long SimDevice::callCount() const {
    const DeviceSection section(mutex);
    return std::accumulate(calls.begin(), calls.end(), 0UL);
}

unsigned long SimDevice::callCount(DeviceCall call) const {
    const DeviceSection section(mutex);
    return calls[static_cast<std::size_t>(call)];
}

unsigned SimDevice::exchangeCount() const {
    const DeviceSection section(mutex);
    return exchanges;
}

std::size_t SimDevice::openCount() const {
    const DeviceSection section(mutex);
    return descriptors.size();
}

} // namespace sim
