#pragma once

#include "bmc.h"
#include "hostFiles.h"
#include "smbiosImage.h"

#include <string_view>

namespace sim {

/// A kind of server: how its BMC is, and what its firmware says of it.
struct Machine {
    const char* name;
    void (*setUp)(Bmc& bmc);
    SmbiosTable (*smbios)();
};

/// How the host shows its SMBIOS tables.
enum class SmbiosForm {
    sysfs2, // files of the kernel, SMBIOS 2.x
    sysfs3, // files of the kernel, SMBIOS 3.x
    legacy, // in physical memory below 1 MiB
    none,
};

/// By name; throw std::invalid_argument for an unknown one.
const Machine& namedMachine(std::string_view name);
SmbiosForm namedSmbiosForm(std::string_view name);

/// Points `files` to the tables in this form, and nowhere where there are none: never to those of
/// the real machine.
void showSmbios(const SmbiosTable& table, SmbiosForm form, HostFiles& files);

} // namespace sim
