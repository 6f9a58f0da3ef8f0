#pragma once

#include "wireBytes.h"

#include <cstddef>

// Frames of the blade commands (network function 0x30) and of the event to the management blade.

struct TavGetSlotNumberRespData {
    unsigned char completion_code;
    unsigned char sl_number;
};
static_assert(sizeof(TavGetSlotNumberRespData) == 2);

struct TavGetLANInfoReqData {
    struct {
        unsigned char number : 7;       ///< from 1
        unsigned char manufactured : 1; ///< always 0
    } lanPortNumber;
};
static_assert(sizeof(TavGetLANInfoReqData) == 1);

struct TavGetLANInfoRespData {
    unsigned char completion_code;
    unsigned char number_of_lan_ports;
    struct {
        unsigned char lan_type : 4;
        unsigned char lan_present : 1;
        unsigned char remot_deploy_port : 1;
        unsigned char pxe_boot_option : 1;
        unsigned char status : 1;
    } parameter;
    unsigned char mac_address[6];
    unsigned char quadrant_module_port[2];
};
static_assert(sizeof(TavGetLANInfoRespData) == 11);

/// As many addresses as ports, each with its last octet first; 45 fit into a response.
struct TavGetMacAddrsRespData {
    unsigned char completion_code;
    unsigned char number_of_lan_ports;
    unsigned char mac_addresses[45][6];
};
static_assert(offsetof(TavGetMacAddrsRespData, mac_addresses) == 2);

struct TavGetMMBIPAddressReqData {
    unsigned char addressType;
    unsigned char addressIndex;
};
static_assert(sizeof(TavGetMMBIPAddressReqData) == 2);

struct TavGetMMBIPAddressRespData {
    unsigned char completion_code;
    unsigned char address_type;
    unsigned char address_count;
    union {
        unsigned char ipv4_address[4];
        unsigned char ipv6_address[16];
    };
};
static_assert(sizeof(TavGetMMBIPAddressRespData) == 19);

struct TavGetMMBIPv4AddressRespData {
    unsigned char completion_code;
    unsigned char ipv4_address[4];
};
static_assert(sizeof(TavGetMMBIPv4AddressRespData) == 5);

struct TavGetMMBIpv6AddressCapabilityRespData {
    unsigned char completion_code;
    struct {
        unsigned char mmb : 1;
        unsigned char reserved : 7;
    } mmb_lan_port;
    struct {
        unsigned char cb1 : 1;
        unsigned char cb2 : 1;
        unsigned char cb3 : 1;
        unsigned char cb4 : 1;
        unsigned char cb5 : 1;
        unsigned char cb6 : 1;
        unsigned char cb7 : 1;
        unsigned char cb8 : 1;
    } cb_lan_port;
    unsigned char sb_lan_port;
};
static_assert(sizeof(TavGetMMBIpv6AddressCapabilityRespData) == 4);

struct TavGetMMBSecondPhysicalAddressReqData {
    unsigned char managerId;
};

struct TavGetMMBSecondPhysicalAddressRespData {
    unsigned char completion_code;
    unsigned char eth1_mac_address[6];
};
static_assert(sizeof(TavGetMMBSecondPhysicalAddressRespData) == 7);

struct TavSetServerBladeIpAddressReqData {
    unsigned char bladeId;       ///< slot number - 1
    unsigned char lanPortNumber; ///< port - 1
    unsigned char data[4];
};
static_assert(sizeof(TavSetServerBladeIpAddressReqData) == 6);

/// Goes out up to the last address byte.
struct TavSendServerBladeIpAddressInfoReqData {
    unsigned char bladeId; ///< slot number - 1
    struct {
        unsigned char number : 7; ///< port - 1
        unsigned char manufactured : 1;
    } lanPortNumber;
    unsigned char addressIndex;
    unsigned char addressType;
    unsigned char data[16];
};
static_assert(sizeof(TavSendServerBladeIpAddressInfoReqData) == 20);
static_assert(offsetof(TavSendServerBladeIpAddressInfoReqData, data) == 4);

/// A piece of a text; goes out up to its terminating zero.
struct TavSetServerBladeOSPlatformReqData {
    struct {
        unsigned char id : 6;   ///< slot number - 1
        unsigned char part : 2; ///< index of the piece
    } bladeId;
    unsigned char data[32];
};
static_assert(sizeof(TavSetServerBladeOSPlatformReqData) == 33);

struct TavSetServerBladeRespData {
    unsigned char completion_code;
};

/// Platform Event Message (IPMI 2.0, 29.3).
struct TavPlatformEventMessageIpmbReqData {
    unsigned char evMRev;
    unsigned char sensorType;
    unsigned char sensorNumber;
    unsigned char eventDir_eventType;
    unsigned char eventData_1;
    unsigned char eventData_2;
    unsigned char eventData_3;
};
static_assert(sizeof(TavPlatformEventMessageIpmbReqData) == 7);
