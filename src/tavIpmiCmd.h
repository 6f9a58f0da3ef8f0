#pragma once

#include "tavError.h"
#include "wireBytes.h"

#include <cstddef>
#include <string>

/// IPMI messages and the catalogue of what goes into them (IPMI 2.0, 5.1, 5.2 and appendix G, and
/// the maker's own commands).
namespace tavIpmi {

/// Network functions of requests; a response's is one higher.
enum IPMI_NetfnCodes {
    ipmi_netfn_req_chassis = 0,
    ipmi_netfn_req_bridge = 2,
    ipmi_netfn_req_sensor_event = 4,
    ipmi_netfn_req_app = 6,
    ipmi_netfn_req_firmware = 8,
    ipmi_netfn_req_storage = 10,
    ipmi_netfn_req_transport = 12,
    ipmi_netfn_req_group = 44,
    ipmi_netfn_req_oem = 46,
    ipmi_netfn_req_oem_1 = 48,
    ipmi_netfn_req_oem_2 = 52,
    ipmi_netfn_req_undefined = 255
};

/// Global commands, application network function.
enum IPMI_GlobalCmds {
    ipmi_cmd_get_device_id = 1,
    ipmi_cmd_get_self_test_results = 4,
    ipmi_cmd_get_acpi_power_state = 7,
    ipmi_cmd_get_device_guid = 8,
    ipmi_cmd_get_command_support = 10,
    ipmi_cmd_set_bmc_global_enables = 46,
    ipmi_cmd_get_bmc_global_enables = 47,
    ipmi_cmd_get_channel_info = 66
};

/// Watchdog timer commands, application network function.
enum IPMI_WatchdogTimerCmds {
    ipmi_cmd_reset_watchdog_timer = 34,
    ipmi_cmd_set_watchdog_timer = 36,
    ipmi_cmd_get_watchdog_timer = 37
};

/// Sensor and event commands.
enum IPMI_SensorCmds {
    ipmi_cmd_set_event_receiver = 0,
    ipmi_cmd_get_event_receiver = 1,
    ipmi_cmd_platform_event_message = 2,
    ipmi_cmd_get_sdr_info = 32,
    ipmi_cmd_get_sdr = 33,
    ipmi_cmd_reserve_device_sdr_repository = 34,
    ipmi_cmd_get_sensor_reading_factors = 35,
    ipmi_cmd_set_sensor_hysteresis = 36,
    ipmi_cmd_get_sensor_hysteresis = 37,
    ipmi_cmd_set_sensor_threshold = 38,
    ipmi_cmd_get_sensor_threshold = 39,
    ipmi_cmd_set_sensor_event_enable = 40,
    ipmi_cmd_get_sensor_event_enable = 41,
    ipmi_cmd_rearm_sensor_events = 42,
    ipmi_cmd_get_sensor_event_status = 43,
    ipmi_cmd_get_sensor_reading = 45,
    ipmi_cmd_set_sensor_type = 46,
    ipmi_cmd_get_sensor_type = 47,
    ipmi_cmd_set_sensor_reading_and_event_status = 48
};

/// FRU commands, storage network function.
enum IPMI_FruCmds {
    ipmi_cmd_fru_inventory_area_info = 16,
    ipmi_cmd_read_fru_data = 17,
    ipmi_cmd_write_fru_data = 18
};

/// The maker's commands.
enum IPMI_OEMCmds {
    ipmi_oemcmd_agentCommunication = 2,
    ipmi_oemcmd_get_slot_number = 24,
    ipmi_oemcmd_get_mezz = 64,
    ipmi_oemcmd_get_nic_mac_addrs = 85,
    ipmi_oemcmd_get_lan_info = 117,
    ipmi_oemcmd_get_mmb_ipv4_addr = 128,
    ipmi_oemcmd_get_mmb_ipv4_netmask = 129,
    ipmi_oemcmd_set_serv_blade_ipaddress = 163,
    ipmi_oemcmd_set_serv_blade_long_os_platform_type = 168,
    ipmi_oemcmd_set_serv_blade_os_platform_type = 176,
    ipmi_oemcmd_set_serv_blade_os_platform_release = 177,
    ipmi_oemcmd_group_configuration = 224,
    ipmi_oemcmd_get_mmb_ip_addr = 225,
    ipmi_oemcmd_get_mmb_ip_netmask = 227,
    ipmi_oemcmd_send_serv_blade_ip_addr_info = 231,
    ipmi_oemcmd_get_ipv6_address_capability = 232,
    ipmi_oemcmd_get_mmb_second_phys_addr = 240,
    ipmi_oemcmd_group_bios = 241,
    ipmi_oemcmd_group_vexa = 245
};

/// Sub-commands of the maker's command groups.
enum IPMI_OEMCmdSpecifiers {
    cmd_spec_space_status = 0,
    cmd_spec_space_read = 1,
    cmd_spec_space_write = 2,
    cmd_spec_space_update = 3,
    cmd_spec_space_nvram_backup_status = 4,
    cmd_spec_get_eeprom_version_info = 18,
    cmd_spec_get_cpuinfo = 21,
    cmd_spec_get_memory_info = 24,
    cmd_spec_memory_module_status = 72,
    cmd_spec_memory_module_configuration = 73
};

/// Sub-commands of the agent communication command.
enum IPMI_OEMDWALCmdSpecifiers {
    cmd_spec_agentConnect = 1,
    cmd_spec_agentDisconnect = 2,
    cmd_spec_agentStatus = 8
};

/// Completion codes (IPMI 2.0, 5.2).
enum IPMI_CompletionCodes {
    ipmi_cc_normally_cc = 0x00,
    ipmi_cc_device_specific = 0x01,
    ipmi_cc_cmd_specific = 0x80,
    ipmi_cc_node_busy = 0xC0,
    ipmi_cc_invalid_cmd = 0xC1,
    ipmi_cc_inv_cmd_for_LUN = 0xC2,
    ipmi_cc_timeout = 0xC3,
    ipmi_cc_out_of_space = 0xC4,
    ipmi_cc_res_cancelled = 0xC5,
    ipmi_cc_req_data_trunc = 0xC6,
    ipmi_cc_req_data_len_inv = 0xC7,
    ipmi_cc_req_data_field_len_exc = 0xC8,
    ipmi_cc_param_out_of_range = 0xC9,
    ipmi_cc_no_number_of_ret_data_bytes = 0xCA,
    ipmi_cc_no_sensor_data_or_record = 0xCB,
    ipmi_cc_inv_req_data_field = 0xCC,
    ipmi_cc_illegal_cmd_for_sensor_or_rec = 0xCD,
    ipmi_cc_no_cmd_response = 0xCE,
    ipmi_cc_no_execute_dupl_req = 0xCF,
    ipmi_cc_no_response_SDR_update = 0xD0,
    ipmi_cc_no_response_firmware_update = 0xD1,
    ipmi_cc_no_response_BMC_initialization = 0xD2,
    ipmi_cc_destination_unavailable = 0xD3,
    ipmi_cc_insufficient_priv_or_security = 0xD4,
    ipmi_cc_cmd_or_param_not_supported = 0xD5,
    ipmi_cc_param_illegal = 0xD6,
    ipmi_cc_unspecific_error = 0xFF
};

/// IANA enterprise numbers of BMC makers. The maker's own is set by the build.
enum IANA_Manufacturer_ID {
    iana_acer = 1050,
    iana_quanta = 7244,
    iana_wistron = 11161,
    iana_qmx = TAV_IANA_ENTERPRISE_NUMBER
};
static_assert(iana_qmx >= 0 && iana_qmx <= 0xFFFFFF, "messages carry 24 bits of it");

/// Start of every framed request to the maker's command groups.
struct OemRequestPrefix {
    LittleEndian16 iana_enterprise_number;  ///< low 16 bits
    unsigned char iana_enterprise_number_1; ///< bits 16 to 23
    unsigned char cmd_specifier;
};
static_assert(sizeof(OemRequestPrefix) == 4);

/// Start of every framed response.
struct OemResponsePrefix {
    unsigned char completion_code;
    LittleEndian16 iana_enterprise_number;
    unsigned char iana_enterprise_number_1;
};
static_assert(sizeof(OemResponsePrefix) == 4);

/// The prefix for one sub-command, under the maker's number.
constexpr OemRequestPrefix oemPrefix(unsigned char cmd_specifier) noexcept {
    return {static_cast<std::uint16_t>(iana_qmx & 0xFFFF),
            static_cast<unsigned char>(iana_qmx >> 16), cmd_specifier};
}

/// Errors of the transport and of IPMI exchanges.
class TavIpmiError : public TavError {
  public:
    using TavError::TavError;
    /// The message with the number's digits over its start.
    TavIpmiError(const std::string& message, const std::string& file, const unsigned& line,
                 const int& number) :
        TavError(message, file, line, number) {}
};

/// One request and, after the exchange, its response.
class TavIpmi_request_msg {
  public:
    static constexpr std::size_t bufferSize = 272;
    /// Most request bytes that a message takes.
    static constexpr std::size_t maxSendData = bufferSize - 1;

    /// Takes `len` request bytes; none at all when `len` is 0 or above `maxSendData`.
    TavIpmi_request_msg(unsigned char netfn_, unsigned char cmd_, unsigned short len,
                        const unsigned char* data);
    /// The same with the bytes of a wire record.
    TavIpmi_request_msg(unsigned char netfn_, unsigned char cmd_, ByteView data = {});
    TavIpmi_request_msg(const TavIpmi_request_msg& other);
    TavIpmi_request_msg& operator=(const TavIpmi_request_msg& other);
    virtual ~TavIpmi_request_msg();

    /// Replaces the request bytes and drops the response, for a series of requests with one
    /// message. Throws std::length_error when `len` is 0 or above `maxSendData`.
    void replaceSendData(const unsigned char* data, unsigned short len);
    void replaceSendData(ByteView data);

    /// Frees the response, if there is one.
    void dropResponse() noexcept;
    /// Keeps a copy of `bytes` as the response, in a block of exactly that size. False, and no
    /// response, when memory is short or `bytes` is empty.
    bool storeResponse(ByteView bytes) noexcept;
    /// The response bytes, completion code first; empty when there is none.
    ByteView response() const noexcept;

    unsigned char netfn;
    unsigned char cmd;
    std::size_t snd_data_len{0};
    std::size_t rcv_data_len{0}; ///< counts the completion code
    void* snd_data;              ///< always `buffer`
    void* rcv_data{nullptr};     ///< owned; null exactly when `rcv_data_len` is 0
    unsigned char buffer[bufferSize];
};

} // namespace tavIpmi
