#include "eepromVersions.h"

namespace sim {

namespace {

constexpr unsigned char specifierVersions = 18;
constexpr std::size_t requestLength = 2; // specifier and EEPROM number

} // namespace

Reply EepromVersions::serve(Data request) const {
    if (!request.empty() && request[0] != specifierVersions) {
        return {completion::invalidDataField};
    }
    if (request.size() != requestLength) {
        return {completion::requestLengthInvalid};
    }
    if (request[1] >= records.size()) {
        return {completion::parameterOutOfRange};
    }
    const Record& record = records[request[1]];
    return {completion::success, {record.begin(), record.end()}};
}

} // namespace sim
