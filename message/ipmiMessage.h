#pragma once

#include <chrono>
#include <functional>
#include <span>
#include <vector>

namespace sim {

using Bytes = std::vector<unsigned char>;
using Data = std::span<const unsigned char>;

/// Present time since some fixed moment, never set back.
using Now = std::function<std::chrono::milliseconds()>;

/// What one command gives back: the completion code and the response data behind it.
struct Reply {
    unsigned char code;
    Bytes data = {};
};

namespace netfn {
inline constexpr unsigned char sensorEvent = 0x04;
inline constexpr unsigned char app = 0x06;
inline constexpr unsigned char storage = 0x0A;
inline constexpr unsigned char oem = 0x2E;
inline constexpr unsigned char blade = 0x30;   // OEM, blades only
inline constexpr unsigned char adapter = 0x34; // OEM, servers whose adapters describe themselves
} // namespace netfn

namespace command {
inline constexpr unsigned char platformEvent = 0x02; // sensor/event
inline constexpr unsigned char getDeviceId = 0x01;
inline constexpr unsigned char getDeviceGuid = 0x08;
inline constexpr unsigned char resetWatchdogTimer = 0x22;
inline constexpr unsigned char setWatchdogTimer = 0x24;
inline constexpr unsigned char getWatchdogTimer = 0x25;
inline constexpr unsigned char setGlobalEnables = 0x2E;
inline constexpr unsigned char getGlobalEnables = 0x2F;
inline constexpr unsigned char clearMessageFlags = 0x30;
inline constexpr unsigned char getMessageFlags = 0x31;
inline constexpr unsigned char getMessage = 0x33;
inline constexpr unsigned char sendMessage = 0x34;
inline constexpr unsigned char readEventBuffer = 0x35;
inline constexpr unsigned char getChannelInfo = 0x42;
inline constexpr unsigned char getFruAreaInfo = 0x10;
inline constexpr unsigned char readFruData = 0x11;
inline constexpr unsigned char writeFruData = 0x12;
inline constexpr unsigned char agentCommunication = 0x02;  // OEM
inline constexpr unsigned char configurationSpace = 0xE0;  // OEM
inline constexpr unsigned char firmwareInformation = 0xF5; // OEM
inline constexpr unsigned char getAdapterFru = 0x40;       // OEM, adapters

// OEM, blades only:
inline constexpr unsigned char getSlotNumber = 0x18;
inline constexpr unsigned char getNicMacs = 0x55;
inline constexpr unsigned char getLanInfo = 0x75;
inline constexpr unsigned char getMmbIpv4Address = 0x80;
inline constexpr unsigned char getMmbIpv4Netmask = 0x81;
inline constexpr unsigned char setBladeIpAddress = 0xA3;
inline constexpr unsigned char setLongPlatformType = 0xA8;
inline constexpr unsigned char setPlatformType = 0xB0;
inline constexpr unsigned char setPlatformRelease = 0xB1;
inline constexpr unsigned char getMmbIpAddress = 0xE1;
inline constexpr unsigned char getMmbIpNetmask = 0xE3;
inline constexpr unsigned char sendBladeIpAddress = 0xE7;
inline constexpr unsigned char getIpv6Capability = 0xE8;
inline constexpr unsigned char getMmbSecondMac = 0xF0;
} // namespace command

namespace completion {
inline constexpr unsigned char success = 0x00;
inline constexpr unsigned char timerNotInitialised = 0x80; // Reset Watchdog Timer only
inline constexpr unsigned char queueEmpty = 0x80;          // Get Message only
inline constexpr unsigned char nakOnWrite = 0x83;          // nobody at that address of the bus
inline constexpr unsigned char invalidCommand = 0xC1;
inline constexpr unsigned char invalidForLun = 0xC2;
inline constexpr unsigned char requestLengthInvalid = 0xC7;
inline constexpr unsigned char parameterOutOfRange = 0xC9;
inline constexpr unsigned char cannotReturnThatMany = 0xCA;
inline constexpr unsigned char recordNotPresent = 0xCB;
inline constexpr unsigned char invalidDataField = 0xCC;
} // namespace completion

/// Bytes in front of an OEM request's data, and between completion code and data of its response.
inline constexpr std::size_t ianaLength = 3;

} // namespace sim
