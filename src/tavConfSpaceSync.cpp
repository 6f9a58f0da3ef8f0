// Reading the configuration space, and the agent's connection state at the BMC.

#include "tavConfSpaceData.h"
#include "tavIpmi.h"

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace {

constexpr unsigned char connectedState = 1;

/// Reads variables one after another over one message.
class VariableReader {
  public:
    explicit VariableReader(const TavIpmi& connection) : ipmi(connection) {}

    /// The variable's bytes, valid until the next read; nothing when the BMC did not answer, gave
    /// a completion code or sent fewer bytes than its own length field says.
    std::optional<ByteView> read(TavConfSpaceData::ValueIds id) {
        TavConfSpaceReadReqData request{};
        request.prefix = tavIpmi::oemPrefix(tavIpmi::cmd_spec_space_read);
        request.conf_space_variable = static_cast<std::uint16_t>(id);
        msg.replaceSendData(recordBytes(request));
        constexpr std::size_t header = offsetof(TavConfSpaceReadRespData, data);
        if (!exchange(ipmi, msg, response, header) ||
            msg.response().size() < header + response.data_length) {
            return std::nullopt;
        }
        return ByteView(response.data, response.data_length);
    }

    /// The same for a value that must have `length` bytes.
    std::optional<ByteView> read(TavConfSpaceData::ValueIds id, std::size_t length) {
        const std::optional<ByteView> value = read(id);
        return value && value->size() == length ? value : std::nullopt;
    }

  private:
    const TavIpmi& ipmi;
    TavIpmi_request_msg msg{tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_group_configuration};
    TavConfSpaceReadRespData response{};
};

std::string textOf(const std::optional<ByteView>& value) {
    return value ? std::string(value->begin(), value->end()) : unknownText;
}

/// A watchdog variable; throws when it cannot be read, for that ends the reading.
ByteView readOrThrow(VariableReader& reader, TavConfSpaceData::ValueIds id, std::size_t length) {
    const std::optional<ByteView> value = reader.read(id, length);
    if (!value) {
        throw TavConfSpaceDataError("Cannot read ConfigSpaceVariable: ", __FILE__, __LINE__);
    }
    return *value;
}

bool readFlag(VariableReader& reader, TavConfSpaceData::ValueIds id) {
    return readOrThrow(reader, id, 1)[0] == 1;
}

std::uint16_t readSeconds(VariableReader& reader, TavConfSpaceData::ValueIds id) {
    const ByteView value = readOrThrow(reader, id, 2);
    return static_cast<std::uint16_t>(value[0] + 256U * value[1]);
}

/// Takes the behaviours that exist; others leave the field as it is.
void readBehaviour(VariableReader& reader, TavConfSpaceData::ValueIds id,
                   TavConfSpaceData::WatchdogBehaviour& field) {
    const unsigned char value = readOrThrow(reader, id, 1)[0];
    if (value == TavConfSpaceData::watchdog_behaviour_continue ||
        value == TavConfSpaceData::watchdog_behaviour_reset ||
        value == TavConfSpaceData::watchdog_behaviour_powercycle) {
        field = static_cast<TavConfSpaceData::WatchdogBehaviour>(value);
    }
}

} // namespace

void TavConfSpaceData::update(bool blade) {
    try {
        const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
        if (!readStrings(ipmi)) {
            return;
        }
        readAddresses(ipmi);
        if (blade) {
            readBladeNumber(ipmi);
        }
    } catch (const tavIpmi::TavIpmiError&) {
        // What was read so far stands; the device may be back for the writes.
    }
}

/// False when the first variable cannot be read: this BMC has no configuration space.
bool TavConfSpaceData::readStrings(const TavIpmi& ipmi) {
    VariableReader reader(ipmi);
    const std::optional<ByteView> location = reader.read(conf_cabinet_location);
    available = available && location.has_value();
    cabinetLocation = textOf(location);
    if (!location) {
        return false;
    }
    systemName = textOf(reader.read(conf_system_name));
    biosVersion = textOf(reader.read(conf_system_biosversion));
    systemDescription = textOf(reader.read(conf_system_description));
    systemContact = textOf(reader.read(conf_system_contact));
    serverCabinetModel = textOf(reader.read(conf_server_cabinetmodel));
    serverChassisModel = textOf(reader.read(conf_server_chassismodel));
    serverSerialNumber = textOf(reader.read(conf_server_serialnumber));
    serverOperatingSystem = textOf(reader.read(conf_server_operating_system));
    serverVendorName = textOf(reader.read(conf_server_vendorname));
    return true;
}

void TavConfSpaceData::readAddresses(const TavIpmi& ipmi) {
    VariableReader reader(ipmi);
    const auto readInto = [&reader](ValueIds id, IPv4Address& field) {
        const std::optional<ByteView> value = reader.read(id, sizeof field.v);
        field = IPv4Address();
        if (value) {
            field = value->data();
        }
    };
    readInto(conf_server_IPAddress1, ipAddr_1);
    readInto(conf_server_IPAddress2, ipAddr_2);
    readInto(conf_server_IPAddress3, ipAddr_3);
    readInto(conf_server_IPAddress4, ipAddr_4);
}

void TavConfSpaceData::readBladeNumber(const TavIpmi& ipmi) {
    VariableReader reader(ipmi);
    if (const std::optional<ByteView> value = reader.read(conf_server_bladenumber, 1)) {
        bladenumber = (*value)[0];
    }
}

void TavConfSpaceData::updateWatchdogParameter() noexcept {
    try {
        readWatchdogVariables();
    } catch (const std::exception&) {
        // The variables after the one that failed keep their values; the next cycle asks again.
    }
}

void TavConfSpaceData::readWatchdogVariables() {
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    VariableReader reader(ipmi);
    bootWatchdogEnabled = readFlag(reader, conf_boot_watchdog_enable);
    softWatchdogEnabled = readFlag(reader, conf_soft_watchdog_enable);
    bootWatchdogTime = readSeconds(reader, conf_boot_watchdog_time);
    softWatchdogTime = readSeconds(reader, conf_soft_watchdog_time);
    readBehaviour(reader, conf_boot_watchdog_behaviour, bootWatchdogBehaviour);
    readBehaviour(reader, conf_soft_watchdog_behaviour, softWatchdogBehaviour);
}

bool TavConfSpaceData::changeAgentConnectionStatus(
    AgentConnectionStatus connectionStatus) noexcept {
    try {
        exchangeAgentConnection(connectionStatus);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void TavConfSpaceData::exchangeAgentConnection(AgentConnectionStatus connectionStatus) {
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_agentCommunication);
    const auto request = [&msg](unsigned char specifier) {
        msg.replaceSendData(recordBytes(TavAgentConnectReqData{tavIpmi::oemPrefix(specifier)}));
    };
    request(tavIpmi::cmd_spec_agentStatus);
    TavAgentConnectRespData status;
    if (exchange(ipmi, msg, status) && status.data[0] == 1) {
        connected = status.data[1] == connectedState;
    }
    if (connected && connectionStatus == agent_disconnected) {
        request(tavIpmi::cmd_spec_agentDisconnect);
    } else if (!connected && connectionStatus == agent_connected) {
        request(tavIpmi::cmd_spec_agentConnect);
    } else {
        return;
    }
    if (exchange(ipmi, msg)) {
        connected = connectionStatus == agent_connected;
    }
}
