#include "fruDevice.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t readRequestLength = 4;
constexpr std::size_t writeRequestHead = 3;
constexpr unsigned char accessByBytes = 0;
// More data than this does not fit into a response of the system interface.
constexpr std::size_t longestRead = 240;

std::size_t offsetOf(Data request) {
    return request[1] | static_cast<std::size_t>(request[2]) << 8U;
}

} // namespace

Bytes FruDevice::sizeAndAccess() const {
    return {static_cast<unsigned char>(image.size() & 0xFFU),
            static_cast<unsigned char>(image.size() >> 8U & 0xFFU), accessByBytes};
}

Reply FruDevice::adapter(Data request) const {
    if (request.size() != 2) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != 0 || request[1] != 0) { // there is one adapter
        return {completion::parameterOutOfRange};
    }
    Bytes data = sizeAndAccess();
    data.insert(data.begin(), id);
    return {completion::success, data};
}

Reply FruDevice::areaInfo(Data request) const {
    if (request.size() != 1) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != id) {
        return {completion::recordNotPresent};
    }
    return {completion::success, sizeAndAccess()};
}

Reply FruDevice::read(Data request) const {
    if (request.size() != readRequestLength) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != id) {
        return {completion::recordNotPresent};
    }
    const std::size_t offset = offsetOf(request);
    const std::size_t count = request[3];
    if (offset >= image.size() || count == 0) {
        return {completion::parameterOutOfRange};
    }
    if (count > longestRead) {
        return {completion::cannotReturnThatMany};
    }
    const Data there = Data(image).subspan(offset, std::min(count, image.size() - offset));
    Bytes data{static_cast<unsigned char>(static_cast<int>(there.size()) + countError)};
    data.insert(data.end(), there.begin(), there.end());
    return {completion::success, data};
}

Reply FruDevice::write(Data request) {
    if (request.size() <= writeRequestHead) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != id) {
        return {completion::recordNotPresent};
    }
    const std::size_t offset = offsetOf(request);
    const Data data = request.subspan(writeRequestHead);
    if (offset + data.size() > image.size()) {
        return {completion::parameterOutOfRange};
    }
    std::ranges::copy(data, image.begin() + static_cast<std::ptrdiff_t>(offset));
    return {completion::success, {static_cast<unsigned char>(data.size())}};
}

} // namespace sim
