// The information cycle: watchdog, inventory, push, wait; and the way out.

#include "agentClock.h"
#include "agentSignals.h"
#include "sysLog.h"
#include "tavServerInfo.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

using tavIpmi::TavIpmiWatchdog;

namespace {

using SlotSetter = bool (TavConfSpaceData::*)(const IPv4Address&);
constexpr std::array<SlotSetter, 4> slotSetters{
    &TavConfSpaceData::setIpAddr_1, &TavConfSpaceData::setIpAddr_2, &TavConfSpaceData::setIpAddr_3,
    &TavConfSpaceData::setIpAddr_4};

using std::chrono::milliseconds;

// What an ending agent still says shares five seconds, in this order; nothing may keep the BMC from
// learning at last that the agent goes. The chassis hears of it twice, if there is time.
constexpr milliseconds farewellTime{5000};
constexpr milliseconds behindFirstReport{4500};
constexpr milliseconds forDisconnect{1500}; // sent, it needs no answer; the question before does

/// Holds the cycle's lock in thread mode; the other modes have none.
class CycleLock {
  public:
    CycleLock(pthread_mutex_t& mutex, bool needed) noexcept :
        taken(needed && ::pthread_mutex_trylock(&mutex) == 0 ? &mutex : nullptr),
        entered(!needed || taken != nullptr) {}
    ~CycleLock() {
        if (taken != nullptr) {
            ::pthread_mutex_unlock(taken);
        }
    }
    CycleLock(const CycleLock&) = delete;
    CycleLock& operator=(const CycleLock&) = delete;
    explicit operator bool() const noexcept { return entered; }

  private:
    pthread_mutex_t* taken;
    bool entered;
};

} // namespace

void TavServerInfo::main_action(int& result) {
    const CycleLock held(lock, run_mode == run_mode_thread);
    if (!held) {
        return; // another cycle is at work
    }
    waitTime = max_wait_time;
    watchdogCountdown = 1;
    informationCountdown = 1;
    try {
        do {
            iterate();
        } while (run);
        result = 0;
    } catch (const std::logic_error& error) {
        sysLog(LOG_ERR, "%s", error.what());
        noteFailure(error.what());
        result = -1;
    } catch (const std::exception& error) {
        noteFailure(error.what());
        result = -1;
    } catch (...) {
        noteFailure("unknown error");
        result = -1;
    }
    shutdownSteps();
}

/// The texts of errors end in a newline.
void TavServerInfo::noteFailure(const char* why) noexcept {
    static_cast<void>(std::snprintf(failure.data(), failure.size(), "%.*s",
                                    static_cast<int>(std::strcspn(why, "\n")), why));
}

void TavServerInfo::iterate() {
    if (pTavBladeInfo && !ending()) {
        pTavBladeInfo->setOSStatus(kb_system_status_os_running);
    }
    if (isLasting() && !ending()) {
        serveWatchdog();
    }
    if (--informationCountdown == 0) {
        if (!ending()) {
            giveHeartbeatItsTurn();
            setInfo();
        }
        informationCountdown = max_set_info_wait_time / waitTime;
    }
    giveHeartbeatItsTurn();
    waitForNextIteration();
}

/// With a slow BMC the work of one iteration takes long; one that was told to end skips the rest.
bool TavServerInfo::ending() const noexcept {
    return isLasting() && agentSignals::endRequested();
}

bool TavServerInfo::isLasting() const noexcept {
    return run_mode == run_mode_daemon || run_mode == run_mode_thread;
}

/// For the moments of a long pass at which nothing is under way. The daemon's heartbeat is a
/// signal; the foreground's thread, which takes none, looks at the clock. On the way out the timer
/// is stopped anyway.
void TavServerInfo::giveHeartbeatItsTurn() const {
    if (ending()) {
        return;
    }
    if (run_mode == run_mode_daemon) {
        agentSignals::letIn({SIGALRM});
    } else if (run_mode == run_mode_thread && heartbeatIsDue()) {
        reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true);
    }
}

void TavServerInfo::serveWatchdog() {
    if (updateWatchdog()) {
        watchdogCountdown = 1;
    }
    if (!soft_watchdog_enabled || --watchdogCountdown != 0 || ending()) {
        return;
    }
    const unsigned due = reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true);
    if (due == 0) {
        waitTime = max_wait_time;
        watchdogCountdown = 1;
    } else {
        waitTime = std::min<unsigned>(due, max_wait_time);
        watchdogCountdown = due / waitTime;
    }
}

void TavServerInfo::waitForNextIteration() {
    int error = 0;
    if (run_mode == run_mode_daemon) {
        error = agentClock().waitForSignal(
            waitTime, agentSignals::maskLettingIn({SIGALRM, SIGTERM, SIGHUP, SIGINT}));
    } else if (run_mode == run_mode_thread && !stop_requested) {
        error = agentClock().waitForCondition(cond, lock, waitTime);
    }
    if (error != 0 && error != ETIMEDOUT) {
        errno = error;
        throw std::logic_error(errnoText("unable to wait for the next pass: "));
    }
    if (stop_requested) {
        run = false;
    }
}

void TavServerInfo::shutdownSteps() {
    if (!isLasting()) {
        return;
    }
    tavIpmi::Farewell farewell(behindFirstReport);
    farewell.keep(forDisconnect);
    stop_watchdog(TavIpmiWatchdog::timer_use_sms_os);
    farewell.keep(milliseconds{0});
    if (pTavConfSpaceData) {
        pTavConfSpaceData->sendAgentDisconnect();
    }
    if (run_mode == run_mode_daemon) {
        setShutdownInfo();
    }
}

/// As soon as the daemon is told to end.
void TavServerInfo::reportTermination() const {
    tavIpmi::Farewell farewell(farewellTime);
    farewell.keep(behindFirstReport);
    setShutdownInfo();
}

/// Not at the cost of anything that is more important.
void TavServerInfo::setShutdownInfo() const {
    if (pTavBladeInfo && !tavIpmi::Farewell::over()) {
        pTavBladeInfo->setOSStatus(kb_system_status_os_shutdown);
    }
    if (pTavBladeInfo && !tavIpmi::Farewell::over()) {
        pTavBladeInfo->setOSPlatformInfo({}, {});
    }
}

void TavServerInfo::setInfo() {
    if (pTavBladeInfo) {
        pTavBladeInfo->setOSPlatformInfo(productName, release);
        pTavBladeInfo->setOSStatus(kb_system_status_os_running);
    }
    // Another program has been at the NIC ports' record: what was pushed may not be there.
    if (pPniAccess && pPniAccess->renew()) {
        pTavIpData.reset();
        giveHeartbeatItsTurn();
    }
    std::unique_ptr<tavIp::TavIp> fresh(new (std::nothrow) tavIp::TavIp);
    if (!fresh) {
        sysLog(LOG_ERR, "TavServerInfo::setInfo()  new(nothrow)TavIp failed.");
        return;
    }
    if (pTavIpData && *pTavIpData == *fresh) {
        return;
    }
    pTavIpData = std::move(fresh);
    if (!pushAddresses()) {
        pTavIpData.reset(); // so that the next pass tries again
    }
}

/// Fills the configuration space's slots with the first addresses in interface order, up to the
/// first that the BMC does not take. Every interface goes into the NIC ports' record, where there
/// is one, otherwise a blade reports it to its management blade. True when at least one slot was
/// written.
bool TavServerInfo::pushAddresses() {
    std::size_t slot = 0;
    bool slotWritten = false;
    for (const std::uint32_t index : tavIp::reportedInterfaces(pTavIpData->getIfParameters())) {
        if (agentSignals::endRequested()) {
            break;
        }
        giveHeartbeatItsTurn();
        if (pTavConfSpaceData && slot != slotSetters.size()) {
            const bool written =
                (pTavConfSpaceData.get()->*slotSetters[slot])(pTavIpData->getIpv4Address(index));
            slotWritten = slotWritten || written;
            slot = written ? slot + 1 : slotSetters.size();
        }
        if (pPniAccess) {
            writePortInformation(index);
        } else if (pTavBladeInfo && !agentSignals::endRequested()) {
            reportToMMB(index);
        }
    }
    return slotWritten;
}

void TavServerInfo::reportToMMB(std::uint32_t index) const {
    const MacAddress mac = pTavIpData->getMacAddress(index);
    pTavBladeInfo->sendIpAddressInfo(pTavIpData->getIpv4Address(index), mac);
    const std::size_t count = pTavIpData->getNumberOfIpv6Addresses(index);
    for (unsigned n = 0; n < count && !agentSignals::endRequested(); ++n) {
        giveHeartbeatItsTurn();
        pTavBladeInfo->sendIpAddressInfo(pTavIpData->getIpv6AddressInfo(index, n).address, mac);
    }
}

/// Clears all ports each time, so that the record ends up with the last interface's addresses only:
/// BMCs expect one port to have any.
void TavServerInfo::writePortInformation(std::uint32_t index) {
    const MacAddress mac = pTavIpData->getMacAddress(index);
    const auto turn = [this] { giveHeartbeatItsTurn(); };
    pPniAccess->clearIpAddressData(turn);
    turn();
    pPniAccess->setIpv4Address(mac, pTavIpData->getIpv4Address(index), turn);
    std::list<IPv6Address> addresses;
    const std::size_t count = pTavIpData->getNumberOfIpv6Addresses(index);
    for (unsigned n = 0; n < count; ++n) {
        addresses.push_back(pTavIpData->getIpv6AddressInfo(index, n).address);
    }
    if (!addresses.empty()) {
        turn();
        pPniAccess->setIpv6Address(mac, addresses, turn);
    }
}
