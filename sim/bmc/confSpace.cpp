#include "confSpace.h"

#include "confVariables.h"

#include <cstring>
#include <iterator>
#include <utility>

namespace sim {

namespace {

constexpr unsigned char specifierRead = 1;
constexpr unsigned char specifierWrite = 2;

// Behind the specifier: object index, variable number and, when writing, the value's length.
constexpr std::size_t readLength = 3;
constexpr std::size_t writeHeadLength = 4;

std::uint16_t variableNumber(Data request) {
    return static_cast<std::uint16_t>(request[1] | request[2] << 8);
}

} // namespace

ConfSpace::ConfSpace() {
    const std::pair<std::uint16_t, const char*> texts[] = {
        {512, "room 1, rack 2"},
        {513, "demo-server"},
        {514, "R1.4.0"},
        {515, "demonstration server"},
        {516, "admin@example.com"},
        {517, "cabinet model 42"},
        {518, "chassis model 2"},
        {519, "SN00000001"},
        {520, "example vendor"},
        {527, "none yet"},
    };
    for (const auto& [id, text] : texts) {
        values[id].assign(text, text + std::strlen(text));
    }
    for (const std::uint16_t address : std::initializer_list<std::uint16_t>{522, 523, 524, 525}) {
        values[address] = {0, 0, 0, 0};
    }
    const std::pair<std::uint16_t, Bytes> watchdogs[] = {
        {64, {0}},          // at boot: disabled,
        {65, {0x58, 0x02}}, // 600 s,
        {116, {2}},         // reset
        {66, {0}},          // of the OS: disabled,
        {67, {0x2C, 0x01}}, // 300 s,
        {117, {0}},         // continue
    };
    values.insert(std::begin(watchdogs), std::end(watchdogs));
}

Reply ConfSpace::serve(Data request) {
    if (request.empty()) {
        return {completion::requestLengthInvalid};
    }
    switch (request[0]) {
    case specifierRead:
        return read(request.subspan(1));
    case specifierWrite:
        return write(request.subspan(1));
    default:
        return {completion::invalidDataField};
    }
}

Reply ConfSpace::read(Data request) const {
    if (request.size() != readLength) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != 0) {
        return {completion::parameterOutOfRange};
    }
    const auto found = values.find(variableNumber(request));
    if (found == values.end()) {
        return {completion::recordNotPresent};
    }
    Bytes data = {static_cast<unsigned char>(found->second.size())};
    data.insert(data.end(), found->second.begin(), found->second.end());
    return {completion::success, data};
}

Reply ConfSpace::write(Data request) {
    if (request.size() < writeHeadLength || request.size() - writeHeadLength != request[3]) {
        return {completion::requestLengthInvalid};
    }
    if (request[0] != 0) {
        return {completion::parameterOutOfRange};
    }
    const auto found = values.find(variableNumber(request));
    const ConfVariable* const variable = findConfVariable(variableNumber(request));
    if (found == values.end() || variable == nullptr) {
        return {completion::recordNotPresent};
    }
    if (variable->kind == ValueKind::bladeNumber) { // the chassis gives it, nobody else
        return {completion::invalidDataField};
    }
    const Data value = request.subspan(writeHeadLength);
    const unsigned char verdict = checkValue(variable->kind, value);
    if (verdict == completion::success) {
        found->second.assign(value.begin(), value.end());
    }
    return {verdict};
}

} // namespace sim
