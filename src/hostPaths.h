#pragma once

#include <string>

/// The few files of the host that the agent reads or writes; the third seam to the outside.
struct HostPaths {
    std::string pidFile = "/var/run/tavd.pid";
    /// First line: name of the OS product (VMware ESXi only).
    std::string productString = "/opt/qmx/vmware-product-string";
    /// Version lines of the maker's installation bundles.
    std::string vibVersions = "/opt/qmx/cimprovider-versionstring";
    /// Physical memory, where legacy firmware leaves its SMBIOS tables.
    std::string physicalMemory = "/dev/mem";
    /// SMBIOS entry point with the tables behind it (VMware ESXi only).
    std::string esxiSmbios = "/vmfs/devices/char/mem/smbios";
    /// SMBIOS entry point as the Linux kernel publishes it.
    std::string smbiosEntryPoint = "/sys/firmware/dmi/tables/smbios_entry_point";
    /// SMBIOS tables as the Linux kernel publishes them.
    std::string smbiosTable = "/sys/firmware/dmi/tables/DMI";
};

/// The paths of this program. Exactly one definition is linked in.
const HostPaths& hostPaths() noexcept;
