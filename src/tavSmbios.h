#pragma once

#include "wireBytes.h"

#include <cstdlib>
#include <memory>
#include <string>

namespace tavSmbios {

/// Structure types of the DMTF's SMBIOS standard.
enum SmbiosEntryTypes {
    smbios_type_BIOSInformation = 0,
    smbios_type_SystemInformation = 1,
    smbios_type_BaseBoard = 2,
    smbios_type_SystemEnclosure = 3,
    smbios_type_ProcessorInformation = 4,
    smbios_type_MemoryControllerInformation = 5,
    smbios_type_MemoryModule = 6,
    smbios_type_CacheInformation = 7,
    smbios_type_PortConnnector = 8,
    smbios_type_SystemSlot = 9,
    smbios_type_OnBoardDevices = 10,
    smbios_type_OEMStrings = 11,
    smbios_type_SystemConfigurationOptions = 12,
    smbios_type_BIOSLanguageInformation = 13,
    smbios_type_GroupAssociations = 14,
    smbios_type_SystemEventLog = 15,
    smbios_type_PhysicalMemoryArray = 16,
    smbios_type_MemoryDevice = 17,
    smbios_type_32BitMemoryErrorInfo = 18,
    smbios_type_MemoryArrayMappedAddress = 19,
    smbios_type_MemoryDeviceMappedAddress = 20,
    smbios_type_BuiltinPointingDevice = 21,
    smbios_type_PortableBattery = 22,
    smbios_type_SystemReset = 23,
    smbios_type_HardwareSecurity = 24,
    smbios_type_SystemPowerControls = 25,
    smbios_type_VoltageProbe = 26,
    smbios_type_CoolingDevice = 27,
    smbios_type_TemperatureProbe = 28,
    smbios_type_ElectricalCurrentProbe = 29,
    smbios_type_OutofBandRemoteAccess = 30,
    smbios_type_BootIntegrityServicesEntryPoint = 31,
    smbios_type_SystemBootInformation = 32,
    smbios_type_64BitMemoryErrorInfo = 33,
    smbios_type_ManagementDevice = 34,
    smbios_type_ManagementDeviceComponent = 35,
    smbios_type_ManagementDeviceThresholdData = 36,
    smbios_type_MemoryChannel = 37,
    smbios_type_IPMIDeviceInformation = 38,
    smbios_type_SystemPowerSupply = 39,
    smbios_type_AdditionalInformation = 40,
    smbios_type_OnboardDevicesExtendedInform = 41,
    smbios_type_ManagementCtrLHostInterface = 42,
    smbios_type_Inactive = 126,
    smbios_type_EndOfTable = 127
};

/// Entry point of SMBIOS 2.x.
struct SmbiosTableEntryPoint {
    char anchor[4]; ///< "_SM_"
    unsigned char checksum;
    unsigned char entryPointLength;
    unsigned char majorVersion;
    unsigned char minorVersion;
    LittleEndian16 maxStructureSize;
    unsigned char entryPointRevision;
    unsigned char formattedArea[5];
    char intermediate_anchor[5]; ///< "_DMI_"
    unsigned char intermediate_checksum;
    LittleEndian16 tableLength; ///< bytes
    LittleEndian32 tableAddress;
    LittleEndian16 structureCount;
    unsigned char bcdRevision;
};
static_assert(sizeof(SmbiosTableEntryPoint) == 31);
static_assert(offsetof(SmbiosTableEntryPoint, tableLength) == 22);
static_assert(offsetof(SmbiosTableEntryPoint, structureCount) == 28);

/// Start of every structure.
struct SmbiosStructHeader {
    unsigned char type;
    unsigned char length; ///< of the formatted area, this header included
    LittleEndian16 handle;
};
static_assert(sizeof(SmbiosStructHeader) == 4);

/// Type 1. Strings are numbers into the structure's string set, 0 for none.
struct SMBSystemInformation {
    SmbiosStructHeader header;
    unsigned char manufacturer;
    unsigned char productName;
    unsigned char version;
    unsigned char serialNumber;
    unsigned char uuid[16];
    unsigned char wakeupReason;
    unsigned char skuNumber;
    unsigned char family;
};
static_assert(sizeof(SMBSystemInformation) == 27);

/// Type 3.
struct SMBSystemEnclosure {
    SmbiosStructHeader header;
    unsigned char manufacturer;
    unsigned char type;
    unsigned char version;
    unsigned char serialNumber;
    unsigned char assetTagNumber;
    unsigned char bootupState;
    unsigned char powerSupplyState;
    unsigned char thermalState;
    unsigned char securityStatus;
    unsigned char oemDefined[4];
    unsigned char height;
    unsigned char numberOfPowerCords;
    unsigned char numberOfContainedElements;
    unsigned char containedElementRecordLength;
};
static_assert(sizeof(SMBSystemEnclosure) == 21);

/// The host's SMBIOS structure table, read once at construction.
class TavSmbios {
  public:
    enum OSType {
        ostype_unknown = 0,
        ostype_linux = 1,
        ostype_esxi = 2
    };

    /// Searches the SMBIOS device (VMware ESXi) or, on Linux, the first mebibyte of physical memory
    /// for the table; there the kernel's published tables are the second choice, and the rest of
    /// the memory the last. A source that cannot be opened, or has no table, leaves the reader
    /// empty, and so does an end that is requested during a long search. Throws std::logic_error
    /// when reading fails and there is no second choice.
    TavSmbios();
    TavSmbios(const TavSmbios&) = delete;
    TavSmbios& operator=(const TavSmbios&) = delete;
    virtual ~TavSmbios() = default;

    /// Number of structures of a type, among the first `structureCount`.
    unsigned getEntryNumber(SmbiosEntryTypes type) const noexcept;
    /// First structure of a type, or null.
    SmbiosStructHeader* getFirstEntry(SmbiosEntryTypes type) const noexcept;
    /// Next structure of the type of `entry`, which is one of this table, or null.
    SmbiosStructHeader* getNextEntry(SmbiosStructHeader* entry) const noexcept;

    // For structures of a table only: they rely on the guard bytes behind it.
    /// Length with the string set; 0 if the formatted area claims to be empty.
    static std::size_t dataLength(const SmbiosStructHeader* entry) noexcept;
    /// String number `index` of a structure; empty if there is none. Lives as long as the table.
    static const char* getSmbiosString(const SmbiosStructHeader* entry,
                                       unsigned char index) noexcept;
    /// The same without trailing blanks.
    static std::string getSmbiosStringS(const SmbiosStructHeader* entry, unsigned char index);
    /// The structure as a record; what its formatted area does not have is zero.
    template <typename Record>
    static Record record(const SmbiosStructHeader& entry) noexcept {
        Record result;
        readRecord({reinterpret_cast<const unsigned char*>(&entry), entry.length}, result);
        return result;
    }

    /// Whether the 8-bit sum of the bytes is 0.
    static bool checksum(const unsigned char* bytes, std::size_t length) noexcept;
    /// Whether an entry point of SMBIOS 2.x stands here; up to 255 bytes are looked at.
    static bool isSmbiosHeader(const char* bytes) noexcept;

    const SmbiosTableEntryPoint& getEntryPoint() const noexcept { return entryPoint; }

  private:
    struct Free {
        void operator()(void* block) const noexcept { std::free(block); }
    };

    bool searchDevice(const char* path, std::size_t position, std::size_t end);
    void loadTable(const char* path, int device, std::size_t entryPosition);
    bool loadPublishedTables();
    bool takePublishedEntryPoint(ByteView bytes);
    void allocate(std::size_t length);
    void readInto(int device, std::int64_t position);
    void mmapData(const char* path, long offset);
    unsigned countStructures() const noexcept;
    SmbiosStructHeader* entryAt(std::size_t position) const noexcept;
    SmbiosStructHeader* findFrom(std::size_t position, unsigned char type) const noexcept;
    std::size_t positionAfter(const SmbiosStructHeader* entry) const noexcept;

    std::unique_ptr<unsigned char, Free> data; ///< the table and guard bytes; null if none
    std::size_t data_len{0};
    SmbiosTableEntryPoint entryPoint{};
    static OSType os;
    static const char empty_string[2];
};

/// Whether the tables describe a server of the KESTRELBOX line: by its family's whole name or by
/// the word in its product name. False without a System Information structure.
bool isKestrelbox(const TavSmbios& tables) noexcept;

} // namespace tavSmbios
