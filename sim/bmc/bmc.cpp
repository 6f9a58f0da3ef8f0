#include "bmc.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sim {

namespace {

constexpr unsigned long iana = TAV_IANA_ENTERPRISE_NUMBER;
constexpr std::array<unsigned char, ianaLength> ianaBytes = {
    static_cast<unsigned char>(iana & 0xFFU), static_cast<unsigned char>(iana >> 8U & 0xFFU),
    static_cast<unsigned char>(iana >> 16U & 0xFFU)};

Bytes concatenated(Data front, Data back) {
    Bytes whole;
    whole.reserve(front.size() + back.size());
    whole.insert(whole.end(), front.begin(), front.end());
    whole.insert(whole.end(), back.begin(), back.end());
    return whole;
}

/// A request of the maker's own commands: its number in front, and again in the response.
template <typename Subject>
Reply serveFramed(Subject& subject, Data request) {
    if (request.size() < ianaLength) {
        return {completion::requestLengthInvalid};
    }
    const Data prefix = request.first(ianaLength);
    const Reply reply = std::ranges::equal(prefix, ianaBytes)
                            ? subject.serve(request.subspan(ianaLength))
                            : Reply{completion::invalidDataField};
    return {reply.code, concatenated(prefix, reply.data)};
}

Reply deviceId(const Bmc& bmc, Data request) {
    if (!request.empty()) {
        return {completion::requestLengthInvalid};
    }
    return {completion::success,
            {0x20, 0x01,                               // device, its revision
             0x01, 0x40,                               // firmware 1.40
             0x02,                                     // IPMI 2.0
             0xBF,                                     // all but bridging
             ianaBytes[0], ianaBytes[1], ianaBytes[2], // manufacturer
             0x01, 0x00,                               // product
             0x0A, 0x0B, 0x0C, bmc.mark}};             // auxiliary firmware revision
}

template <auto serve>
Reply throughFru(Bmc& bmc, Data request) {
    return bmc.fru ? ((*bmc.fru).*serve)(request) : Reply{completion::invalidCommand};
}

struct Command {
    unsigned char netfn;
    unsigned char cmd;
    Reply (*serve)(Bmc& bmc, Data request);
};

constexpr std::array<Command, 11> commands = {{
    {netfn::app, command::getDeviceId,
     [](Bmc& bmc, Data request) { return deviceId(bmc, request); }},
    {netfn::app, command::resetWatchdogTimer,
     [](Bmc& bmc, Data request) { return bmc.watchdog.reset(request); }},
    {netfn::app, command::setWatchdogTimer,
     [](Bmc& bmc, Data request) { return bmc.watchdog.set(request); }},
    {netfn::app, command::getWatchdogTimer,
     [](Bmc& bmc, Data request) { return bmc.watchdog.get(request); }},
    {netfn::oem, command::agentCommunication,
     [](Bmc& bmc, Data request) { return serveFramed(bmc.agentConnection, request); }},
    {netfn::oem, command::configurationSpace,
     [](Bmc& bmc, Data request) { return serveFramed(bmc.confSpace, request); }},
    {netfn::oem, command::firmwareInformation,
     [](Bmc& bmc, Data request) { return serveFramed(bmc.eepromVersions, request); }},
    {netfn::adapter, command::getAdapterFru, throughFru<&FruDevice::adapter>},
    {netfn::storage, command::getFruAreaInfo, throughFru<&FruDevice::areaInfo>},
    {netfn::storage, command::readFruData, throughFru<&FruDevice::read>},
    {netfn::storage, command::writeFruData, throughFru<&FruDevice::write>},
}};

} // namespace

Bmc::Bmc(Now now_) : now(std::move(now_)), watchdog(now) {}

Bytes Bmc::answer(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data) {
    const Reply reply = serve(netfn, lun, cmd, data);
    return concatenated({&reply.code, 1}, reply.data);
}

Bytes Bmc::forward(unsigned char slaveAddress, unsigned char netfn, unsigned char cmd, Data data) {
    if (!blade || slaveAddress != managementBladeAddress) {
        return {completion::nakOnWrite};
    }
    const Reply reply = blade->chassis.serve(netfn, cmd, data);
    return concatenated({&reply.code, 1}, reply.data);
}

Reply Bmc::serve(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data) {
    if (netfn == netfn::blade && blade) { // through any LUN: some lead on to the chassis
        return blade->serve(cmd, data);
    }
    const auto* const found = std::ranges::find_if(
        commands, [&](const Command& known) { return known.netfn == netfn && known.cmd == cmd; });
    if (found == commands.end()) {
        return {completion::invalidCommand};
    }
    if (lun != 0) {
        return {completion::invalidForLun};
    }
    return found->serve(*this, data);
}

} // namespace sim
