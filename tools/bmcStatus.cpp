// Who the BMC is, its timer, what it knows of the agent, its configuration space and its versions.

#include "bmcStatus.h"

#include "confVariables.h"
#include "tavConfSpaceRecords.h"
#include "tavIpmiDeviceId.h"

#include <algorithm>
#include <span>

namespace tavStatus {

namespace {

using tavIpmi::oemPrefix;

constexpr std::uint16_t firstVariable = 512; // without it there are none, as the agent sees it
constexpr std::uint16_t bladeNumber = 8960;  // on a blade only

constexpr std::size_t mandatory = offsetof(tavIpmi::GetDeviceIdRespData, auxFirmwareRevision1);

/// From an answer that has at least the mandatory bytes.
Identity identityFrom(ByteView answer) {
    tavIpmi::GetDeviceIdRespData response;
    readRecord(answer, response);
    const ByteView auxiliary =
        answer.subspan(mandatory, std::min(answer.size() - mandatory, sizeof response - mandatory));
    const unsigned char* const maker = response.manufacturerId;
    return {.deviceId = response.deviceId,
            .deviceRevision = response.deviceRevision.deviceRevision,
            .firmwareMajor =
                static_cast<unsigned char>(response.firmwareRevision_1.majorFirmwareRevision) &
                0x7FU,
            .firmwareMinor = response.firmwareRevision_2,
            .updating = response.firmwareRevision_1.deviceAvailable != 0,
            .ipmiMajor = response.ipmiVersion & 0x0FU,
            .ipmiMinor = static_cast<unsigned>(response.ipmiVersion) >> 4U,
            .manufacturer = static_cast<std::uint32_t>(maker[0] | maker[1] << 8 | maker[2] << 16),
            .product = response.productId,
            .auxiliary = sim::Bytes(auxiliary.begin(), auxiliary.end()),
            .agentTakesIt = answer.size() == sizeof response};
}

/// Some drivers answer in place of a BMC that does not, and say so.
bool lostByDriver(unsigned char completionCode) {
    return completionCode == tavIpmi::ipmi_cc_timeout ||
           completionCode == tavIpmi::ipmi_cc_no_cmd_response ||
           completionCode == tavIpmi::ipmi_cc_unspecific_error;
}

void giveUpLostBmc(BmcQuestions& bmc) {
    bmc.giveUp(Reach::silent, "the BMC does not answer, says the IPMI driver");
}

std::optional<Identity> askIdentity(BmcQuestions& bmc) {
    const sim::Bytes answer =
        bmc.ask({tavIpmi::ipmi_netfn_req_app, tavIpmi::ipmi_cmd_get_device_id});
    if (bmc.reach() == Reach::answering && lostByDriver(bmc.lastCode())) {
        giveUpLostBmc(bmc);
    }
    return answer.size() >= mandatory && answer[0] == tavIpmi::ipmi_cc_normally_cc
               ? std::optional(identityFrom(answer))
               : std::nullopt;
}

std::optional<tavIpmi::TavWatchdogTimerGetRespData> askWatchdog(BmcQuestions& bmc) {
    tavIpmi::TavWatchdogTimerGetRespData timer;
    if (!bmc.ask({tavIpmi::ipmi_netfn_req_app, tavIpmi::ipmi_cmd_get_watchdog_timer}, timer)) {
        return std::nullopt;
    }
    return timer;
}

std::optional<bool> askAgentConnected(BmcQuestions& bmc) {
    const TavAgentConnectReqData request{oemPrefix(tavIpmi::cmd_spec_agentStatus)};
    TavAgentConnectRespData response;
    if (!bmc.ask({tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_agentCommunication,
                  recordBytes(request)},
                 response) ||
        response.data[0] != 1) {
        return std::nullopt;
    }
    return response.data[1] == 1;
}

std::optional<sim::Bytes> askVariable(BmcQuestions& bmc, std::uint16_t id) {
    TavConfSpaceReadReqData request{};
    request.prefix = oemPrefix(tavIpmi::cmd_spec_space_read);
    request.conf_space_variable = id;
    const std::vector<unsigned char> answer =
        bmc.ask({tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_group_configuration,
                 recordBytes(request)});
    TavConfSpaceReadRespData response;
    constexpr std::size_t head = offsetof(TavConfSpaceReadRespData, data);
    if (!readRecord(answer, response, head) ||
        response.prefix.completion_code != tavIpmi::ipmi_cc_normally_cc ||
        answer.size() < head + response.data_length) {
        return std::nullopt;
    }
    return sim::Bytes(response.data, response.data + response.data_length);
}

void askInto(std::map<std::uint16_t, sim::Bytes>& values, BmcQuestions& bmc, std::uint16_t id) {
    if (auto value = askVariable(bmc, id)) {
        values[id] = std::move(*value);
    }
}

void askOtherVariables(BmcQuestions& bmc, BmcStatus& status) {
    for (const sim::ConfVariable& variable : sim::confVariables()) {
        if (variable.id != firstVariable && (variable.id != bladeNumber || status.blade)) {
            askInto(status.confSpace, bmc, variable.id);
        }
    }
}

void askEeproms(BmcQuestions& bmc, BmcStatus& status) {
    for (unsigned char number = 0; auto& eeprom : status.eeproms) {
        const tavIpmi::TavGetEEPROMVersionInfoReq request{
            oemPrefix(tavIpmi::cmd_spec_get_eeprom_version_info), number++};
        EepromRecord record;
        if (bmc.ask({tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_group_vexa,
                     recordBytes(request)},
                    record, offsetof(EepromRecord, status))) {
            eeprom = record;
        }
    }
}

/// Says that the command, its number or who sends it is not wanted, now or later.
bool refuses(unsigned char completionCode) {
    constexpr std::array<unsigned char, 7> codes = {
        tavIpmi::ipmi_cc_invalid_cmd,        tavIpmi::ipmi_cc_inv_cmd_for_LUN,
        tavIpmi::ipmi_cc_req_data_len_inv,   tavIpmi::ipmi_cc_param_out_of_range,
        tavIpmi::ipmi_cc_inv_req_data_field, tavIpmi::ipmi_cc_insufficient_priv_or_security,
        tavIpmi::ipmi_cc_param_illegal};
    return std::ranges::find(codes, completionCode) != codes.end();
}

/// From the answers to all that was asked under the maker's number so far.
std::optional<bool> numberAccepted(std::span<const unsigned char> completionCodes) {
    if (std::ranges::any_of(completionCodes, [](unsigned char code) {
            return code == tavIpmi::ipmi_cc_normally_cc;
        })) {
        return true;
    }
    return std::ranges::all_of(completionCodes, refuses) ? std::optional(false) : std::nullopt;
}

/// Those of the maker's commands that carry no number may mean anything to another maker's BMC:
/// only one that knows the number gets them.
void askMakersCommands(BmcQuestions& bmc, BmcStatus& status) {
    status.agentConnected = askAgentConnected(bmc);
    const unsigned char first = bmc.lastCode();
    askInto(status.confSpace, bmc, firstVariable);
    const std::array codes = {first, bmc.lastCode()};
    if (bmc.reach() != Reach::answering) {
        return;
    }
    if (std::ranges::all_of(codes, lostByDriver)) {
        giveUpLostBmc(bmc);
        return;
    }
    status.makerAccepted = numberAccepted(codes);
    if (status.makerAccepted != true) {
        return;
    }
    status.blade = askBlade(bmc);
    if (!status.confSpace.empty()) {
        askOtherVariables(bmc, status);
    }
    askEeproms(bmc, status);
    status.portRecord = askPortRecord(bmc);
}

} // namespace

BmcStatus askBmc() {
    BmcStatus status;
    BmcQuestions bmc;
    status.identity = askIdentity(bmc);
    status.watchdog = askWatchdog(bmc);
    askMakersCommands(bmc, status);
    status.reach = bmc.reach();
    status.trouble = bmc.trouble();
    status.answers = bmc.answers();
    return status;
}

} // namespace tavStatus
