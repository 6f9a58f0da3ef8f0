#pragma once

#include "hostPaths.h"

#include <string>

namespace sim {

/// The host's files of a simulation, by default the real ones: paths that can be set.
struct HostFiles {
    std::string pidFile{HostPaths{}.pidFile};
    std::string productString{HostPaths{}.productString};
    std::string vibVersions{HostPaths{}.vibVersions};
    std::string physicalMemory{HostPaths{}.physicalMemory};
    std::string esxiSmbios{HostPaths{}.esxiSmbios};
    std::string smbiosEntryPoint{HostPaths{}.smbiosEntryPoint};
    std::string smbiosTable{HostPaths{}.smbiosTable};

    /// As the agent sees them; valid until one is set.
    HostPaths paths() const noexcept {
        return {pidFile.c_str(),        productString.c_str(), vibVersions.c_str(),
                physicalMemory.c_str(), esxiSmbios.c_str(),    smbiosEntryPoint.c_str(),
                smbiosTable.c_str()};
    }
};

} // namespace sim
