// The inventory of any network that the kernel may tell of, and any answer of its routing socket.

#include "standIns.h"
#include "tavIp.h"

#include <fuzzer/FuzzedDataProvider.h>

namespace {

template <typename Entry>
void fill(std::vector<Entry>& entries, std::size_t count, FuzzedDataProvider& input) {
    entries.assign(count, Entry{});
    for (Entry& entry : entries) {
        input.ConsumeData(&entry, sizeof entry);
    }
}

Network anyNetwork(FuzzedDataProvider& input) {
    Network result;
    result.lengthError = input.ConsumeBool() ? 8 * input.ConsumeIntegralInRange(-100, 100) : 0;
    fill(result.interfaces, input.ConsumeIntegralInRange(0U, 20U), input);
    if (!result.interfaces.empty()) {
        fill(result.ipv6, input.ConsumeIntegralInRange(0U, 20U), input);
    }
    result.routingAnswer = input.ConsumeRemainingBytes<unsigned char>();
    return result;
}

void lookUpEverything(const tavIp::TavIp& inventory) {
    for (const auto& [index, parameter] : inventory.getIfParameters()) {
        const std::size_t count = inventory.getNumberOfIpv6Addresses(index);
        require(index == 0 || inventory.getName(index) == parameter.ifName, "name");
        require(index == 0 || count == parameter.ipv6AddressInfos.size(), "number of addresses");
        for (unsigned n = 0; n < count; ++n) {
            require(inventory.getIpv6AddressInfo(index, n) == parameter.ipv6AddressInfos[n],
                    "address");
        }
    }
    for (const std::uint32_t index : tavIp::reportedInterfaces(inventory.getIfParameters())) {
        require(inventory.getIpv4Address(index) && !inventory.isLoopback(index),
                "not to be reported");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    network = anyNetwork(input);
    try {
        tavIp::TavIp inventory;
        const bool single = inventory.getIfParameters().size() == 1;
        require((inventory == tavIp::TavIp()) != single, "the same host counts as another");
        auto entries = inventory.getIfParameters();
        for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
            inventory.updateFlags(entry);
        }
        lookUpEverything(inventory);
        int added = 0;
        tavIp::addRoutingAddresses(network.routingAnswer, entries, added); // with nothing behind it
        inventory.getIPv6AddrData();
        lookUpEverything(inventory);
    } catch (const tavIp::TavIpError&) { // said in the open
    }
    return 0;
}
