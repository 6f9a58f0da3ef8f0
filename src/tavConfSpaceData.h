#pragma once

#include "IPv4Address.h"
#include "tavConfSpaceRecords.h"
#include "tavError.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tavIpmi {
class TavIpmi;
}

/// Errors of the configuration-space reads.
class TavConfSpaceDataError : public TavError {
  public:
    using TavError::TavError;
};

/// The host's mirror of the BMC's configuration space: numbered variables that the management
/// firmware shows and edits. Read once at construction (the watchdog variables on demand); every
/// setter changes the mirror and writes that one variable. For use by one thread.
class TavConfSpaceData {
  public:
    /// Variable numbers as they go over the wire.
    enum ValueIds {
        conf_boot_watchdog_enable = 64,
        conf_boot_watchdog_time = 65,
        conf_soft_watchdog_enable = 66,
        conf_soft_watchdog_time = 67,
        conf_boot_watchdog_behaviour = 116,
        conf_soft_watchdog_behaviour = 117,
        conf_cabinet_location = 512,
        conf_system_name = 513,
        conf_system_biosversion = 514,
        conf_system_description = 515,
        conf_system_contact = 516,
        conf_server_cabinetmodel = 517,
        conf_server_chassismodel = 518,
        conf_server_serialnumber = 519,
        conf_server_vendorname = 520,
        conf_server_IPAddress1 = 522,
        conf_server_IPAddress2 = 523,
        conf_server_IPAddress3 = 524,
        conf_server_IPAddress4 = 525,
        conf_server_operating_system = 527,
        conf_server_bladenumber = 8960
    };
    /// What the BMC does when a watchdog runs out.
    enum WatchdogBehaviour {
        watchdog_behaviour_continue = 0,
        watchdog_behaviour_reset = 2,
        watchdog_behaviour_powercycle = 4
    };
    enum AgentConnectionStatus {
        agent_connected = 1,
        agent_disconnected = 2
    };
    enum WatchdogWaitTimes {
        minimalSWTime = 2400 ///< shortest software-watchdog countdown, 100 ms counts
    };

    /// Reads all variables but the watchdog's; the blade number only on a blade.
    explicit TavConfSpaceData(bool blade);
    TavConfSpaceData(const TavConfSpaceData&) = delete;
    TavConfSpaceData& operator=(const TavConfSpaceData&) = delete;
    virtual ~TavConfSpaceData() = default;

    /// False once the BMC refused or left unanswered the first variable.
    bool isAvailable() const noexcept { return available; }
    std::string getCabinetLocation() const { return cabinetLocation; }
    std::string getSystemName() const { return systemName; }
    std::string getBiosVersion() const { return biosVersion; }
    std::string getSystemDescription() const { return systemDescription; }
    std::string getSystemContact() const { return systemContact; }
    std::string getServerCabinetModel() const { return serverCabinetModel; }
    std::string getServerChassisModel() const { return serverChassisModel; }
    std::string getServerSerialNumber() const { return serverSerialNumber; }
    std::string getServerOperatingSystem() const { return serverOperatingSystem; }
    std::string getServerVendorName() const { return serverVendorName; }
    IPv4Address getIpAddr_1() const noexcept { return ipAddr_1; }
    IPv4Address getIpAddr_2() const noexcept { return ipAddr_2; }
    IPv4Address getIpAddr_3() const noexcept { return ipAddr_3; }
    IPv4Address getIpAddr_4() const noexcept { return ipAddr_4; }
    std::uint32_t getBladeNumber() const noexcept { return bladenumber; }
    bool getSoftWatchdogEnabled() const noexcept { return softWatchdogEnabled; }
    bool getBootWatchdogEnabled() const noexcept { return bootWatchdogEnabled; }
    /// In seconds.
    std::uint16_t getSoftWatchdogTime() const noexcept { return softWatchdogTime; }
    /// In seconds.
    std::uint16_t getBootWatchdogTime() const noexcept { return bootWatchdogTime; }
    WatchdogBehaviour getSoftWatchdogBehaviour() const noexcept { return softWatchdogBehaviour; }
    WatchdogBehaviour getBootWatchdogBehaviour() const noexcept { return bootWatchdogBehaviour; }

    // Each setter returns true when the BMC took the value; otherwise the mirror keeps the old
    // one. Strings have at most 255 characters, longer ones are refused. An empty string is not
    // stored: `systemName` becomes "- unknown -" and the variable is written with its old value.
    bool setCabinetLocation(const std::string& value);
    bool setSystemName(const std::string& value);
    bool setBiosVersion(const std::string& value);
    bool setSystemDescription(const std::string& value);
    bool setSystemContact(const std::string& value);
    bool setServerCabinetModel(const std::string& value);
    bool setServerChassisModel(const std::string& value);
    /// The BMC keeps the vendor name in its serial number variable: that is what is written.
    bool setServerSerialNumber(const std::string& value);
    bool setServerOperatingSystem(const std::string& value);
    bool setServerVendorName(const std::string& value);
    bool setIpAddr_1(const IPv4Address& value);
    bool setIpAddr_2(const IPv4Address& value);
    bool setIpAddr_3(const IPv4Address& value);
    bool setIpAddr_4(const IPv4Address& value);
    bool setSoftWatchdogEnabled(bool value);
    bool setBootWatchdogEnabled(bool value);
    /// In seconds.
    bool setSoftWatchdogTime(const std::uint16_t& value);
    /// In seconds.
    bool setBootWatchdogTime(const std::uint16_t& value);
    bool setSoftWatchdogBehaviour(const WatchdogBehaviour& value);
    bool setBootWatchdogBehaviour(const WatchdogBehaviour& value);

    /// Reads the identity strings and addresses, and on a blade its number. A string that cannot
    /// be read becomes "- unknown -", an address 0.0.0.0; a failing device ends the reading.
    void update(bool blade);
    /// Reads the six watchdog variables up to the first that fails.
    void updateWatchdogParameter() noexcept;
    /// Tells the BMC that the agent is there, unless it knows; false when the device fails.
    bool sendAgentConnect() noexcept { return changeAgentConnectionStatus(agent_connected); }
    /// Tells the BMC that the agent goes, unless it knows; false when the device fails.
    bool sendAgentDisconnect() noexcept { return changeAgentConnectionStatus(agent_disconnected); }

  private:
    bool set(ValueIds id);
    std::optional<std::string> encodedValue(ValueIds id) const;
    bool setString(std::string& field, const std::string& value, ValueIds id);
    template <typename Field>
    bool setField(Field& field, const Field& value, ValueIds id);

    bool readStrings(const tavIpmi::TavIpmi& ipmi);
    void readAddresses(const tavIpmi::TavIpmi& ipmi);
    void readBladeNumber(const tavIpmi::TavIpmi& ipmi);
    void readWatchdogVariables();
    bool changeAgentConnectionStatus(AgentConnectionStatus connectionStatus) noexcept;
    void exchangeAgentConnection(AgentConnectionStatus connectionStatus);

    bool available{true};
    std::string cabinetLocation;
    std::string systemName;
    std::string biosVersion;
    std::string systemDescription;
    std::string systemContact;
    std::string serverCabinetModel;
    std::string serverChassisModel;
    std::string serverSerialNumber;
    std::string serverOperatingSystem;
    std::string serverVendorName;
    IPv4Address ipAddr_1;
    IPv4Address ipAddr_2;
    IPv4Address ipAddr_3;
    IPv4Address ipAddr_4;
    bool softWatchdogEnabled{false};
    bool bootWatchdogEnabled{false};
    std::uint16_t softWatchdogTime{0}; ///< seconds
    std::uint16_t bootWatchdogTime{0}; ///< seconds
    WatchdogBehaviour softWatchdogBehaviour{watchdog_behaviour_continue};
    WatchdogBehaviour bootWatchdogBehaviour{watchdog_behaviour_continue};
    std::uint32_t bladenumber{0};
    bool connected{false}; ///< what the BMC last said of the agent
};
