#pragma once

/// The few files of the host that the agent reads or writes; the third seam to the outside. The
/// texts outlive the agent.
struct HostPaths {
    const char* pidFile = "/var/run/tavd.pid";
    /// First line: name of the OS product (VMware ESXi only).
    const char* productString = "/opt/qmx/vmware-product-string";
    /// Version lines of the maker's installation bundles.
    const char* vibVersions = "/opt/qmx/cimprovider-versionstring";
    /// Physical memory, where legacy firmware leaves its SMBIOS tables.
    const char* physicalMemory = "/dev/mem";
    /// SMBIOS entry point with the tables behind it (VMware ESXi only).
    const char* esxiSmbios = "/vmfs/devices/char/mem/smbios";
    /// SMBIOS entry point as the Linux kernel publishes it.
    const char* smbiosEntryPoint = "/sys/firmware/dmi/tables/smbios_entry_point";
    /// SMBIOS tables as the Linux kernel publishes them.
    const char* smbiosTable = "/sys/firmware/dmi/tables/DMI";
};

/// The paths of this program. Exactly one definition is linked in.
HostPaths hostPaths() noexcept;
