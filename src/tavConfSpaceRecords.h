#pragma once

#include "tavIpmiCmd.h"

// Frames of the configuration-space and agent-communication commands.

/// Stands for a string that nobody has set or that cannot be read.
inline constexpr const char* unknownText = "- unknown -";

/// Read of one variable.
struct TavConfSpaceReadReqData {
    tavIpmi::OemRequestPrefix prefix;
    unsigned char object_index;
    LittleEndian16 conf_space_variable;
};
static_assert(sizeof(TavConfSpaceReadReqData) == 7);
static_assert(offsetof(TavConfSpaceReadReqData, conf_space_variable) == 5);

struct TavConfSpaceReadRespData {
    tavIpmi::OemResponsePrefix prefix;
    unsigned char data_length; ///< value bytes that follow
    unsigned char data[255];
};
static_assert(sizeof(TavConfSpaceReadRespData) == 260);
static_assert(offsetof(TavConfSpaceReadRespData, data) == 5);

/// Write of one variable; goes out up to the last value byte.
struct TavConfSpaceWriteReqData {
    tavIpmi::OemRequestPrefix prefix;
    unsigned char object_index;
    LittleEndian16 conf_space_variable;
    unsigned char data_length;
    unsigned char data[255];
};
static_assert(sizeof(TavConfSpaceWriteReqData) == 263);
static_assert(offsetof(TavConfSpaceWriteReqData, data) == 8);

struct TavConfSpaceWriteRespData {
    tavIpmi::OemResponsePrefix prefix;
};
static_assert(sizeof(TavConfSpaceWriteRespData) == 4);

/// Agent connect, disconnect and status.
struct TavAgentConnectReqData {
    tavIpmi::OemRequestPrefix prefix;
};
static_assert(sizeof(TavAgentConnectReqData) == 4);

struct TavAgentConnectRespData {
    tavIpmi::OemResponsePrefix prefix;
    unsigned char data[2]; ///< status: 1, then the state (1 = connected)
};
static_assert(sizeof(TavAgentConnectRespData) == 6);
