#pragma once

#include "Guid.h"
#include "tavIpmiCmd.h"

#include <ctime>
#include <memory>
#include <string>

#include <pthread.h>

namespace tavIpmi {

/// Get Device ID response (IPMI 2.0, 20.1).
struct GetDeviceIdRespData {
    unsigned char completionCode;
    unsigned char deviceId;
    struct {
        unsigned char deviceRevision : 3;
        unsigned char reserved : 4;
        unsigned char providesSdr : 1;
    } deviceRevision;
    struct {
        signed char majorFirmwareRevision : 7; ///< signed: 0x40 and above read as negative
        unsigned char deviceAvailable : 1;
    } firmwareRevision_1;
    unsigned char firmwareRevision_2;
    unsigned char ipmiVersion;
    struct {
        unsigned char sensorDevice : 1;
        unsigned char sdrRepositoryDevice : 1;
        unsigned char selDevice : 1;
        unsigned char fruInventoryDevice : 1;
        unsigned char ipmbEventReceiver : 1;
        unsigned char ipmbEventGenerator : 1;
        unsigned char bridge : 1;
        unsigned char chassisDevice : 1;
    } addDeviceSupport;
    unsigned char manufacturerId[3]; ///< IANA number, little-endian
    LittleEndian16 productId;
    unsigned char auxFirmwareRevision1[3];
    unsigned char auxFirmwareRevision2; ///< tells blades from other servers, too
};
static_assert(sizeof(GetDeviceIdRespData) == 16);
static_assert(offsetof(GetDeviceIdRespData, manufacturerId) == 7);

/// Which BMC this server has, and whether the server is a blade. The response of Get Device ID is
/// shared by all instances of the process and fetched at most once in `update_period`; an instance
/// only derives its values from a response that it fetched itself and that was new.
class TavIpmiDeviceIdData {
  public:
    static constexpr int update_period = 300; ///< seconds

    /// Reads the SMBIOS tables and updates. Throws as update() and the tables' reader do.
    TavIpmiDeviceIdData();
    TavIpmiDeviceIdData(const TavIpmiDeviceIdData& other);
    /// Copies all but `kestrelbox`, which stays the target's own; takes no lock.
    TavIpmiDeviceIdData& operator=(const TavIpmiDeviceIdData& other);
    /// The last instance takes the shared response with it.
    virtual ~TavIpmiDeviceIdData();

    /// Fetches the response if the shared one is stale; true when this instance's values were
    /// derived anew. Servers of the KESTRELBOX line are not asked at all. Throws TavIpmiError.
    bool update();

    /// Device id of the shared response, 0 if there is none.
    unsigned char getDeviceId() const;
    std::string getManufacturerId() const { return manufacturerId_string; }
    std::string getProductId() const { return productId_string; }
    std::string getVersionInfo() const { return versonInfo_string; }
    std::string getVersion() const { return version_string; }
    Guid getGuidInfo() const { return guid; }
    /// Major revision in the high byte, minor in the low byte.
    unsigned short getRevisionNumber() const noexcept { return revision_number; }
    bool isBlade() const noexcept { return blade; }
    bool hasBmc() const noexcept { return bmc; }

  private:
    static void leave() noexcept;
    static bool takeTurn();
    void derive(const GetDeviceIdRespData& response, bool isBladeServer);

    std::string manufacturerId_string;
    std::string productId_string;
    std::string versonInfo_string;
    std::string version_string{"0.0.0000"};
    unsigned short revision_number{0};
    bool blade{false};
    bool bmc{true};
    bool kestrelbox{false};
    Guid guid;

    static std::time_t last_update; ///< 0: never
    static unsigned int instance_count;
    static pthread_mutex_t base_mutex; ///< guards the other static members
    static std::unique_ptr<GetDeviceIdRespData> data;
};

} // namespace tavIpmi
