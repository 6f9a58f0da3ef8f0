#include "recordingDevice.h"

#include "requestAddress.h"

#include <cerrno>
#include <cstring>
#include <exception>

namespace sim {

namespace {

// The agent tries several nodes, and has no device when this one does not open either.
constexpr const char* lastNode = "/dev/ipmidev/0";

} // namespace

RecordingDevice::RecordingDevice(IpmiDevice& device_, Now now_, std::function<void()> begins_,
                                 Observer observer_) :
    device(device_),
    now(std::move(now_)), begins(std::move(begins_)), observer(std::move(observer_)) {}

/// Whatever happens in `work`, the agent sees nothing of it.
template <typename Work>
void RecordingDevice::note(Work work) noexcept {
    const int error = errno;
    try {
        const std::lock_guard held(mutex);
        work();
    } catch (const std::exception&) {
        // out of memory: this exchange is not told of
    }
    errno = error;
}

int RecordingDevice::open(const char* path) noexcept {
    const int fd = device.open(path);
    note([&] { noteOpen(path, fd == -1 ? errno : 0); });
    return fd;
}

int RecordingDevice::send(int fd, ipmi_req& request) noexcept {
    note([&] {
        finish(fd);
        begin(fd, request);
    });
    const int result = device.send(fd, request);
    if (result == -1) {
        note([&, error = errno] { fail(fd, DeviceCall::send, error); });
    }
    return result;
}

int RecordingDevice::wait(int fd, fd_set& readable, timeval& budget) noexcept {
    const int result = device.wait(fd, readable, budget);
    if (result == -1) {
        note([&, error = errno] { fail(fd, DeviceCall::wait, error); });
    } else if (result == 0) {
        note([&] { timeOut(fd); });
    }
    return result;
}

int RecordingDevice::receive(int fd, ipmi_recv& record) noexcept {
    const int result = device.receive(fd, record);
    note([&, error = errno] {
        if (result == -1) {
            fail(fd, DeviceCall::receive, error);
        } else {
            take(fd, record);
        }
    });
    return result;
}

int RecordingDevice::lock(int fd) noexcept {
    return device.lock(fd);
}

/// Noted first: when the call is over, the number may be another thread's.
int RecordingDevice::close(int fd) noexcept {
    std::map<int, Pending>::node_type last;
    note([&] { last = pending.extract(fd); });
    const int result = device.close(fd);
    if (!last.empty()) {
        note([&, error = errno] {
            Exchange& exchange = last.mapped().exchange;
            if (result == -1) {
                exchange.failedCall = DeviceCall::close;
                exchange.error = error;
            }
            tell(exchange);
        });
    }
    return result;
}

/// An attempt that no node answers counts as an exchange. What tells most of it is the first error
/// other than that there is no such node.
void RecordingDevice::noteOpen(const char* path, int error) {
    if (error == 0) {
        openError = 0;
        return;
    }
    if (openError == 0 || openError == ENOENT) {
        openError = error;
    }
    if (std::strcmp(path, lastNode) != 0) {
        return;
    }
    finishOverdue();
    begins();
    Exchange attempt;
    attempt.sentAt = now();
    attempt.failedCall = DeviceCall::open;
    attempt.error = openError;
    openError = 0;
    tell(attempt);
}

void RecordingDevice::begin(int fd, const ipmi_req& request) {
    finishOverdue();
    begins();
    Exchange exchange;
    exchange.sentAt = now();
    takeAddress(request, exchange);
    exchange.netfn = request.msg.netfn;
    exchange.cmd = request.msg.cmd;
    exchange.request.assign(request.msg.data, request.msg.data + request.msg.data_len);
    pending.insert_or_assign(fd, Pending{std::move(exchange), request.msgid, false});
}

void RecordingDevice::take(int fd, const ipmi_recv& record) {
    const auto found = pending.find(fd);
    if (found == pending.end()) {
        return;
    }
    Exchange& exchange = found->second.exchange;
    if (record.recv_type != IPMI_RESPONSE_RECV_TYPE) {
        exchange.otherRecords.push_back(record.recv_type);
        return;
    }
    exchange.foreignId = record.msgid != found->second.msgid;
    exchange.response.emplace(record.msg.data, record.msg.data + record.msg.data_len);
    finish(fd);
}

void RecordingDevice::fail(int fd, DeviceCall call, int error) {
    if (const auto found = pending.find(fd); found != pending.end()) {
        found->second.exchange.failedCall = call;
        found->second.exchange.error = error;
        finish(fd);
    }
}

void RecordingDevice::timeOut(int fd) {
    if (const auto found = pending.find(fd); found != pending.end()) {
        found->second.overdue = true;
    }
}

/// Nobody waits for those any longer, though their connections are still open: whoever is told of
/// exchanges is told in their order.
void RecordingDevice::finishOverdue() {
    for (auto next = pending.begin(); next != pending.end();) {
        const int fd = (next++)->first;
        if (pending[fd].overdue) {
            finish(fd);
        }
    }
}

/// Tells of what is under way on the descriptor, if anything is.
void RecordingDevice::finish(int fd) {
    if (auto last = pending.extract(fd); !last.empty()) {
        tell(last.mapped().exchange);
    }
}

/// One that cannot be told of leaves no gap in the numbers.
void RecordingDevice::tell(Exchange& exchange) {
    exchange.endedAt = now();
    exchange.number = exchanges + 1;
    observer(exchange);
    ++exchanges;
}

} // namespace sim
