// Building FRU images.

#include "portInformation.h"

#include "portRecord.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::size_t areaUnit = 8;
constexpr std::size_t functionUnit = 4;
constexpr unsigned char makerAreaAt = 1; // units of 8 bytes
constexpr unsigned char recordAt = 1;    // the same, behind the maker's area
constexpr unsigned char lastOfList = 0x80;
constexpr unsigned char enabled = 0x40;

unsigned char byteOf(std::size_t value) {
    if (value > 0xFF) {
        throw std::length_error("too long for its length field: " + std::to_string(value));
    }
    return static_cast<unsigned char>(value);
}

/// The byte that makes the sum of `bytes` and itself zero.
unsigned char zeroChecksum(Data bytes) {
    return static_cast<unsigned char>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U));
}

unsigned char areaId(std::size_t index, std::size_t count) {
    return static_cast<unsigned char>((index & 0x1FU) | enabled |
                                      (index + 1 == count ? lastOfList : 0U));
}

void put(Bytes& bytes, std::size_t offset, Data value) {
    std::ranges::copy(value, bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

void putText(Bytes& bytes, std::size_t offset, const std::string& text) {
    std::ranges::copy(text, bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

Bytes nicPart(const PortFunction& function) {
    const std::size_t used =
        portRecord::nicAddresses + 4 * function.ipv4.size() + 16 * function.ipv6.size();
    std::size_t length = std::max(used, function.specificLength);
    while ((function.commonLength + length) % functionUnit != 0) {
        ++length;
    }
    Bytes part(length);
    put(part, portRecord::nicManufacturedMac, function.manufacturedMac);
    put(part, portRecord::nicActiveMac, function.activeMac);
    putText(part, portRecord::nicRomVersion, "1.2.3");
    part[portRecord::nicAddressCounts] = byteOf(function.ipv4.size() | function.ipv6.size() << 4U);
    std::size_t place = portRecord::nicAddresses;
    for (const auto& address : function.ipv4) {
        put(part, place, address);
        place += address.size();
    }
    for (const auto& address : function.ipv6) {
        put(part, place, address);
        place += address.size();
    }
    return part;
}

void append(Bytes& bytes, Data more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes functionArea(const PortFunction& function, unsigned format, unsigned char id) {
    const Bytes specific = nicPart(function);
    const std::size_t length = function.commonLength + specific.size();
    // Whatever the common part's length, its fields are laid out first and then cut.
    Bytes area(std::max(function.commonLength, portRecord::commonLength));
    area[0] = id;
    area[portRecord::totalLength] = byteOf(length / functionUnit);
    area[portRecord::commonPartLength] = byteOf(function.commonLength);
    putText(area, portRecord::bootOption, "default");
    if (format == portRecord::formatWithNames) {
        putText(area, portRecord::technology, function.technology);
    } else {
        area[portRecord::technology] = technologyNumber(function.technology);
    }
    area.resize(function.commonLength);
    append(area, specific);
    return area;
}

Bytes portArea(const Port& port, unsigned format, unsigned char id) {
    Bytes area = {id, portRecord::portLength, byteOf(port.functions.size()), 0};
    for (std::size_t n = 0; n < port.functions.size(); ++n) {
        append(area, functionArea(port.functions[n], format, areaId(n, port.functions.size())));
    }
    return area;
}

Bytes moduleArea(const Module& module, unsigned format, bool last) {
    Bytes area(portRecord::moduleLength);
    area[0] = static_cast<unsigned char>(module.id | enabled | (last ? lastOfList : 0U));
    area[portRecord::areaLength] = portRecord::moduleLength;
    area[portRecord::childCount] = byteOf(module.ports.size());
    putText(area, portRecord::moduleName, "demo adapter");
    putText(area, portRecord::moduleFirmware, "4.5.6");
    for (std::size_t n = 0; n < module.ports.size(); ++n) {
        append(area, portArea(module.ports[n], format, areaId(n, module.ports.size())));
    }
    return area;
}

Bytes recordBody(const PortInformation& record) {
    Bytes body = {0xD9, 0x7E, 0x00, portRecord::subRecordType}; // the adapter's maker
    for (std::size_t n = 0; n < record.modules.size(); ++n) {
        append(body, moduleArea(record.modules[n], record.format, n + 1 == record.modules.size()));
    }
    return body;
}

} // namespace

Bytes fruImage(const PortInformation& record, std::size_t size) {
    const Bytes body = recordBody(record);
    Bytes image = {1, makerAreaAt, 0, 0, 0, 0, 0, 0};
    append(image, Bytes{1, 1, recordAt, byteOf(record.modules.size()), 0, 0, 0, 0});
    append(image,
           Bytes{portRecord::recordType, static_cast<unsigned char>(record.format | lastOfList),
                 static_cast<unsigned char>(body.size() & 0xFFU), byteOf(body.size() >> 8U), 0, 0});
    append(image, body);
    if (image.size() > size) {
        throw std::length_error("the record needs " + std::to_string(image.size()) + " bytes");
    }
    image.resize(size);
    fixChecksums(image);
    return image;
}

void fixChecksums(Bytes& image) {
    const PortRecordPlaces places = findPortRecord(image);
    const auto fix = [&image](std::size_t offset, std::size_t length) {
        if (offset + length <= image.size()) {
            const Data summed = Data(image).subspan(offset, length - 1);
            image[offset + length - 1] = zeroChecksum(summed);
        }
    };
    fix(0, areaUnit);
    fix(places.makerArea, areaUnit);
    if (places.body + places.bodyLength <= image.size()) {
        image[places.header + portRecord::bodyChecksum] =
            zeroChecksum(Data(image).subspan(places.body, places.bodyLength));
    }
    fix(places.header, portRecord::headerLength);
}

} // namespace sim
