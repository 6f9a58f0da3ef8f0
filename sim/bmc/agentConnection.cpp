#include "agentConnection.h"

namespace sim {

namespace {

constexpr unsigned char specifierConnect = 1;
constexpr unsigned char specifierDisconnect = 2;
constexpr unsigned char specifierStatus = 8;

constexpr unsigned char stateIsValid = 1;

} // namespace

Reply AgentConnection::serve(Data request) {
    if (request.size() != 1) {
        return {completion::requestLengthInvalid};
    }
    switch (request[0]) {
    case specifierConnect:
        connected = true;
        break;
    case specifierDisconnect:
        connected = false;
        break;
    case specifierStatus:
        break;
    default:
        return {completion::invalidDataField};
    }
    return {completion::success, {stateIsValid, static_cast<unsigned char>(connected ? 1 : 0)}};
}

} // namespace sim
