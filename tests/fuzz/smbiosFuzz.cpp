// The SMBIOS reader on arbitrary images: every look-up comes back and stays inside.

#include "memoryFile.h"
#include "standIns.h"
#include "tavSmbios.h"

#include <fstream>
#include <stdexcept>

namespace {

/// Makes entry points of both forms credible, so that what they say is tried.
void mendEntryPoints(std::string& image) {
    const auto sumUp = [&image](std::size_t at, std::size_t from, std::size_t length) {
        unsigned sum = 0;
        image[at] = 0;
        for (const char byte : image.substr(from, length)) {
            sum += static_cast<unsigned char>(byte);
        }
        image[at] = static_cast<char>(0U - sum);
    };
    for (std::size_t at = 0; at + 31 <= image.size(); at += 16) {
        if (image.compare(at, 4, "_SM_") == 0) {
            image.replace(at + 16, 5, "_DMI_");
            sumUp(at + 21, at + 16, 15);
            sumUp(at + 4, at, static_cast<unsigned char>(image[at + 5]));
        } else if (image.compare(at, 5, "_SM3_") == 0) {
            sumUp(at + 5, at, static_cast<unsigned char>(image[at + 6]));
        }
    }
}

void lookUpEverything() {
    using namespace tavSmbios;
    const TavSmbios tables;
    for (const auto type : {smbios_type_BIOSInformation, smbios_type_SystemInformation,
                            smbios_type_SystemEnclosure, smbios_type_EndOfTable}) {
        tables.getEntryNumber(type);
        for (auto* entry = tables.getFirstEntry(type); entry != nullptr;
             entry = tables.getNextEntry(entry)) {
            for (const unsigned index : {0U, 1U, 2U, 3U, 4U, 8U, 255U}) {
                TavSmbios::getSmbiosStringS(entry, static_cast<unsigned char>(index));
            }
        }
    }
    isKestrelbox(tables);
}

} // namespace

/// The first byte says where the rest is found: as the kernel's table with a good entry point, as
/// its entry point, or as physical memory.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    static const std::string input = sim::memoryFile({});
    static const std::string other = sim::memoryFile({});
    static const std::string entryPoint3 = "_SM3_\x57\x18" + std::string(17, '\0');
    if (size == 0) {
        return 0;
    }
    const std::string table(reinterpret_cast<const char*>(bytes + 1), size - 1);
    std::string image = table;
    mendEntryPoints(image);
    std::ofstream(input) << (bytes[0] % 3 == 0 ? table : image);
    World world;
    sim::HostFiles& files = world.paths;
    if (bytes[0] % 3 == 0) {
        std::ofstream(other) << entryPoint3;
        files.smbiosEntryPoint = other;
        files.smbiosTable = input;
    } else if (bytes[0] % 3 == 1) {
        std::ofstream(other) << table;
        files.smbiosEntryPoint = input;
        files.smbiosTable = other;
    } else {
        files.physicalMemory = input;
    }
    try {
        lookUpEverything();
    } catch (const std::logic_error&) {
        // Said in the open: a source that cannot be read.
    }
    return 0;
}
