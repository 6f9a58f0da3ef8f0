#pragma once

#include "wireBytes.h"

#include <cstddef>

// Adapter and FRU commands (IPMI 2.0, 34.2 and 34.3), and what an adapter's FRU holds: the common
// header (IPMI FRU, 8) and the maker's port information record. Bits from the least significant.

struct TavGetMezzReqData {
    LittleEndian16 mezzId; ///< adapter, from 0
};
static_assert(sizeof(TavGetMezzReqData) == 2);

struct TavGetMezzRspData {
    unsigned char completion_code;
    unsigned char fruDeviceId;
    LittleEndian16 fruSize; ///< bytes
    unsigned char accessType;
};
static_assert(sizeof(TavGetMezzRspData) == 5);

struct TavFruReadReqData {
    unsigned char deviceId;
    LittleEndian16 fruOffset;
    unsigned char rdCount;
};
static_assert(sizeof(TavFruReadReqData) == 4);

struct TavFruReadRspData {
    unsigned char completion_code;
    unsigned char rdCount;
    unsigned char rdData[64];
};
static_assert(sizeof(TavFruReadRspData) == 66);

struct TavFruWriteReqData {
    unsigned char deviceId;
    LittleEndian16 fruOffset;
    unsigned char wrData[64];
};
static_assert(sizeof(TavFruWriteReqData) == 67);

struct TavFruWriteRspData {
    unsigned char completion_code;
    unsigned char wrCount;
};
static_assert(sizeof(TavFruWriteRspData) == 2);

/// At FRU offset 0. Area offsets count units of 8 bytes; the checksum makes the sum zero.
struct IpmiFruCommonHeader {
    unsigned char formatVersion;
    unsigned char internalUseAreaOffset;
    unsigned char chassisInfoAreaOffset;
    unsigned char boardAreaOffset;
    unsigned char productInfoAreaOffset;
    unsigned char multiRecordAreaOffset;
    unsigned char pad;
    unsigned char checksum;
};
static_assert(sizeof(IpmiFruCommonHeader) == 8);

struct OemInternalUseArea {
    unsigned char formatVersion;            ///< 1
    unsigned char areaSubtype;              ///< 1
    unsigned char oemMultirecordAreaOffset; ///< units of 8 bytes from this area's start
    unsigned char oemMultirecordCount;      ///< modules in the port information
    unsigned char pad[3];
    unsigned char checksum;
};
static_assert(sizeof(OemInternalUseArea) == 8);

struct OemPniMultirecordHeader {
    unsigned char recordTypeId; ///< 0xF0
    struct {
        unsigned char recordFormatVersion : 4; ///< 10 to 12
        unsigned char reserved : 3;
        unsigned char endOfList : 1;
    } recordInfo;
    LittleEndian16 recordLength;  ///< bytes of the body, which follows
    unsigned char recordChecksum; ///< makes the body's sum zero
    unsigned char headerChecksum; ///< makes this header's sum zero
};
static_assert(sizeof(OemPniMultirecordHeader) == 6);
static_assert(offsetof(OemPniMultirecordHeader, recordChecksum) == 4);

/// Record format in which technologies are names; they are codes in the later ones.
inline constexpr unsigned pniFormatWithNames = 10;

/// Start of every area in a list.
struct PniAreaId {
    unsigned char id : 5; ///< index in the list
    unsigned char bootStatus : 1;
    unsigned char enable : 1;
    unsigned char endOfList : 1; ///< set on the last one only
};
static_assert(sizeof(PniAreaId) == 1);

/// Start of the record's body; the modules follow.
struct PniCommonArea {
    unsigned char manufactureId[3];
    unsigned char subRecordTypeId; ///< 1
};
static_assert(sizeof(PniCommonArea) == 4);

struct PniModuleArea {
    PniAreaId moduleId;
    unsigned char recordLen; ///< bytes of this area; the first port follows
    unsigned char portCount;
    union {
        struct {
            char moduleName[19];
            unsigned char moduleTechType;
            unsigned char moduleType;
        } moduleAreaTypeA;
        unsigned char moduleAreaTypeB[21];
    } moduleProps;
    char fwVersion[32];
};
static_assert(sizeof(PniModuleArea) == 56);
static_assert(offsetof(PniModuleArea, fwVersion) == 24);

struct PniPortArea {
    PniAreaId portId;
    unsigned char recordLen; ///< bytes of this area; the first function follows
    unsigned char pfCount;
    unsigned char wolBehaviour;
};
static_assert(sizeof(PniPortArea) == 4);

/// Start of every port function; its specific part follows.
struct PniPortfnCommon {
    PniAreaId pfId;
    unsigned char totalRecordLen; ///< units of 4 bytes, specific part included
    unsigned char commonAreaLen;  ///< bytes
    struct {
        unsigned char enableRemoteDeploy : 1;
        unsigned char reserved1_7 : 7;
    } bootOptionId;
    char bootOptionName[10];
    union {
        struct {
            char technologyType[25]; ///< name, zero-terminated unless it fills the field
        } text;                      ///< format 10
        struct {
            unsigned char technologyType; ///< `Portfn_tech`
            LittleEndian16 speed;
            LittleEndian16 vlanId;
            unsigned char bandwidth;
            unsigned char rateLimit;
            unsigned char feature_support;
            unsigned char pciDeviceID[8];
            unsigned char functionList[9];
        } binary; ///< formats 11 and 12
    } functionProps;
};
static_assert(sizeof(PniPortfnCommon) == 39);
static_assert(offsetof(PniPortfnCommon, functionProps) == 14);

/// Specific part of a NIC port function. `ipAddress` holds the IPv4 addresses, then the IPv6
/// addresses, first octet first.
struct PniPortfnNic {
    unsigned char mfgMACAddr[6];
    unsigned char activeMACAddr[6];
    char opromVersion[32];
    struct {
        unsigned char ipv4 : 4; ///< number of IPv4 addresses
        unsigned char ipv6 : 4; ///< number of IPv6 addresses
    } numIpAddress;
    unsigned char ipAddress[300];
};
static_assert(sizeof(PniPortfnNic) == 345);
static_assert(offsetof(PniPortfnNic, ipAddress) == 45);
