#include "machine.h"

#include "memoryFile.h"
#include "portInformation.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::uint16_t bladeNumberVariable = 8960;
constexpr unsigned char noMark = 0x00; // the slot number command decides
constexpr std::string_view serialNumber = "SN00000001";
constexpr std::string_view chassisSerialNumber = "CH00000007";
constexpr const char* absent = "/nonexistent/smbios";

void putIntoChassis(Bmc& bmc, unsigned char mark) {
    bmc.mark = mark;
    const BladeLink& blade = bmc.blade.emplace();
    bmc.confSpace.values[bladeNumberVariable] = {blade.slotNumber};
}

void setUpPlain(Bmc& bmc) {
    bmc.mark = serverMark::plain;
}

void setUpBlade(Bmc& bmc) {
    putIntoChassis(bmc, serverMark::blade);
}

void setUpOldBlade(Bmc& bmc) {
    putIntoChassis(bmc, noMark);
    bmc.blade->makeOld();
}

void addAdapter(Bmc& bmc) {
    constexpr std::size_t fruSize = 2048;
    PortInformation record{.modules = {Module{}}};
    for (const std::uint8_t number : {std::uint8_t{0x11}, std::uint8_t{0x12}}) {
        const Mac mac = {2, 0, 0, 0, 0, number};
        record.modules[0].ports.push_back({{{.manufacturedMac = mac, .activeMac = mac}}});
    }
    bmc.fru.emplace().image = fruImage(record, fruSize);
}

void setUpNic(Bmc& bmc) {
    setUpPlain(bmc);
    addAdapter(bmc);
}

void setUpNicBlade(Bmc& bmc) {
    setUpBlade(bmc);
    addAdapter(bmc);
}

SmbiosTable makeTable(std::string_view product, std::string_view family,
                      std::initializer_list<std::string_view> enclosureSerials) {
    SmbiosTable table;
    table.addBios();
    table.addSystem({.product = product, .serialNumber = serialNumber, .family = family});
    for (const std::string_view enclosure : enclosureSerials) {
        table.addEnclosure(enclosure);
    }
    table.addEnd();
    return table;
}

SmbiosTable plainSmbios() {
    return makeTable("demo server", "demo", {serialNumber});
}

SmbiosTable bladeSmbios() {
    return makeTable("demo blade", "demo", {serialNumber, chassisSerialNumber});
}

SmbiosTable oldBladeSmbios() {
    return makeTable("demo blade", "demo", {chassisSerialNumber});
}

SmbiosTable kestrelboxSmbios() {
    return makeTable("demo blade", "KESTRELBOX", {serialNumber, chassisSerialNumber});
}

constexpr std::array<Machine, 6> machines = {{
    {"plain", setUpPlain, plainSmbios},
    {"blade", setUpBlade, bladeSmbios},
    {"old-blade", setUpOldBlade, oldBladeSmbios},
    {"kestrelbox", setUpBlade, kestrelboxSmbios},
    {"nic", setUpNic, plainSmbios},
    {"nic-blade", setUpNicBlade, bladeSmbios},
}};

constexpr std::array<std::pair<std::string_view, SmbiosForm>, 4> forms = {{
    {"sysfs2", SmbiosForm::sysfs2},
    {"sysfs3", SmbiosForm::sysfs3},
    {"legacy", SmbiosForm::legacy},
    {"none", SmbiosForm::none},
}};

} // namespace

const Machine& namedMachine(std::string_view name) {
    const auto* const found = std::ranges::find(machines, name, &Machine::name);
    if (found == machines.end()) {
        throw std::invalid_argument("'" + std::string(name) + "' is not a machine");
    }
    return *found;
}

SmbiosForm namedSmbiosForm(std::string_view name) {
    for (const auto& [known, form] : forms) {
        if (name == known) {
            return form;
        }
    }
    throw std::invalid_argument("'" + std::string(name) + "' is not a form of SMBIOS tables");
}

void showSmbios(const SmbiosTable& table, SmbiosForm form, HostFiles& files) {
    constexpr std::uint32_t highAddress = 0x7A000000; // where firmware keeps tables nowadays
    for (std::string* const path :
         {&files.physicalMemory, &files.esxiSmbios, &files.smbiosEntryPoint, &files.smbiosTable}) {
        *path = absent;
    }
    if (form == SmbiosForm::legacy) {
        files.physicalMemory = memoryFile(smbiosPhysicalMemory(table));
    }
    if (form == SmbiosForm::sysfs2 || form == SmbiosForm::sysfs3) {
        files.smbiosEntryPoint =
            memoryFile(form == SmbiosForm::sysfs2 ? smbiosEntryPoint2(table, highAddress)
                                                  : smbiosEntryPoint3(table, highAddress));
        files.smbiosTable = memoryFile(table.bytes());
    }
}

} // namespace sim
