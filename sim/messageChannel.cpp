#include "messageChannel.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include <linux/ipmi.h>

namespace sim {

namespace {

constexpr unsigned char defaultEnables = 0x08;   // system event logging
constexpr unsigned char interruptEnables = 0x03; // for the receive queue, for the event buffer
constexpr unsigned char messageAvailable = 0x01; // flag
constexpr unsigned char busChannel = 0;
constexpr unsigned char systemChannel = 0x0F;
constexpr unsigned char presentChannel = 0x0E;

// A message on the bus: responder, network function and LUN, checksum, requester, sequence number
// and LUN, command, data, checksum (IPMB 1.0, 2.11).
constexpr std::size_t busHeadLength = 3;
constexpr std::size_t busFrameLength = 7; // without data

bool sumsToZero(Data bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), 0U) % 256 == 0;
}

void appendChecksum(Bytes& bytes, std::size_t from) {
    const unsigned sum =
        std::accumulate(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), 0U);
    bytes.push_back(static_cast<unsigned char>(0U - sum));
}

/// The answer as it comes back over the bus; the requester's own address is left out.
Bytes busResponse(Data request, Data response) {
    const unsigned char requester = request[3];
    const auto netfn = static_cast<unsigned char>((request[1] | 4U) & 0xFCU);
    const auto requesterLun = static_cast<unsigned char>(request[4] & 3U);
    Bytes message = {requester, static_cast<unsigned char>(netfn | requesterLun)};
    appendChecksum(message, 0);
    const std::size_t body = message.size();
    const auto sequence = static_cast<unsigned char>((request[4] & 0xFCU) | (request[1] & 3U));
    message.insert(message.end(), {request[0], sequence, request[5]});
    message.insert(message.end(), response.begin(), response.end());
    appendChecksum(message, body);
    message[0] = busChannel;
    return message;
}

} // namespace

struct MessageChannel::Command {
    unsigned char cmd;
    std::size_t requestLength; // exact; none for Send Message, which looks for itself
    Reply (MessageChannel::*serve)(Data request);
};

const MessageChannel::Command* MessageChannel::find(unsigned char cmd) noexcept {
    static constexpr std::array<Command, 7> commands = {{
        {command::setGlobalEnables, 1, &MessageChannel::setGlobalEnables},
        {command::getGlobalEnables, 0, &MessageChannel::getGlobalEnables},
        {command::clearMessageFlags, 1, &MessageChannel::clearFlags},
        {command::getMessageFlags, 0, &MessageChannel::getFlags},
        {command::getMessage, 0, &MessageChannel::getMessage},
        {command::sendMessage, 0, &MessageChannel::sendMessage},
        {command::getChannelInfo, 1, &MessageChannel::channelInfo},
    }};
    const auto* const found = std::ranges::find(commands, cmd, &Command::cmd);
    return found == commands.end() ? nullptr : found;
}

MessageChannel::MessageChannel(Bmc& bmc_, Observer observer_) :
    bmc(bmc_), observer(std::move(observer_)), globalEnables(defaultEnables) {}

void MessageChannel::reset() {
    globalEnables = defaultEnables;
    queue.clear();
}

bool MessageChannel::interruptsEnabled() const noexcept {
    return (globalEnables & interruptEnables) != 0;
}

Bytes MessageChannel::answer(unsigned char netfn, unsigned char lun, unsigned char cmd,
                             Data request) {
    Exchange exchange;
    exchange.netfn = netfn;
    exchange.lun = lun;
    exchange.cmd = cmd;
    exchange.request.assign(request.begin(), request.end());
    const Command* const own = netfn == netfn::app && lun == 0 ? find(cmd) : nullptr;
    if (own == nullptr) {
        Bytes response = bmc.answer(netfn, lun, cmd, request);
        observe(std::move(exchange), response);
        return response;
    }
    if (cmd != command::sendMessage && request.size() != own->requestLength) {
        observe(std::move(exchange), {completion::requestLengthInvalid});
        return {completion::requestLengthInvalid};
    }
    const Reply reply = (this->*own->serve)(request);
    Bytes response{reply.code};
    response.insert(response.end(), reply.data.begin(), reply.data.end());
    observe(std::move(exchange), response);
    return response;
}

void MessageChannel::observe(Exchange exchange, Bytes response) {
    exchange.number = ++exchanges;
    exchange.sentAt = bmc.now();
    exchange.response = std::move(response);
    observer(exchange);
}

Reply MessageChannel::setGlobalEnables(Data request) {
    globalEnables = request[0];
    return {completion::success};
}

Reply MessageChannel::getGlobalEnables(Data /*request*/) {
    return {completion::success, {globalEnables}};
}

Reply MessageChannel::clearFlags(Data request) {
    if ((request[0] & messageAvailable) != 0) {
        queue.clear();
    }
    return {completion::success};
}

Reply MessageChannel::getFlags(Data /*request*/) {
    return {completion::success, {queue.empty() ? std::uint8_t{0} : messageAvailable}};
}

Reply MessageChannel::getMessage(Data /*request*/) {
    if (queue.empty()) {
        return {completion::queueEmpty};
    }
    const Bytes message = queue.front();
    queue.pop_front();
    return {completion::success, message};
}

Reply MessageChannel::sendMessage(Data request) {
    if (request.size() < 1 + busFrameLength) {
        return {completion::requestLengthInvalid};
    }
    const Data frame = request.subspan(1);
    if ((request[0] & 0x0FU) != busChannel || !sumsToZero(frame.first(busHeadLength)) ||
        !sumsToZero(frame.subspan(busHeadLength))) {
        return {completion::invalidDataField};
    }
    const Data data = frame.subspan(busFrameLength - 1, frame.size() - busFrameLength);
    Exchange exchange;
    exchange.addressType = IPMI_IPMB_ADDR_TYPE;
    exchange.slaveAddress = frame[0];
    exchange.netfn = static_cast<unsigned char>(frame[1] >> 2U);
    exchange.cmd = frame[5];
    exchange.request.assign(data.begin(), data.end());
    const Bytes response = bmc.forward(frame[0], exchange.netfn, exchange.cmd, data);
    observe(std::move(exchange), response);
    if (response[0] == completion::nakOnWrite) {
        return {completion::nakOnWrite};
    }
    queue.push_back(busResponse(frame, response));
    return {completion::success};
}

/// Channel, medium, protocol, no sessions, the protocol's owner (IPMI itself), nothing further.
Reply MessageChannel::channelInfo(Data request) {
    constexpr std::array<unsigned char, 6> rest = {0x00, 0xF2, 0x1B, 0x00, 0x00, 0x00};
    const auto channel = static_cast<unsigned char>(request[0] & 0x0FU);
    Bytes data;
    if (channel == busChannel) {
        data = {busChannel, 0x01, 0x01}; // IPMB, its own protocol
    } else if (channel == systemChannel || channel == presentChannel) {
        data = {systemChannel, 0x0C, 0x05}; // system interface, KCS
    } else {
        return {completion::invalidDataField};
    }
    data.insert(data.end(), rest.begin(), rest.end());
    return {completion::success, data};
}

} // namespace sim
