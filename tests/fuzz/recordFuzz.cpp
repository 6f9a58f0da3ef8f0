// Records of arbitrary content: the reader takes them or says what is wrong; what it takes can be
// written and read again, masked, and played to an agent that asks what was recorded.

#include "recordMask.h"
#include "replayDevice.h"
#include "standIns.h"

#include <sstream>

namespace {

std::vector<sim::RecordedStep> readSteps(const std::string& text, sim::RecordHeader& header) {
    std::istringstream input(text);
    std::vector<sim::RecordedStep> steps;
    try {
        sim::RecordReader reader(input);
        header = reader.header();
        while (auto step = reader.next()) {
            steps.push_back(std::move(*step));
        }
    } catch (const sim::RecordError&) {
        // Said in the open: where it is damaged.
    }
    return steps;
}

std::string written(const std::vector<sim::RecordedStep>& steps, const sim::RecordHeader& header) {
    std::string text = recordHeaderText(header);
    for (const sim::RecordedStep& step : steps) {
        text += step.exchange ? recordLine(*step.exchange, {}) : sim::recordEndRequest(step.toldAt);
    }
    return text;
}

/// As the agent asks, with a connection for each exchange.
void ask(IpmiDevice& device, sim::Exchange& exchange) {
    ipmi_ipmb_addr address{exchange.addressType, IPMI_BMC_CHANNEL, exchange.slaveAddress,
                           exchange.lun};
    if (exchange.addressType == IPMI_IPMB_ADDR_TYPE) {
        address.channel = 0;
    } else if (exchange.addressType == IPMI_SYSTEM_INTERFACE_ADDR_TYPE) {
        address.slave_addr = exchange.lun;
    }
    ipmi_req request{reinterpret_cast<unsigned char*>(&address), sizeof address, 1, {}};
    request.msg = {exchange.netfn, exchange.cmd,
                   static_cast<unsigned short>(exchange.request.size()), exchange.request.data()};
    const int fd = device.open("/dev/ipmi0");
    if (fd == -1 || device.send(fd, request) == -1) {
        device.close(fd);
        return;
    }
    unsigned char data[272];
    ipmi_recv record{};
    record.addr = request.addr;
    record.addr_len = sizeof address;
    record.msg.data = data;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval budget{5, 0};
    for (int poll = 0; poll < 5 && device.wait(fd, readable, budget) == 1; ++poll) {
        record.msg.data_len = sizeof data;
        device.receive(fd, record);
    }
    device.close(fd);
}

/// Those that an agent can have asked.
bool canBeAsked(const sim::RecordedStep& step) {
    const auto& exchange = step.exchange;
    return exchange && (exchange->failedCall == sim::DeviceCall::open ||
                        exchange->addressType == IPMI_IPMB_ADDR_TYPE ||
                        (exchange->addressType == IPMI_SYSTEM_INTERFACE_ADDR_TYPE &&
                         exchange->slaveAddress == 0));
}

void play(std::vector<sim::RecordedStep> steps) {
    std::erase_if(steps, [](const auto& step) { return !canBeAsked(step); });
    std::vector<sim::RecordedStep> recorded = steps;
    std::size_t next = 0;
    sim::ReplayClock clock(std::chrono::hours(1));
    sim::ReplayDevice device(
        clock,
        [&]() -> std::optional<sim::RecordedStep> {
            return next < recorded.size() ? std::optional(recorded[next++]) : std::nullopt;
        },
        [](const sim::RecordedStep*, const sim::Exchange&) {
            require(false, "a request differs");
        });
    for (sim::RecordedStep& step : steps) {
        ask(device, *step.exchange);
    }
    require(device.upcoming() == nullptr, "not all of the record was played");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    sim::RecordHeader header;
    auto steps = readSteps({reinterpret_cast<const char*>(bytes), size}, header);
    const std::string text = written(steps, header);
    sim::RecordHeader again;
    require(written(readSteps(text, again), again) == text, "what was written is not read");
    play(steps);
    sim::RecordMask mask;
    mask.apply(header);
    for (sim::RecordedStep& step : steps) {
        if (step.exchange) {
            mask.apply(*step.exchange);
        }
    }
    return 0;
}
