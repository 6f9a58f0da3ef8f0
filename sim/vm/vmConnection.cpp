#include "vmConnection.h"

#include <numeric>

namespace sim {

namespace {

constexpr unsigned char messageEnd = 0xA0;
constexpr unsigned char controlEnd = 0xA1;
constexpr unsigned char escape = 0xAA;
constexpr unsigned char escapeBit = 0x10;

namespace control {
constexpr unsigned char noAttention = 0x00;
constexpr unsigned char attention = 0x01;
constexpr unsigned char attentionWithInterrupt = 0x02;
constexpr unsigned char reset = 0x04;
constexpr unsigned char enableInterrupts = 0x05;
constexpr unsigned char disableInterrupts = 0x06;
constexpr unsigned char version = 0xFF;
} // namespace control

constexpr unsigned char protocolVersion = 1;
// Sequence number, network function and LUN, command; behind them data and the checksum.
constexpr std::size_t headLength = 3;
constexpr std::size_t longestFrame = headLength + 300 + 1; // more than any driver's buffer

void append(Bytes& output, Data bytes, unsigned char end) {
    for (const unsigned char byte : bytes) {
        if (byte == messageEnd || byte == controlEnd || byte == escape) {
            output.push_back(escape);
            output.push_back(byte | escapeBit);
        } else {
            output.push_back(byte);
        }
    }
    output.push_back(end);
}

void appendControl(Bytes& output, unsigned char command) {
    append(output, {&command, 1}, controlEnd);
}

unsigned sum(Data bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), 0U) % 256;
}

} // namespace

Bytes VmConnection::greeting() {
    Bytes output;
    append(output, Bytes{control::version, protocolVersion}, controlEnd);
    // The machine may remember an earlier BMC's.
    appendControl(output, control::noAttention);
    appendControl(output, control::disableInterrupts);
    return output;
}

Bytes VmConnection::receive(Data bytes) {
    Bytes output;
    for (const unsigned char byte : bytes) {
        take(byte, output);
    }
    return output;
}

void VmConnection::take(unsigned char byte, Bytes& output) {
    if (byte == messageEnd || byte == controlEnd) {
        if (!spoilt && !escaped) {
            serveFrame(byte, output);
        }
        frame.clear();
        escaped = false;
        spoilt = false;
    } else if (byte == escape) {
        spoilt = spoilt || escaped;
        escaped = true;
    } else if (frame.size() == longestFrame) {
        spoilt = true;
    } else {
        frame.push_back(escaped ? byte & static_cast<unsigned char>(~escapeBit) : byte);
        escaped = false;
    }
}

void VmConnection::serveFrame(unsigned char end, Bytes& output) {
    if (end == messageEnd) {
        serveMessage(output);
    } else if (!frame.empty() && frame[0] == control::reset) {
        channel.reset();
        updateAttention(output);
        updateInterrupts(output);
    }
}

void VmConnection::serveMessage(Bytes& output) {
    if (frame.size() <= headLength || sum(frame) != 0) {
        return;
    }
    const unsigned char function = frame[1];
    const Data request = Data(frame).subspan(headLength, frame.size() - headLength - 1);
    const Bytes answer = channel.answer(function >> 2U, function & 3U, frame[2], request);
    Bytes response = {frame[0], static_cast<unsigned char>(function | 4U), frame[2]};
    response.insert(response.end(), answer.begin(), answer.end());
    response.push_back(static_cast<unsigned char>(0U - sum(response)));
    // The driver looks for attention when the response is there: no stale one must be seen then.
    if (!channel.attention()) {
        updateAttention(output);
    }
    append(output, response, messageEnd);
    updateInterrupts(output);
    updateAttention(output);
}

void VmConnection::updateInterrupts(Bytes& output) {
    if (interrupts != channel.interruptsEnabled()) {
        interrupts = !interrupts;
        appendControl(output, interrupts ? control::enableInterrupts : control::disableInterrupts);
    }
}

void VmConnection::updateAttention(Bytes& output) {
    if (attention != channel.attention()) {
        attention = !attention;
        appendControl(output, !attention   ? control::noAttention
                              : interrupts ? control::attentionWithInterrupt
                                           : control::attention);
    }
}

} // namespace sim
