#include "portRecord.h"

#include <algorithm>
#include <cstdint>

namespace sim {

unsigned char technologyNumber(std::string_view name) noexcept {
    const auto* const found = std::ranges::find(technologyNames, name);
    return found == technologyNames.end()
               ? std::uint8_t{255}
               : static_cast<unsigned char>(found - technologyNames.begin());
}

PortRecordPlaces findPortRecord(Data image) noexcept {
    constexpr std::size_t areaUnit = 8;
    const auto at = [image](std::size_t offset) {
        return offset < image.size() ? std::size_t{image[offset]} : 0;
    };
    PortRecordPlaces places{};
    places.makerArea = at(1) * areaUnit;
    places.header = places.makerArea + at(places.makerArea + 2) * areaUnit;
    places.body = places.header + portRecord::headerLength;
    places.bodyLength = at(places.header + portRecord::bodyLength) |
                        at(places.header + portRecord::bodyLength + 1) << 8U;
    return places;
}

} // namespace sim
