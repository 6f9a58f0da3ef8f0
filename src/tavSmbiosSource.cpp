// Where the structure table comes from.

#include "agentSignals.h"
#include "fileDescriptor.h"
#include "hostPaths.h"
#include "tavSmbios.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace tavSmbios {
namespace {

constexpr std::size_t blockLength = 4096;
constexpr std::size_t headerDistance = 16;
/// A structure may begin in the table's last byte and claim 255 bytes; two zeros end any string
/// set, and a header's length byte.
constexpr std::size_t guardLength = 255 + 3;
constexpr std::size_t mebibyte = 1U << 20U;
constexpr std::size_t everywhere = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t maxPublishedTable = 16U << 20U;

/// Entry point of SMBIOS 3.x.
struct SmbiosTableEntryPoint3 {
    char anchor[5]; ///< "_SM3_"
    unsigned char checksum;
    unsigned char entryPointLength;
    unsigned char majorVersion;
    unsigned char minorVersion;
    unsigned char docrev;
    unsigned char entryPointRevision;
    unsigned char reserved;
    LittleEndian32 maxTableLength;
    LittleEndian32 tableAddress[2];
};
static_assert(sizeof(SmbiosTableEntryPoint3) == 24);

/// Reads as much of `length` bytes as there is; -1 on an error.
ssize_t readAt(int device, unsigned char* to, std::size_t length, std::size_t position) noexcept {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count =
            ::pread(device, to + done, length - done, static_cast<off_t>(position + done));
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

/// A block of the device, with room for an entry point that reaches into the next one.
class Block {
  public:
    /// False at the end of the device. Throws std::logic_error when it cannot be read.
    bool read(int device, std::size_t position) {
        bytes.fill(0);
        const ssize_t count = readAt(device, bytes.data(), blockLength, position);
        if (count < 0) {
            throw std::logic_error("no data available");
        }
        return count > 0;
    }

    /// Offset of the first entry point, or `blockLength`.
    std::size_t findHeader(int device, std::size_t position) {
        for (std::size_t offset = 0; offset < blockLength; offset += headerDistance) {
            if (std::memcmp(&bytes[offset], "_SM_", 4) != 0) {
                continue;
            }
            // What lies behind this block may be forbidden: it is only read when it is needed.
            static_cast<void>(
                readAt(device, &bytes[blockLength], blockLength, position + blockLength));
            if (TavSmbios::isSmbiosHeader(reinterpret_cast<const char*>(&bytes[offset]))) {
                return offset;
            }
        }
        return blockLength;
    }

    ByteView from(std::size_t offset) const noexcept { return ByteView(bytes).subspan(offset); }

  private:
    std::array<unsigned char, 2 * blockLength> bytes{};
};

/// A whole small file; empty if it cannot be read or is larger than `limit`.
std::vector<unsigned char> contentOf(const std::string& path, std::size_t limit) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<unsigned char> bytes;
    std::array<unsigned char, blockLength> part{};
    ssize_t count = 0;
    while (file && (count = readAt(file.get(), part.data(), part.size(), bytes.size())) > 0) {
        bytes.insert(bytes.end(), part.begin(), part.begin() + count);
        if (bytes.size() > limit) {
            return {};
        }
    }
    return count == 0 ? bytes : std::vector<unsigned char>();
}

bool onlyZeros(ByteView bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

/// A regular file ends somewhere, and a mapping must not reach beyond; a device does not say.
bool endsBefore(int file, std::int64_t end) noexcept {
    struct stat status {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size < end;
}

} // namespace

TavSmbios::OSType TavSmbios::os = TavSmbios::ostype_unknown;

TavSmbios::TavSmbios() {
    utsname kernel{};
    ::uname(&kernel);
    if (std::strcmp(kernel.sysname, "VMkernel") == 0) {
        os = ostype_esxi;
        searchDevice(hostPaths().esxiSmbios, 0, everywhere);
        return;
    }
    if (std::strcmp(kernel.sysname, "Linux") != 0) {
        throw std::logic_error("unsupported Operating System");
    }
    os = ostype_linux;
    bool found = false;
    try {
        found = searchDevice(hostPaths().physicalMemory, 0, mebibyte);
    } catch (const std::logic_error&) {
        // Kernels keep most of physical memory to themselves.
        if (!loadPublishedTables()) {
            throw;
        }
        return;
    }
    if (data_len == 0 && !loadPublishedTables() && !found) {
        searchDevice(hostPaths().physicalMemory, mebibyte, everywhere);
    }
}

/// Loads what the first entry point from `position` on, and before `end`, leads to; false if there
/// is none. A search that an end of the agent overtakes finds none either.
bool TavSmbios::searchDevice(const char* path, std::size_t position, std::size_t end) {
    const FileDescriptor device(::open(path, O_RDONLY | O_CLOEXEC));
    if (!device) {
        return false;
    }
    Block block;
    for (; position < end && block.read(device.get(), position); position += blockLength) {
        if (const std::size_t offset = block.findHeader(device.get(), position);
            offset != blockLength) {
            readRecord(block.from(offset), entryPoint);
            loadTable(path, device.get(), position + offset);
            return true;
        }
        if ((position + blockLength) % mebibyte == 0 && agentSignals::endRequested()) {
            return false;
        }
    }
    return false;
}

void TavSmbios::loadTable(const char* path, int device, std::size_t entryPosition) {
    allocate(entryPoint.tableLength);
    // Addresses of 2 GiB and more count as negative here: no reader of this memory gets there.
    const auto address = static_cast<std::int32_t>(std::uint32_t{entryPoint.tableAddress});
    if (os == ostype_esxi) { // the device shows the table right behind its entry point
        readInto(device, static_cast<std::int64_t>(entryPosition + sizeof entryPoint));
    } else if (address >= std::int64_t{mebibyte}) {
        mmapData(path, address);
    } else {
        readInto(device, address);
    }
    if (onlyZeros({data.get(), data_len})) { // so kernels show memory that they keep to themselves
        data_len = 0;
    }
}

void TavSmbios::allocate(std::size_t length) {
    data.reset(static_cast<unsigned char*>(std::calloc(length + guardLength, 1)));
    if (!data) {
        throw std::logic_error("no memory available");
    }
    data_len = length;
}

/// Memory that ends before the table does has none; the ESXi device just ends.
void TavSmbios::readInto(int device, std::int64_t position) {
    const bool valid = position >= 0;
    const ssize_t count =
        valid ? readAt(device, data.get(), data_len, static_cast<std::size_t>(position)) : -1;
    if (count < 0 || (os == ostype_linux && static_cast<std::size_t>(count) != data_len)) {
        data.reset();
        data_len = 0;
        throw std::logic_error("no data available");
    }
    data_len = static_cast<std::size_t>(count);
}

void TavSmbios::mmapData(const char* path, long offset) {
    const FileDescriptor device(::open(path, O_RDONLY | O_CLOEXEC));
    if (!device) {
        throw std::logic_error("TavMmap::TavMmap: open failed");
    }
    const long delta = offset % ::sysconf(_SC_PAGESIZE);
    const std::size_t length = static_cast<std::size_t>(delta) + data_len;
    const auto end = static_cast<std::int64_t>(offset) + static_cast<std::int64_t>(data_len);
    void* const mapping =
        endsBefore(device.get(), end)
            ? MAP_FAILED
            : ::mmap(nullptr, length, PROT_READ, MAP_SHARED, device.get(), offset - delta);
    if (mapping == MAP_FAILED) {
        throw std::logic_error("TavMmap::TavMmap: mmap failed");
    }
    std::memcpy(data.get(), static_cast<const unsigned char*>(mapping) + delta, data_len);
    if (::munmap(mapping, length) != 0) {
        throw std::logic_error("TavMmap::TavMmap: munmap failed");
    }
}

bool TavSmbios::loadPublishedTables() {
    const std::vector<unsigned char> table = contentOf(hostPaths().smbiosTable, maxPublishedTable);
    if (onlyZeros(table) ||
        !takePublishedEntryPoint(contentOf(hostPaths().smbiosEntryPoint, blockLength))) {
        return false;
    }
    allocate(table.size());
    std::memcpy(data.get(), table.data(), table.size());
    constexpr std::size_t most = std::numeric_limits<std::uint16_t>::max();
    entryPoint.tableLength = static_cast<std::uint16_t>(std::min(table.size(), most));
    if (entryPoint.structureCount == 0) {
        entryPoint.structureCount =
            static_cast<std::uint16_t>(std::min<std::size_t>(countStructures(), most));
    }
    return true;
}

/// Fills the entry point record from either form; one of 3.x does not count the structures. False,
/// and nothing changed, when the bytes are neither.
bool TavSmbios::takePublishedEntryPoint(ByteView bytes) {
    const auto valid = [bytes](const char* text, unsigned char length, std::size_t least) {
        const std::string_view anchor(text);
        return length >= least && bytes.size() >= length &&
               std::memcmp(bytes.data(), text, anchor.size()) == 0 &&
               checksum(bytes.data(), length);
    };
    // Firmware of SMBIOS 2.1 may leave the last byte out.
    constexpr std::size_t shortest = offsetof(SmbiosTableEntryPoint, bcdRevision);
    SmbiosTableEntryPoint older;
    if (readRecord(bytes, older, shortest) && valid("_SM_", older.entryPointLength, shortest)) {
        entryPoint = older;
        return true;
    }
    SmbiosTableEntryPoint3 newer;
    if (!readRecord(bytes, newer) || !valid("_SM3_", newer.entryPointLength, sizeof newer)) {
        return false;
    }
    entryPoint = {};
    std::memcpy(entryPoint.anchor, "_SM_", sizeof entryPoint.anchor);
    entryPoint.majorVersion = newer.majorVersion;
    entryPoint.minorVersion = newer.minorVersion;
    return true;
}

} // namespace tavSmbios
