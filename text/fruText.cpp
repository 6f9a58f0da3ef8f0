#include "fruText.h"

#include <array>

namespace sim {

namespace {

unsigned low16(Data bytes) {
    return bytes[0] | static_cast<unsigned>(bytes[1]) << 8U;
}

std::string deviceTold(Data request, Data response) {
    if (response.size() != 4) {
        return toldInHex(request, response);
    }
    return "FRU device " + std::to_string(response[0]) + " of " +
           std::to_string(low16(response.subspan(1))) + " bytes";
}

std::string readAsked(Data request) {
    if (request.size() != 4) {
        return hexText(request);
    }
    return std::to_string(request[3]) + " bytes at " + std::to_string(low16(request.subspan(1)));
}

std::string readTold(Data request, Data response) {
    return response.empty() ? toldInHex(request, response) : hexText(response.subspan(1));
}

std::string writeAsked(Data request) {
    constexpr std::size_t head = 3;
    if (request.size() <= head) {
        return hexText(request);
    }
    return std::to_string(request.size() - head) + " bytes at " +
           std::to_string(low16(request.subspan(1))) + " = " + hexText(request.subspan(head));
}

std::string countTold(Data request, Data response) {
    return response.size() == 1 ? std::to_string(response[0]) + " bytes"
                                : toldInHex(request, response);
}

constexpr std::array<CommandText, 4> fruCommands = {{
    {netfn::adapter, command::getAdapterFru, "Get adapter FRU", hexText, deviceTold},
    {netfn::storage, command::getFruAreaInfo, "Get FRU area info", hexText, toldInHex},
    {netfn::storage, command::readFruData, "Read FRU data", readAsked, readTold},
    {netfn::storage, command::writeFruData, "Write FRU data", writeAsked, countTold},
}};

} // namespace

std::span<const CommandText> fruTexts() noexcept {
    return fruCommands;
}

} // namespace sim
