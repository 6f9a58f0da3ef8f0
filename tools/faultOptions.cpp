#include "faultOptions.h"

#include "text.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace sim {

namespace {

using Halves = std::pair<std::string_view, std::string_view>;

constexpr long highestNumber = std::numeric_limits<int>::max();
constexpr long longestAnswer = 1024;

struct FaultWord {
    const char* word;
    FaultKind kind;
    bool takesNumber;
    long least;
    long most;
};

constexpr std::array<FaultWord, 9> faultWords = {{
    {"cc", FaultKind::completionCode, true, 0, 0xFF},
    {"silent", FaultKind::silent, false, 0, 0},
    {"silent-bus", FaultKind::silentBus, false, 0, 0},
    {"length", FaultKind::length, true, 0, longestAnswer},
    {"foreign-id", FaultKind::foreignId, false, 0, 0},
    {"events", FaultKind::events, true, 1, 1000},
    {"commands", FaultKind::commands, true, 1, 1000},
    {"type", FaultKind::recordType, true, std::numeric_limits<int>::min(), highestNumber},
    {"slow", FaultKind::slow, true, 0, highestNumber},
}};

/// Before and after the first `separator`; all before when there is none.
Halves split(std::string_view text, char separator) {
    const std::size_t place = text.find(separator);
    if (place == std::string_view::npos) {
        return {text, {}};
    }
    return {text.substr(0, place), text.substr(place + 1)};
}

/// By name: "SIGTERM".
int parseSignal(std::string_view name) {
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        const char* const known = ::sigabbrev_np(signal);
        if (known != nullptr && name == std::string("SIG") + known) {
            return signal;
        }
    }
    throw std::invalid_argument("'" + std::string(name) + "' is not the name of a signal");
}

unsigned parseExchangeNumber(std::string_view text) {
    return static_cast<unsigned>(parseNumber(text, 1, highestNumber));
}

void parseExchanges(std::string_view text, Fault& fault) {
    if (text.ends_with('+')) {
        fault.first = parseExchangeNumber(text.substr(0, text.size() - 1));
        fault.last = Fault::always;
        return;
    }
    const auto [first, last] = split(text, '-');
    fault.first = parseExchangeNumber(first);
    fault.last = last.data() == nullptr ? fault.first : parseExchangeNumber(last);
    if (fault.last < fault.first) {
        throw std::invalid_argument("'" + std::string(text) + "' ends before it begins");
    }
}

DeviceCall parseDeviceCall(std::string_view name) {
    const auto* const found = std::ranges::find(deviceCallNames, name);
    if (found == std::end(deviceCallNames)) {
        throw std::invalid_argument("'" + std::string(name) + "' is not a device call");
    }
    return static_cast<DeviceCall>(found - std::begin(deviceCallNames));
}

void parseDeviceError(std::string_view text, Fault& fault) {
    const auto [error, call] = split(text, '@');
    fault.kind = FaultKind::deviceError;
    fault.value = errnoNamed(error);
    fault.call = parseDeviceCall(call);
}

void parseBytes(std::string_view text, Fault& fault) {
    const auto [digits, place] = split(text, '@');
    fault.kind = FaultKind::bytes;
    fault.value = static_cast<int>(parseNumber(place, 0, longestAnswer));
    for (std::size_t done = 0; done < digits.size(); done += 2) {
        const std::string byte = "0x" + std::string(digits.substr(done, 2));
        fault.bytes.push_back(static_cast<unsigned char>(parseNumber(byte, 0, 0xFF)));
    }
}

void parseWhat(std::string_view text, Fault& fault) {
    const auto [word, argument] = split(text, '=');
    if (word == "errno") {
        parseDeviceError(argument, fault);
        return;
    }
    if (word == "bytes") {
        parseBytes(argument, fault);
        return;
    }
    const auto* const found = std::ranges::find(faultWords, word, &FaultWord::word);
    if (found == faultWords.end()) {
        throw std::invalid_argument("'" + std::string(word) + "' is no kind of fault");
    }
    if (!found->takesNumber && argument.data() != nullptr) {
        throw std::invalid_argument("'" + std::string(word) + "' takes no value");
    }
    fault.kind = found->kind;
    if (found->takesNumber) {
        fault.value = static_cast<int>(parseNumber(argument, found->least, found->most));
    }
}

unsigned long parseCallNumber(std::string_view text) {
    return static_cast<unsigned long>(parseNumber(text, 1, highestNumber));
}

} // namespace

Fault parseFault(std::string_view text) {
    const auto [exchanges, what] = split(text, ':');
    Fault fault;
    parseExchanges(exchanges, fault);
    parseWhat(what, fault);
    return fault;
}

FailingCall parseFailingCall(std::string_view text) {
    const auto [number, error] = split(text, ':');
    const bool fromThenOn = number.ends_with('+');
    const std::string_view digits = number.substr(0, number.size() - (fromThenOn ? 1 : 0));
    return {parseCallNumber(digits), fromThenOn, errnoNamed(error)};
}

RaisedSignal parseRaisedSignal(std::string_view text) {
    const auto [number, signal] = split(text, ':');
    return {parseCallNumber(number), parseSignal(signal)};
}

} // namespace sim
