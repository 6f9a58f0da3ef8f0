// The mirror's fields and their single-variable writes.

#include "tavConfSpaceData.h"

#include "tavIpmi.h"

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace {

constexpr std::size_t maxStringLength = 255;

std::string encoded(const IPv4Address& address) {
    return {std::begin(address.v), std::end(address.v)};
}

std::string encoded(bool flag) {
    return {static_cast<char>(flag)};
}

std::string encoded(std::uint16_t seconds) {
    return {static_cast<char>(seconds & 0xFFU), static_cast<char>(seconds >> 8U)};
}

std::string encoded(TavConfSpaceData::WatchdogBehaviour behaviour) {
    return {static_cast<char>(behaviour)};
}

} // namespace

TavConfSpaceData::TavConfSpaceData(bool blade) {
    for (std::string* text : {&cabinetLocation, &systemName, &biosVersion, &systemDescription,
                              &systemContact, &serverCabinetModel, &serverChassisModel,
                              &serverSerialNumber, &serverOperatingSystem, &serverVendorName}) {
        *text = unknownText;
    }
    update(blade);
}

/// The variable's bytes on the wire; nothing for those that cannot be written.
std::optional<std::string> TavConfSpaceData::encodedValue(ValueIds id) const {
    switch (id) {
    case conf_cabinet_location:
        return cabinetLocation;
    case conf_system_name:
        return systemName;
    case conf_system_biosversion:
        return biosVersion;
    case conf_system_description:
        return systemDescription;
    case conf_system_contact:
        return systemContact;
    case conf_server_cabinetmodel:
        return serverCabinetModel;
    case conf_server_chassismodel:
        return serverChassisModel;
    case conf_server_serialnumber: // the BMC expects the vendor name here
    case conf_server_vendorname:
        return serverVendorName;
    case conf_server_operating_system:
        return serverOperatingSystem;
    case conf_server_IPAddress1:
        return encoded(ipAddr_1);
    case conf_server_IPAddress2:
        return encoded(ipAddr_2);
    case conf_server_IPAddress3:
        return encoded(ipAddr_3);
    case conf_server_IPAddress4:
        return encoded(ipAddr_4);
    case conf_boot_watchdog_enable:
        return encoded(bootWatchdogEnabled);
    case conf_boot_watchdog_time:
        return encoded(bootWatchdogTime);
    case conf_boot_watchdog_behaviour:
        return encoded(bootWatchdogBehaviour);
    case conf_soft_watchdog_enable:
        return encoded(softWatchdogEnabled);
    case conf_soft_watchdog_time:
        return encoded(softWatchdogTime);
    case conf_soft_watchdog_behaviour:
        return encoded(softWatchdogBehaviour);
    case conf_server_bladenumber:
    default:
        return std::nullopt;
    }
}

/// Writes the mirror's present value of one variable; true when the BMC took it.
bool TavConfSpaceData::set(ValueIds id) {
    const std::optional<std::string> value = encodedValue(id);
    if (!value) {
        return false;
    }
    TavConfSpaceWriteReqData request{};
    request.prefix = tavIpmi::oemPrefix(tavIpmi::cmd_spec_space_write);
    request.conf_space_variable = static_cast<std::uint16_t>(id);
    const std::size_t length = std::min(value->size(), maxStringLength);
    request.data_length = static_cast<unsigned char>(length);
    std::memcpy(request.data, value->data(), length);
    try {
        const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
        TavIpmi_request_msg msg(
            tavIpmi::ipmi_netfn_req_oem, tavIpmi::ipmi_oemcmd_group_configuration,
            recordBytes(request, offsetof(TavConfSpaceWriteReqData, data) + length));
        return exchange(ipmi, msg);
    } catch (const tavIpmi::TavIpmiError&) {
        return false;
    }
}

bool TavConfSpaceData::setString(std::string& field, const std::string& value, ValueIds id) {
    if (value.size() > maxStringLength) {
        return false;
    }
    std::string before = field;
    if (value.empty()) {
        // An empty text marks the system as unnamed, whichever variable it was meant for.
        systemName = unknownText;
    } else {
        field = value;
    }
    const bool written = set(id);
    if (!written) {
        field = std::move(before);
    }
    return written;
}

template <typename Field>
bool TavConfSpaceData::setField(Field& field, const Field& value, ValueIds id) {
    const Field before = field;
    field = value;
    const bool written = set(id);
    if (!written) {
        field = before;
    }
    return written;
}

bool TavConfSpaceData::setCabinetLocation(const std::string& value) {
    return setString(cabinetLocation, value, conf_cabinet_location);
}

bool TavConfSpaceData::setSystemName(const std::string& value) {
    return setString(systemName, value, conf_system_name);
}

bool TavConfSpaceData::setBiosVersion(const std::string& value) {
    return setString(biosVersion, value, conf_system_biosversion);
}

bool TavConfSpaceData::setSystemDescription(const std::string& value) {
    return setString(systemDescription, value, conf_system_description);
}

bool TavConfSpaceData::setSystemContact(const std::string& value) {
    return setString(systemContact, value, conf_system_contact);
}

bool TavConfSpaceData::setServerCabinetModel(const std::string& value) {
    return setString(serverCabinetModel, value, conf_server_cabinetmodel);
}

bool TavConfSpaceData::setServerChassisModel(const std::string& value) {
    return setString(serverChassisModel, value, conf_server_chassismodel);
}

bool TavConfSpaceData::setServerSerialNumber(const std::string& value) {
    return setString(serverSerialNumber, value, conf_server_serialnumber);
}

bool TavConfSpaceData::setServerOperatingSystem(const std::string& value) {
    return setString(serverOperatingSystem, value, conf_server_operating_system);
}

bool TavConfSpaceData::setServerVendorName(const std::string& value) {
    return setString(serverVendorName, value, conf_server_vendorname);
}

bool TavConfSpaceData::setIpAddr_1(const IPv4Address& value) {
    return setField(ipAddr_1, value, conf_server_IPAddress1);
}

bool TavConfSpaceData::setIpAddr_2(const IPv4Address& value) {
    return setField(ipAddr_2, value, conf_server_IPAddress2);
}

bool TavConfSpaceData::setIpAddr_3(const IPv4Address& value) {
    return setField(ipAddr_3, value, conf_server_IPAddress3);
}

bool TavConfSpaceData::setIpAddr_4(const IPv4Address& value) {
    return setField(ipAddr_4, value, conf_server_IPAddress4);
}

bool TavConfSpaceData::setSoftWatchdogEnabled(bool value) {
    return setField(softWatchdogEnabled, value, conf_soft_watchdog_enable);
}

bool TavConfSpaceData::setBootWatchdogEnabled(bool value) {
    return setField(bootWatchdogEnabled, value, conf_boot_watchdog_enable);
}

bool TavConfSpaceData::setSoftWatchdogTime(const std::uint16_t& value) {
    return setField(softWatchdogTime, value, conf_soft_watchdog_time);
}

bool TavConfSpaceData::setBootWatchdogTime(const std::uint16_t& value) {
    return setField(bootWatchdogTime, value, conf_boot_watchdog_time);
}

bool TavConfSpaceData::setSoftWatchdogBehaviour(const WatchdogBehaviour& value) {
    return setField(softWatchdogBehaviour, value, conf_soft_watchdog_behaviour);
}

bool TavConfSpaceData::setBootWatchdogBehaviour(const WatchdogBehaviour& value) {
    return setField(bootWatchdogBehaviour, value, conf_boot_watchdog_behaviour);
}
