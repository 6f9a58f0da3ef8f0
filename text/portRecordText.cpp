// Reading a port information record, for people.

#include "portRecordText.h"

#include "portRecord.h"
#include "text.h"

#include <algorithm>
#include <numeric>
#include <optional>

namespace sim {

namespace {

std::string indented(unsigned depth, const std::string& text) {
    return std::string(2 + 2 * std::size_t{depth}, ' ') + text + "\n";
}

std::string checksumText(Data bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), 0U) % 256 == 0 ? "right" : "wrong";
}

/// Walks the lists of a body and writes down what it finds, up to the first thing that is broken.
class TreeWriter {
  public:
    TreeWriter(Data body, unsigned format_) : rest(body), format(format_) {}

    std::string write(unsigned modules) {
        if (take(portRecord::bodyHeadLength)) {
            for (unsigned m = 0; m < modules && !broken; ++m) {
                writeModule(m);
            }
        }
        return text + (broken ? indented(0, "broken from here on") : "");
    }

  private:
    /// The next bytes; none, and broken, when there are not that many.
    std::optional<Data> take(std::size_t length) {
        if (length > rest.size()) {
            broken = true;
            return std::nullopt;
        }
        const Data taken = rest.first(length);
        rest = rest.subspan(length);
        return taken;
    }

    /// The area that begins here, by its own length; at least the fields of a list are there.
    std::optional<Data> takeArea(std::size_t lengthUnit) {
        constexpr std::size_t listFields = 3;
        if (rest.size() < listFields || rest[portRecord::areaLength] * lengthUnit < listFields) {
            broken = true;
            return std::nullopt;
        }
        return take(rest[portRecord::areaLength] * lengthUnit);
    }

    void writeModule(unsigned index) {
        if (const auto area = takeArea(1)) {
            text += indented(0, "module " + std::to_string(index));
            for (unsigned p = 0; p < (*area)[portRecord::childCount] && !broken; ++p) {
                writePort(p);
            }
        }
    }

    void writePort(unsigned index) {
        if (const auto area = takeArea(1)) {
            text += indented(1, "port " + std::to_string(index));
            for (unsigned f = 0; f < (*area)[portRecord::childCount] && !broken; ++f) {
                writeFunction(f);
            }
        }
    }

    void writeFunction(unsigned index) {
        if (const auto area = takeArea(4)) {
            const std::size_t common =
                std::min<std::size_t>((*area)[portRecord::commonPartLength], area->size());
            const std::string technology = technologyOf(area->first(common));
            text += indented(2, "function " + std::to_string(index) + ": " + technology);
            if (technology == "NIC") {
                writeNic(area->subspan(common));
            }
        }
    }

    std::string technologyOf(Data common) const {
        if (common.size() <= portRecord::technology) {
            return "unknown";
        }
        const Data field = common.subspan(portRecord::technology);
        if (format == portRecord::formatWithNames) {
            const Data name = field.first(std::min(field.size(), portRecord::technologyLength));
            return {name.begin(), std::ranges::find_if_not(
                                      name, [](unsigned char c) { return ' ' <= c && c <= '~'; })};
        }
        return field[0] < technologyNames.size() ? std::string(technologyNames[field[0]])
                                                 : "number " + std::to_string(field[0]);
    }

    void writeNic(Data nic) {
        if (nic.size() < portRecord::nicAddresses) {
            text += indented(3, "too short");
            return;
        }
        const std::string active = macText(nic.subspan(portRecord::nicActiveMac, macLength));
        const std::string made = macText(nic.subspan(portRecord::nicManufacturedMac, macLength));
        text +=
            indented(3, "MAC " + active + (made == active ? "" : " (manufactured " + made + ")"));
        Data list = nic.subspan(portRecord::nicAddresses);
        const unsigned counts = nic[portRecord::nicAddressCounts];
        writeAddresses(list, counts & 0x0FU, 4);
        writeAddresses(list, counts >> 4U, 16);
    }

    void writeAddresses(Data& list, unsigned count, std::size_t length) {
        for (unsigned n = 0; n < count; ++n) {
            if (list.size() < length) {
                text += indented(3, "addresses cut off");
                return;
            }
            text += indented(3, addressText(list.first(length)));
            list = list.subspan(length);
        }
    }

    Data rest;
    unsigned format;
    std::string text;
    bool broken = false;
};

} // namespace

std::string portInformationText(Data image) {
    constexpr std::size_t makerAreaLength = 8;
    const PortRecordPlaces places = findPortRecord(image);
    if (places.makerArea + makerAreaLength > image.size() || places.body > image.size() ||
        image[places.header] != portRecord::recordType) {
        return indented(0, "no record");
    }
    const Data header = image.subspan(places.header, portRecord::headerLength);
    const std::size_t length = std::min(places.bodyLength, image.size() - places.body);
    const Data body = image.subspan(places.body, length);
    const unsigned format = header[portRecord::formatVersion] & 0x0FU;
    // The body's checksum stands in the header.
    Bytes summed(body.begin(), body.end());
    summed.push_back(header[portRecord::bodyChecksum]);
    return indented(0, "format " + std::to_string(format) + ", " +
                           std::to_string(places.bodyLength) + " bytes, checksums: header " +
                           checksumText(header) + ", body " + checksumText(summed)) +
           TreeWriter(body, format).write(image[places.makerArea + 3]);
}

} // namespace sim
