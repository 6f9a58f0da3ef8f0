#include "requestAddress.h"

#include <cerrno>
#include <cstring>

namespace sim {

namespace {

constexpr short ipmbChannel = 0;
constexpr unsigned char highestLun = 3;

static_assert(sizeof(ipmi_system_interface_addr) <= addressRoom);
static_assert(sizeof(ipmi_ipmb_addr) <= addressRoom);

template <typename Address>
Address readAddress(const ipmi_req& request) {
    Address address{};
    std::memcpy(&address, request.addr, sizeof address);
    return address;
}

template <typename Address>
void writeAddress(const Address& address, ipmi_recv& record) {
    std::memcpy(record.addr, &address, sizeof address);
    record.addr_len = sizeof address;
}

int takeBmc(const ipmi_system_interface_addr& address, Exchange& exchange) {
    exchange.lun = address.lun;
    return address.channel == IPMI_BMC_CHANNEL && address.lun <= highestLun ? 0 : EINVAL;
}

int takeBus(const ipmi_ipmb_addr& address, Exchange& exchange) {
    exchange.slaveAddress = address.slave_addr;
    exchange.lun = address.lun;
    return address.channel == ipmbChannel && address.lun <= highestLun ? 0 : EINVAL;
}

} // namespace

int takeAddress(const ipmi_req& request, Exchange& exchange) noexcept {
    if (request.addr == nullptr || request.addr_len < addressRoom) {
        return EINVAL;
    }
    exchange.addressType = readAddress<int>(request); // what all kinds begin with
    switch (exchange.addressType) {
    case IPMI_SYSTEM_INTERFACE_ADDR_TYPE:
        return takeBmc(readAddress<ipmi_system_interface_addr>(request), exchange);
    case IPMI_IPMB_ADDR_TYPE:
        return takeBus(readAddress<ipmi_ipmb_addr>(request), exchange);
    default:
        return EINVAL;
    }
}

void giveAddress(const Exchange& exchange, ipmi_recv& record) noexcept {
    if (exchange.addressType == IPMI_IPMB_ADDR_TYPE) {
        writeAddress(
            ipmi_ipmb_addr{IPMI_IPMB_ADDR_TYPE, ipmbChannel, exchange.slaveAddress, exchange.lun},
            record);
        return;
    }
    writeAddress(
        ipmi_system_interface_addr{IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, exchange.lun},
        record);
}

} // namespace sim
