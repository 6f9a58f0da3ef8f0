#include "messagingText.h"

#include <array>

namespace sim {

std::span<const CommandText> messagingTexts() noexcept {
    static constexpr std::array<CommandText, 9> texts = {{
        {netfn::app, command::getDeviceGuid, "Get Device GUID", hexText, toldInHex},
        {netfn::app, command::setGlobalEnables, "Set BMC Global Enables", hexText, toldInHex},
        {netfn::app, command::getGlobalEnables, "Get BMC Global Enables", hexText, toldInHex},
        {netfn::app, command::clearMessageFlags, "Clear Message Flags", hexText, toldInHex},
        {netfn::app, command::getMessageFlags, "Get Message Flags", hexText, toldInHex},
        {netfn::app, command::getMessage, "Get Message", hexText, toldInHex},
        {netfn::app, command::sendMessage, "Send Message", hexText, toldInHex},
        {netfn::app, command::readEventBuffer, "Read Event Message Buffer", hexText, toldInHex},
        {netfn::app, command::getChannelInfo, "Get Channel Info", hexText, toldInHex},
    }};
    return texts;
}

} // namespace sim
