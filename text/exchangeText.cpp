#include "exchangeText.h"

#include "bladeText.h"
#include "fruText.h"
#include "messagingText.h"
#include "text.h"
#include "valueText.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

std::string deviceIdTold(Data request, Data response) {
    if (response.size() != 15) {
        return toldInHex(request, response);
    }
    return "firmware " + std::to_string(response[2] & 0x7F) + "." + hexByte(response[3]).substr(2) +
           ", IPMI " + std::to_string(response[4] & 0xF) + "." + std::to_string(response[4] >> 4);
}

std::string timerText(Data fields) {
    return timerUseText(fields[0] & 7U) + ", " + timerActionText(fields[1] & 7U);
}

unsigned count(Data low) {
    return low[0] | static_cast<unsigned>(low[1]) << 8U;
}

std::string setWatchdogAsked(Data request) {
    if (request.size() != 6) {
        return hexText(request);
    }
    std::string text = timerText(request) + ", " + countdownText(count(request.subspan(4)));
    text += (request[0] & 0x40U) != 0 ? ", don't stop" : "";
    text += (request[0] & 0x80U) != 0 ? ", don't log" : "";
    return text;
}

std::string getWatchdogTold(Data request, Data response) {
    if (response.size() != 8) {
        return toldInHex(request, response);
    }
    const bool running = (response[0] & 0x40U) != 0;
    return std::string(running ? "running, " : "stopped, ") + timerText(response) + ", " +
           countdownText(count(response.subspan(6))) + " of " +
           countdownText(count(response.subspan(4))) + ", expired: " + expirationText(response[3]);
}

// Requests and responses of the maker's commands begin with its IANA number.
constexpr std::size_t specifierAt = ianaLength;

std::string variableText(Data request, const ConfVariable*& variable) {
    const auto id =
        static_cast<std::uint16_t>(request[specifierAt + 2] | request[specifierAt + 3] << 8);
    variable = findConfVariable(id);
    return variable == nullptr ? "variable " + std::to_string(id) : variable->name;
}

std::string confValueText(const ConfVariable* variable, Data value) {
    return variable == nullptr ? hexText(value) : valueText(variable->kind, value);
}

std::string confSpaceAsked(Data request) {
    constexpr std::size_t readLength = specifierAt + 4;
    constexpr std::size_t writeHead = readLength + 1;
    const ConfVariable* variable = nullptr;
    if (request.size() == readLength && request[specifierAt] == 1) {
        return "read " + variableText(request, variable);
    }
    if (request.size() >= writeHead && request[specifierAt] == 2) {
        const std::string name = variableText(request, variable);
        return "write " + name + " = " + confValueText(variable, request.subspan(writeHead));
    }
    return hexText(request);
}

std::string confSpaceTold(Data request, Data response) {
    constexpr std::size_t head = ianaLength + 1;
    const bool isRead = request.size() == specifierAt + 4 && request[specifierAt] == 1;
    if (!isRead || response.size() < head || response.size() - head != response[ianaLength]) {
        return response.size() == ianaLength ? "" : toldInHex(request, response);
    }
    const ConfVariable* variable = nullptr;
    variableText(request, variable);
    return confValueText(variable, response.subspan(head));
}

std::string agentAsked(Data request) {
    const unsigned specifier = request.size() == specifierAt + 1 ? request[specifierAt] : 0;
    switch (specifier) {
    case 1:
        return "connect";
    case 2:
        return "disconnect";
    case 8:
        return "status";
    default:
        return hexText(request);
    }
}

std::string agentTold(Data request, Data response) {
    if (response.size() != ianaLength + 2 || response[ianaLength] != 1) {
        return toldInHex(request, response);
    }
    return response[ianaLength + 1] == 1 ? "connected" : "not connected";
}

std::string versionsAsked(Data request) {
    return request.size() == specifierAt + 2 ? "EEPROM " + std::to_string(request[specifierAt + 1])
                                             : hexText(request);
}

std::string versionsTold(Data, Data response) {
    return hexText(response.subspan(std::min(response.size(), ianaLength)));
}

constexpr std::array<CommandText, 7> commandTexts = {{
    {netfn::app, command::getDeviceId, "Get Device ID", hexText, deviceIdTold},
    {netfn::app, command::resetWatchdogTimer, "Reset Watchdog Timer", hexText, toldInHex},
    {netfn::app, command::setWatchdogTimer, "Set Watchdog Timer", setWatchdogAsked, toldInHex},
    {netfn::app, command::getWatchdogTimer, "Get Watchdog Timer", hexText, getWatchdogTold},
    {netfn::oem, command::configurationSpace, "Configuration space", confSpaceAsked, confSpaceTold},
    {netfn::oem, command::agentCommunication, "Agent communication", agentAsked, agentTold},
    {netfn::oem, command::firmwareInformation, "EEPROM versions", versionsAsked, versionsTold},
}};

const CommandText* findCommandText(const Exchange& exchange) {
    for (const std::span<const CommandText> texts :
         {std::span<const CommandText>(commandTexts), bladeTexts(), fruTexts(), messagingTexts()}) {
        const auto found = std::ranges::find_if(texts, [&](const CommandText& known) {
            return known.netfn == exchange.netfn && known.cmd == exchange.cmd;
        });
        if (found != texts.end()) {
            return &*found;
        }
    }
    return nullptr;
}

/// Whom the request is for, unless that is the BMC itself.
std::string targetText(const Exchange& exchange) {
    if (exchange.slaveAddress != 0) {
        return " to " + hexByte(exchange.slaveAddress);
    }
    return exchange.lun == 0 ? "" : " (LUN " + std::to_string(exchange.lun) + ")";
}

const char* completionName(unsigned char code) {
    switch (code) {
    case completion::timerNotInitialised:
        return "command-specific";
    case completion::nakOnWrite:
        return "NAK on write";
    case 0xC0:
        return "node busy";
    case completion::invalidCommand:
        return "invalid command";
    case completion::invalidForLun:
        return "invalid command for this LUN";
    case 0xC3:
        return "timeout";
    case completion::requestLengthInvalid:
        return "request data length invalid";
    case completion::parameterOutOfRange:
        return "parameter out of range";
    case completion::cannotReturnThatMany:
        return "cannot return that many bytes";
    case completion::recordNotPresent:
        return "requested data not present";
    case completion::invalidDataField:
        return "invalid data field in request";
    case 0xFF:
        return "unspecified error";
    default:
        return "not ok";
    }
}

std::string successText(const Exchange& exchange) {
    const Data data = Data(*exchange.response).subspan(1);
    const CommandText* const known = findCommandText(exchange);
    const std::string told = known == nullptr ? hexText(data) : known->told(exchange.request, data);
    return told.empty() ? "ok" : "ok, " + told;
}

std::string answerText(const Exchange& exchange) {
    if (!exchange.response) {
        return "no answer";
    }
    if (exchange.response->empty()) {
        return "empty answer";
    }
    const unsigned char code = exchange.response->front();
    if (code == completion::success) {
        return successText(exchange);
    }
    return hexByte(code) + " " + completionName(code);
}

} // namespace

std::string requestText(const Exchange& exchange) {
    if (exchange.failedCall == DeviceCall::open) {
        return "Open of the device node";
    }
    const CommandText* const known = findCommandText(exchange);
    const std::string name =
        known != nullptr ? known->name
                         : "netfn " + hexByte(exchange.netfn) + " command " + hexByte(exchange.cmd);
    const std::string asked =
        known != nullptr ? known->asked(exchange.request) : hexText(exchange.request);
    return name + targetText(exchange) + (asked.empty() ? "" : ": " + asked);
}

std::string outcomeText(const Exchange& exchange) {
    if (exchange.failedCall) {
        return std::string(deviceCallNames[static_cast<int>(*exchange.failedCall)]) +
               " failed: errno " + errnoName(exchange.error);
    }
    std::string text = answerText(exchange);
    text += exchange.foreignId && exchange.response ? " (to a foreign message id)" : "";
    if (!exchange.otherRecords.empty()) {
        text += " (other records before: " + std::to_string(exchange.otherRecords.size()) + ")";
    }
    return text;
}

std::string timerUseText(unsigned use) {
    constexpr std::array names = {"reserved", "BIOS FRB2", "BIOS/POST", "OS load",
                                  "SMS/OS",   "OEM",       "reserved",  "reserved"};
    return names[use & 7U];
}

std::string timerActionText(unsigned action) {
    constexpr std::array names = {"no action", "hard reset", "power down", "power cycle",
                                  "reserved",  "reserved",   "reserved",   "reserved"};
    return names[action & 7U];
}

std::string expirationText(unsigned flags) {
    std::string text;
    for (unsigned use = 0; use < 8; ++use) {
        if ((flags >> use & 1U) != 0) {
            text += (text.empty() ? "" : " and ") + timerUseText(use);
        }
    }
    return text.empty() ? "none" : text;
}

std::string countdownText(unsigned counts) {
    return decimal(counts / 10.0, 1) + " s";
}

} // namespace sim
