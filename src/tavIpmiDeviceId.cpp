#include "tavIpmiDeviceId.h"

#include "agentClock.h"
#include "tavIpmi.h"
#include "tavSmbios.h"

#include <cstdio>
#include <new>

namespace tavIpmi {
namespace {

constexpr unsigned char bladeMarker = 'G';
constexpr unsigned char serverMarker = 'A';

class Lock {
  public:
    explicit Lock(pthread_mutex_t& mutex) noexcept : held(mutex) { ::pthread_mutex_lock(&held); }
    ~Lock() { ::pthread_mutex_unlock(&held); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    pthread_mutex_t& held;
};

/// Bytes as hex digits, `separator` between them.
std::string hex(std::initializer_list<unsigned> bytes, const char* separator = "") {
    std::string text;
    char digits[3];
    for (const unsigned byte : bytes) {
        static_cast<void>(std::snprintf(digits, sizeof digits, "%02x", byte & 0xFFU));
        text += (text.empty() ? "" : separator) + std::string(digits);
    }
    return text;
}

/// Without leading zeros; a negative number as its 32-bit two's complement.
std::string plainHex(int number) {
    char digits[9];
    static_cast<void>(std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned>(number)));
    return digits;
}

GetDeviceIdRespData fetchDeviceId(const TavIpmi& ipmi) {
    TavIpmi_request_msg msg(ipmi_netfn_req_app, ipmi_cmd_get_device_id);
    GetDeviceIdRespData response;
    if (!exchange(ipmi, msg, response) || msg.response().size() != sizeof response) {
        throw TavIpmiError("GetDeviceId does not yield response data.", __FILE__, __LINE__);
    }
    return response;
}

/// Firmware that leaves no marker is asked for a slot: only blades have one.
bool detectBlade(const TavIpmi& ipmi, const GetDeviceIdRespData& response) {
    if (response.auxFirmwareRevision2 == bladeMarker) {
        return true;
    }
    if (response.auxFirmwareRevision2 == serverMarker) {
        return false;
    }
    TavIpmi_request_msg msg(ipmi_netfn_req_oem_1, ipmi_oemcmd_get_slot_number);
    return exchange(ipmi, msg);
}

} // namespace

std::time_t TavIpmiDeviceIdData::last_update = 0;
unsigned int TavIpmiDeviceIdData::instance_count = 0;
pthread_mutex_t TavIpmiDeviceIdData::base_mutex = PTHREAD_MUTEX_INITIALIZER;
std::unique_ptr<GetDeviceIdRespData> TavIpmiDeviceIdData::data;

TavIpmiDeviceIdData::TavIpmiDeviceIdData() :
    kestrelbox(tavSmbios::isKestrelbox(tavSmbios::TavSmbios())) {
    {
        const Lock lock(base_mutex);
        ++instance_count;
    }
    try {
        update();
    } catch (...) {
        leave();
        throw;
    }
}

TavIpmiDeviceIdData::TavIpmiDeviceIdData(const TavIpmiDeviceIdData& other) {
    const Lock lock(base_mutex);
    *this = other;
    kestrelbox = other.kestrelbox;
    ++instance_count;
}

TavIpmiDeviceIdData& TavIpmiDeviceIdData::operator=(const TavIpmiDeviceIdData& other) {
    if (this != &other) {
        manufacturerId_string = other.manufacturerId_string;
        productId_string = other.productId_string;
        versonInfo_string = other.versonInfo_string;
        version_string = other.version_string;
        revision_number = other.revision_number;
        blade = other.blade;
        bmc = other.bmc;
        guid = other.guid;
    }
    return *this;
}

TavIpmiDeviceIdData::~TavIpmiDeviceIdData() {
    leave();
}

/// The last one takes the shared response with it. The time of an exchange that failed stays: it
/// keeps the next instance from asking a dead BMC again at once.
void TavIpmiDeviceIdData::leave() noexcept {
    const Lock lock(base_mutex);
    if (--instance_count == 0 && data) {
        data.reset();
        last_update = 0;
    }
}

/// Whether it is time to fetch; if so, the time counts as used, whatever comes of it.
bool TavIpmiDeviceIdData::takeTurn() {
    const std::time_t now = monotonicSeconds();
    const Lock lock(base_mutex);
    if (last_update != 0 && std::difftime(now, last_update) <= double{update_period}) {
        return false;
    }
    last_update = now;
    return true;
}

bool TavIpmiDeviceIdData::update() {
    if (kestrelbox || !takeTurn()) {
        return false;
    }
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    bmc = true;
    const GetDeviceIdRespData response = fetchDeviceId(ipmi);
    const bool isBladeServer = detectBlade(ipmi, response);
    const Lock lock(base_mutex);
    if (!data) {
        data.reset(new (std::nothrow) GetDeviceIdRespData);
        if (!data) {
            return true;
        }
    } else if (std::memcmp(data.get(), &response, sizeof response) == 0) {
        return false;
    }
    *data = response;
    derive(response, isBladeServer);
    return true;
}

void TavIpmiDeviceIdData::derive(const GetDeviceIdRespData& response, bool isBladeServer) {
    // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): the sign is meant
    const int major = response.firmwareRevision_1.majorFirmwareRevision;
    const unsigned minor = response.firmwareRevision_2;
    const unsigned char* const id = response.manufacturerId;
    const unsigned char* const aux = response.auxFirmwareRevision1;
    const unsigned product = response.productId;
    manufacturerId_string = hex({id[2], id[1], id[0]});
    productId_string = hex({product >> 8U, product});
    versonInfo_string = "IPMIv" + plainHex(response.ipmiVersion) + " - fw v" + plainHex(major) +
                        "." +
                        hex({minor, aux[0], aux[1], aux[2], response.auxFirmwareRevision2}, ".");
    version_string = plainHex(major) + "." + hex({minor}) + "." +
                     hex({aux[0], aux[1], aux[2], response.auxFirmwareRevision2});
    revision_number = static_cast<unsigned short>((static_cast<unsigned>(major) << 8U) | minor);
    blade = isBladeServer;
}

unsigned char TavIpmiDeviceIdData::getDeviceId() const {
    const Lock lock(base_mutex);
    return data ? data->deviceId : std::uint8_t{0};
}

} // namespace tavIpmi
