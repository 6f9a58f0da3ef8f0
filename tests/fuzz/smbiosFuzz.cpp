// The SMBIOS reader on arbitrary images: every look-up comes back and stays inside.

#include "hostPaths.h"
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
    void fill(const unsigned char* bytes, std::size_t size) const {
        if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, bytes, size, 0) < 0) {
            throw std::runtime_error("no memory file");
        }
    }

  private:
    int fd;
};

HostPaths& paths() {
    static HostPaths all;
    return all;
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

const HostPaths& hostPaths() noexcept {
    return paths();
}

/// The first byte says where the rest is found: as the kernel's table with a good entry point, as
/// its entry point, or as physical memory.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    static const Image input;
    static const Image other;
    static const unsigned char entryPoint3[24] = {'_', 'S', 'M', '3', '_'};
    if (size == 0) {
        return 0;
    }
    input.fill(bytes + 1, size - 1);
    const std::string nowhere = "/nonexistent";
    paths().physicalMemory = nowhere;
    if (bytes[0] % 3 == 0) {
        other.fill(entryPoint3, sizeof entryPoint3);
        paths().smbiosEntryPoint = other.path();
        paths().smbiosTable = input.path();
    } else if (bytes[0] % 3 == 1) {
        other.fill(bytes, size);
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
