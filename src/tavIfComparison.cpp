// The change detector of the inventory.

#include "tavIp.h"

#include <algorithm>

namespace tavIp {
namespace {

/// Whether each address of `some` has a partner of its own in `all`.
bool allPaired(const std::vector<TavIpv6AddressInfo>& some, std::vector<TavIpv6AddressInfo> all) {
    return std::all_of(some.begin(), some.end(), [&all](const TavIpv6AddressInfo& info) {
        const auto partner =
            std::find_if(all.begin(), all.end(), [&info](const TavIpv6AddressInfo& candidate) {
                return candidate.address == info.address;
            });
        if (partner == all.end()) {
            return false;
        }
        all.erase(partner);
        return true;
    });
}

/// What the matching compares: `left` may have IPv6 addresses that `scratch` has not.
bool sameInterface(const TavIfParameter& scratch, const TavIfParameter& left) {
    return scratch.ifName == left.ifName && scratch.ipv4Address == left.ipv4Address &&
           scratch.ipv4SubnetMask == left.ipv4SubnetMask &&
           scratch.ipv4BroadcastAddress == left.ipv4BroadcastAddress &&
           scratch.macAddress == left.macAddress &&
           allPaired(scratch.ipv6AddressInfos, left.ipv6AddressInfos);
}

/// Whether both hold the same interfaces in the same order.
bool identical(const IfParameters& left, const IfParameters& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const auto& one, const auto& other) {
                          return sameInterface(other.second, one.second) &&
                                 other.second.ipv6AddressInfos.size() ==
                                     one.second.ipv6AddressInfos.size();
                      });
}

/// Each interface on the left strikes out the first one on the right that differs from it; when
/// none is left that differs, the inventories count as changed.
bool matching(const IfParameters& left, const IfParameters& right) {
    std::vector<const TavIfParameter*> remaining;
    for (const auto& entry : right) {
        remaining.push_back(&entry.second);
    }
    return std::all_of(left.begin(), left.end(), [&remaining](const auto& entry) {
        const auto different =
            std::find_if(remaining.begin(), remaining.end(), [&entry](const auto* candidate) {
                return !sameInterface(*candidate, entry.second);
            });
        if (different == remaining.end()) {
            return false;
        }
        remaining.erase(different);
        return true;
    });
}

} // namespace

bool sameInterfaces(const IfParameters& left, const IfParameters& right) {
    // The matching alone would find three, five, ... unchanged interfaces changed.
    return (left.size() >= 2 && identical(left, right)) || matching(left, right);
}

} // namespace tavIp
