#pragma once

#include <string>

/// The few files of the host that the agent reads or writes; the third seam to the outside.
struct HostPaths {
    std::string pidFile = "/var/run/tavd.pid";
    /// First line: name of the OS product (VMware ESXi only).
    std::string productString = "/opt/qmx/vmware-product-string";
    /// Version lines of the maker's installation bundles.
    std::string vibVersions = "/opt/qmx/cimprovider-versionstring";
};

/// The paths of this program. Exactly one definition is linked in.
const HostPaths& hostPaths() noexcept;
