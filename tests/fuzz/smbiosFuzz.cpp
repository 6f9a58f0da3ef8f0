// The SMBIOS reader on arbitrary images: every look-up comes back and stays inside.

#include "agentSignals.h"
#include "hostFiles.h"
#include "tavSmbios.h"

#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// A file in memory whose content changes from input to input.
class Image {
  public:
    Image() : fd(::memfd_create("image", 0)) {}
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd); }
    void fill(const std::string& bytes) const {
        if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, bytes.data(), bytes.size(), 0) < 0) {
            throw std::runtime_error("no memory file");
        }
    }

  private:
    int fd;
};

sim::HostFiles& paths() {
    static sim::HostFiles all;
    return all;
}

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

HostPaths hostPaths() noexcept {
    return paths().paths();
}
bool agentSignals::endRequested() noexcept {
    return false;
}

/// The first byte says where the rest is found: as the kernel's table with a good entry point, as
/// its entry point, or as physical memory.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    static const Image input;
    static const Image other;
    static const std::string entryPoint3 = "_SM3_\x57\x18" + std::string(17, '\0');
    if (size == 0) {
        return 0;
    }
    const std::string table(reinterpret_cast<const char*>(bytes + 1), size - 1);
    std::string image = table;
    mendEntryPoints(image);
    input.fill(bytes[0] % 3 == 0 ? table : image);
    const std::string nowhere = "/nonexistent";
    paths().physicalMemory = nowhere;
    if (bytes[0] % 3 == 0) {
        other.fill(entryPoint3);
        paths().smbiosEntryPoint = other.path();
        paths().smbiosTable = input.path();
    } else if (bytes[0] % 3 == 1) {
        other.fill(table);
        paths().smbiosEntryPoint = input.path();
        paths().smbiosTable = other.path();
    } else {
        paths().physicalMemory = input.path();
        paths().smbiosTable = nowhere;
    }
    try {
        lookUpEverything();
    } catch (const std::logic_error&) {
        // Said in the open: a source that cannot be read.
    }
    return 0;
}
