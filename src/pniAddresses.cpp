// The addresses in the NIC ports' records.

#include "PniAccess.h"
#include "agentClock.h"
#include "agentSignals.h"
#include "pniLock.h"
#include "sysLog.h"

#include <algorithm>
#include <array>
#include <utility>

using tavIpmi::TavIpmi;

namespace {

constexpr std::size_t ipv4Length = 4;
constexpr std::size_t ipv6Length = 16;
constexpr unsigned maxAddresses = 15; // of each kind: the counts have four bits
constexpr std::size_t boundary = 4;
static_assert(maxAddresses * (ipv4Length + ipv6Length) == sizeof(PniPortfnNic::ipAddress));

/// Runs `operation` on a connection of its own. An error is logged and gives `otherwise`.
template <typename Result, typename Operation>
Result connected(Result otherwise, Operation operation) noexcept {
    try {
        return operation(TavIpmi(0, 0, TavIpmi::ipmiSystemInterface));
    } catch (const std::exception& error) {
        sysLog(LOG_ERR, "%s", error.what());
        return otherwise;
    }
}

std::size_t usedLength(const PniPortfnNic& nic) {
    return offsetof(PniPortfnNic, ipAddress) + ipv4Length * nic.numIpAddress.ipv4 +
           ipv6Length * nic.numIpAddress.ipv6;
}

ByteView firstIpv4(const PniPortfnNic& nic) {
    return ByteView(nic.ipAddress).first(ipv4Length);
}

/// Makes `address` the only IPv4 address. The IPv6 addresses are taken from as many BYTES behind
/// the list's start as there were IPv4 addresses, and put back one byte behind it: the layout that
/// BMCs have been given ever since. It keeps them in place where one IPv4 address was there before.
void replaceIpv4(PniPortfnNic& nic, const IPv4Address& address) {
    const std::size_t length = ipv6Length * nic.numIpAddress.ipv6;
    std::array<unsigned char, maxAddresses * ipv6Length> saved;
    std::copy_n(nic.ipAddress + nic.numIpAddress.ipv4, length, saved.begin());
    nic.numIpAddress.ipv4 = 1;
    std::copy_n(address.v, ipv4Length, nic.ipAddress);
    std::copy_n(saved.begin(), length, nic.ipAddress + 1);
}

/// As many as the count takes.
void replaceIpv6(PniPortfnNic& nic, const std::list<IPv6Address>& addresses) {
    unsigned count = 0;
    unsigned char* place = nic.ipAddress + ipv4Length * nic.numIpAddress.ipv4;
    for (const IPv6Address& address : addresses) {
        if (count == maxAddresses) {
            sysLog(LOG_ERR, "A NIC port's record takes %u IPv6 addresses; %zu more are dropped",
                   maxAddresses, addresses.size() - count);
            break;
        }
        place = std::copy_n(address.inv, ipv6Length, place);
        ++count;
    }
    nic.numIpAddress.ipv6 = count & 0x0FU;
}

} // namespace

/// The first NIC port function, in the order of the record, that `wanted` says yes to. `between`
/// is called between two of them.
template <typename Predicate>
std::optional<PniAccess::PortFnIndex>
PniAccess::firstNicPortFn(Predicate wanted, const std::function<void()>& between) const {
    if (!usable()) {
        return std::nullopt;
    }
    bool first = true;
    for (unsigned char m = 0; m < pniInfoCache.keptModules(); ++m) {
        const PniInfoCache::Module& module = pniInfoCache.module[m];
        for (unsigned char p = 0; p < module.keptPorts(); ++p) {
            const PniInfoCache::Port& port = module.port[p];
            for (unsigned char f = 0; f < port.keptPortFns(); ++f) {
                if (port.portFn[f].techType != portfn_tech_nic) {
                    continue;
                }
                if (!std::exchange(first, false) && between) {
                    between();
                }
                if (wanted(PortFnIndex{m, p, f})) {
                    return PortFnIndex{m, p, f};
                }
            }
        }
    }
    return std::nullopt;
}

unsigned PniAccess::getNumberOfMacAddresses() const noexcept {
    unsigned count = 0;
    firstNicPortFn([&count](PortFnIndex) {
        ++count;
        return false;
    });
    return count;
}

MacAddress PniAccess::getMacAddress(int n) const noexcept {
    int number = 0;
    const auto found = firstNicPortFn([&number, n](PortFnIndex) { return number++ == n; });
    if (!found) {
        return {};
    }
    return connected(MacAddress(), [&](const TavIpmi& ipmi) {
        PniPortfnNic nic;
        return readNicArea(ipmi, *found, nic) ? MacAddress(nic.activeMACAddr) : MacAddress();
    });
}

/// For an update: nothing is read for one that would not begin any more. The layout may be from an
/// earlier day, so the record is asked again.
bool PniAccess::readNic(const TavIpmi& ipmi, PortFnIndex index, PniPortfnNic& nic) {
    PniPortfnCommon common;
    if (layoutOutdated || agentSignals::endRequested() ||
        readPortFnCommonArea(ipmi, index.module, index.port, index.fn, &common) != pni_success) {
        return false;
    }
    if (!asInLayout(index, common)) {
        noteChange();
        return false;
    }
    return readNicArea(ipmi, index, nic);
}

bool PniAccess::readNicArea(const TavIpmi& ipmi, PortFnIndex index, PniPortfnNic& nic) const {
    unsigned char bytes[sizeof(PniPortfnNic)]{};
    const PniErrorCodes result =
        readPortFnSpecificArea(ipmi, index.module, index.port, index.fn, sizeof bytes, bytes);
    readRecord(ByteView(bytes), nic);
    return result == pni_success;
}

/// The used part, padded so that the function ends on a boundary; one that does already gets a
/// whole unit of padding.
bool PniAccess::writeNic(const TavIpmi& ipmi, PortFnIndex index, const PniPortfnNic& nic) {
    unsigned char bytes[sizeof(PniPortfnNic) + boundary]{};
    const std::size_t used = usedLength(nic);
    std::ranges::copy(recordBytes(nic, used), bytes);
    const std::size_t padding = boundary - (portFnAt(index)->commonSize + used) % boundary;
    return writePortFnSpecificArea(ipmi, index.module, index.port, index.fn,
                                   static_cast<int>(used + padding), bytes) == pni_success;
}

/// The first port function with this MAC address, and what it holds.
std::optional<PniAccess::PortFnIndex> PniAccess::findNic(const TavIpmi& ipmi, const MacAddress& mac,
                                                         PniPortfnNic& nic,
                                                         const std::function<void()>& between) {
    const auto hasAddress = [&](PortFnIndex index) {
        return readNic(ipmi, index, nic) &&
               (MacAddress(nic.activeMACAddr) == mac || MacAddress(nic.mfgMACAddr) == mac);
    };
    return firstNicPortFn(hasAddress, between);
}

/// Runs `operation` on a connection of its own, with the record locked. Gives its result, false
/// when the record must not be written, and nothing when an error of the transport, or the end of
/// the agent, ended it.
template <typename Operation>
std::optional<bool> PniAccess::updateRecord(Operation operation) noexcept {
    if (!writable()) {
        return false;
    }
    if (agentSignals::endRequested()) {
        return std::nullopt;
    }
    if (std::exchange(hadTurn, true)) {
        agentClock().pause(pniLockTurn);
    }
    return connected(std::optional<bool>(), [&](const TavIpmi& ipmi) -> std::optional<bool> {
        if (!lockPniRecord(ipmi)) {
            if (!agentSignals::endRequested()) {
                noteBusy();
            }
            return false;
        }
        return operation(ipmi);
    });
}

bool PniAccess::setIpv4Address(const MacAddress& mac, const IPv4Address& address,
                               const std::function<void()>& between) noexcept {
    const auto done = updateRecord([&](const TavIpmi& ipmi) {
        PniPortfnNic nic;
        const auto index = findNic(ipmi, mac, nic, between);
        if (!index) {
            return false;
        }
        const unsigned count = nic.numIpAddress.ipv4;
        if (count == maxAddresses || (count > 0 && std::ranges::equal(address.v, firstIpv4(nic)))) {
            return true;
        }
        replaceIpv4(nic, address);
        return writeNic(ipmi, *index, nic);
    });
    return done.value_or(false);
}

bool PniAccess::setIpv6Address(const MacAddress& mac, const std::list<IPv6Address>& addresses,
                               const std::function<void()>& between) noexcept {
    const auto done = updateRecord([&](const TavIpmi& ipmi) {
        PniPortfnNic nic;
        const auto index = findNic(ipmi, mac, nic, between);
        if (!index) {
            return false;
        }
        replaceIpv6(nic, addresses);
        return writeNic(ipmi, *index, nic);
    });
    return done.value_or(false);
}

/// A function that cannot be read is passed over.
bool PniAccess::clearNic(const TavIpmi& ipmi, PortFnIndex index) {
    PniPortfnNic nic;
    if (!readNic(ipmi, index, nic)) {
        return !layoutOutdated;
    }
    nic.numIpAddress = {};
    return writeNic(ipmi, index, nic);
}

/// The record is unlocked between two ports: with a slow BMC each takes long enough.
bool PniAccess::clearIpAddressData(const std::function<void()>& between) noexcept {
    std::optional<bool> cleared = true;
    const auto failsToClear = [&](PortFnIndex index) {
        cleared = updateRecord([&](const TavIpmi& ipmi) { return clearNic(ipmi, index); });
        return !cleared.value_or(false);
    };
    firstNicPortFn(failsToClear, between);
    return cleared.value_or(true);
}
