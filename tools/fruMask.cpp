#include "fruMask.h"

#include "portRecord.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t offsetAt = 1; // in requests, two bytes, the low one first
constexpr std::size_t readRequest = 4;
constexpr std::size_t writeHead = 3;
constexpr std::size_t answerHead = 2; // completion code and count

std::size_t offsetIn(const Bytes& request) {
    return request[offsetAt] | static_cast<std::size_t>(request[offsetAt + 1]) << 8U;
}

} // namespace

void FruMask::apply(Exchange& exchange) {
    if (exchange.netfn != netfn::storage || exchange.request.size() < writeHead) {
        return;
    }
    const std::size_t offset = offsetIn(exchange.request);
    auto& response = exchange.response;
    if (exchange.cmd == command::writeFruData) {
        mask(offset, std::span(exchange.request).subspan(writeHead));
    } else if (exchange.cmd == command::readFruData && exchange.request.size() == readRequest &&
               response && response->size() > answerHead && response->front() == 0) {
        mask(offset, std::span(*response).subspan(answerHead));
    }
}

void FruMask::mask(std::size_t offset, std::span<unsigned char> piece) {
    const std::size_t end = offset + piece.size();
    image.resize(std::max(image.size(), end));
    const std::size_t source = sourceOf(offset, piece);
    std::ranges::copy(piece, image.begin() + static_cast<std::ptrdiff_t>(offset));
    if (source == offset) {
        findAddresses();
    }
    for (std::size_t i = 0; i < piece.size(); ++i) {
        piece[i] = static_cast<unsigned char>(piece[i] + addends[source + i]);
    }
}

/// Where a piece was before: a record in which a function grows is moved, piece by piece, and makes
/// no sense until that is over.
std::size_t FruMask::sourceOf(std::size_t offset, Data piece) const {
    constexpr std::size_t unit = 4; // functions grow by it
    constexpr std::size_t most = 256;
    for (std::size_t moved = 0; moved <= std::min(offset, most); moved += unit) {
        const std::size_t source = offset - moved;
        if (source + piece.size() <= addends.size() &&
            std::ranges::equal(piece, Data(image).subspan(source, piece.size()))) {
            return source;
        }
    }
    return offset;
}

/// Behind the area that begins there; what has no length is not known yet, nor what is behind it.
std::size_t FruMask::behindArea(std::size_t place, std::size_t lengthUnit) const {
    const std::size_t length = lengthUnit * at(place + portRecord::areaLength);
    return length == 0 ? image.size() : place + length;
}

/// Walks the record as far as it is known.
void FruMask::findAddresses() {
    addends.assign(image.size(), 0);
    const PortRecordPlaces places = findPortRecord(image);
    const std::size_t end = std::min(places.body + places.bodyLength, image.size());
    const bool names =
        (at(places.header + portRecord::formatVersion) & 0x0FU) == portRecord::formatWithNames;
    std::size_t place = places.body + portRecord::bodyHeadLength;
    for (unsigned modules = at(places.makerArea + 3); modules != 0 && place < end; --modules) {
        unsigned ports = at(place + portRecord::childCount);
        for (place = behindArea(place, 1); ports != 0 && place < end; --ports) {
            const unsigned functions = at(place + portRecord::childCount);
            place = findInPort(behindArea(place, 1), end, functions, names);
        }
    }
}

/// Gives the place behind the port's functions.
std::size_t FruMask::findInPort(std::size_t place, std::size_t end, unsigned functions,
                                bool namedTechnology) {
    for (; functions != 0 && place < end; --functions) {
        const std::size_t begin = place;
        place = behindArea(begin, 4);
        findInFunction(begin, std::min(place, end), namedTechnology);
    }
    return place;
}

void FruMask::findInFunction(std::size_t begin, std::size_t end, bool namedTechnology) {
    const std::size_t technology = begin + portRecord::technology;
    const bool isNic = namedTechnology ? at(technology) == 'N' : at(technology) == 0;
    if (isNic) {
        findInNic(begin + at(begin + portRecord::commonPartLength), end);
    }
}

void FruMask::findInNic(std::size_t nic, std::size_t end) {
    for (const std::size_t place :
         {nic + portRecord::nicManufacturedMac, nic + portRecord::nicActiveMac}) {
        if (place + 3 <= end) {
            note(place, end, shift.forMac(Data(image).subspan(place, 3)));
        }
    }
    const unsigned counts = at(nic + portRecord::nicAddressCounts);
    std::size_t place = nic + portRecord::nicAddresses;
    for (unsigned count = counts & 0x0FU; count != 0 && place < end; --count) {
        note(place, end, shift.forIpv4(Data(image).subspan(place)));
        place += AddressShift::Ipv4{}.size();
    }
    for (unsigned count = counts >> 4U; count != 0 && place + 2 <= end; --count) {
        note(place, end, shift.forIpv6(Data(image).subspan(place)));
        place += AddressShift::Ipv6{}.size();
    }
}

template <typename Secret>
void FruMask::note(std::size_t place, std::size_t end, const Secret& secret) {
    for (std::size_t i = 0; i < secret.size() && place + i < end; ++i) {
        addends[place + i] = secret[i];
    }
}

} // namespace sim
