// Construction of the core object and dispatch by run mode.

#include "tavServerInfo.h"

#include "fileDescriptor.h"
#include "hostPaths.h"
#include "lineReader.h"
#include "sysLog.h"
#include "tavIpmiDeviceId.h"
#include "tavSystemInfo.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <unistd.h>

using tavIpmi::TavIpmiWatchdog;

namespace {

constexpr std::size_t hostnameLength = 64;
constexpr const char* daemonIdent = "tav_daemon";

} // namespace

TavServerInfo* TavServerInfo::this_TavServerInfo = nullptr;

TavServerInfo::TavServerInfo(RunMode mode) : run_mode(mode), thread_id(::pthread_self()) {
    if (run_mode == run_mode_terminate) {
        stop_watchdog(TavIpmiWatchdog::timer_use_sms_os);
        setShutdownInfo();
        return;
    }
    if (run_mode != run_mode_thread) {
        open_syslog();
    }
    blade = tavIpmi::TavIpmiDeviceIdData().isBlade();
    pTavConfSpaceData.reset(new (std::nothrow) TavConfSpaceData(blade));
    if (pTavConfSpaceData && !pTavConfSpaceData->isAvailable()) {
        pTavConfSpaceData.reset();
    }
    readHostIdentity();
    pTavBladeInfo.reset(new (std::nothrow) TavBladeInfo(TavBladeInfo::unknownSlotNumber, true));
    if (!pTavBladeInfo) {
        throw std::logic_error("new (nothrow) TavBladeInfo() failed");
    }
    openPortInformation();
    clearIpSlots();
    dispatch();
}

TavServerInfo::~TavServerInfo() {
    if (run_mode == run_mode_thread) {
        stop_main_action_thread();
        ::pthread_cond_destroy(&cond);
        ::pthread_mutex_destroy(&lock);
    }
    free_data();
}

void TavServerInfo::free_data() noexcept {
    pTavIpData.reset();
    pPniAccess.reset();
    pTavBladeInfo.reset();
}

void TavServerInfo::readHostIdentity() {
    std::array<char, hostnameLength> name{};
    if (::gethostname(name.data(), name.size()) == 0) {
        hostname.assign(name.data(), ::strnlen(name.data(), name.size()));
    }
    try {
        const tavSystemInfo::TavSystemInfo system;
        if (system.getOSType() != tavSystemInfo::TavSystemInfo::os_vmware_esxi) {
            return;
        }
        release = system.getRelease();
        LineReader product(hostPaths().productString);
        const auto line = product.next();
        if (!product.failed()) {
            productName = line.value_or("");
        }
    } catch (const tavSystemInfo::TavSystemInfoError& error) {
        sysLog(LOG_ERR, "%s", error.what());
    }
}

void TavServerInfo::openPortInformation() {
    try {
        pPniAccess.reset(new (std::nothrow) PniAccess);
        if (pPniAccess && !pPniAccess->usable() && !pPniAccess->outdated()) {
            sysLog(LOG_ERR, "TavServerInfo::TavServerInfo No access to PNI");
            pPniAccess.reset();
        }
    } catch (const PniAccessError& error) {
        sysLog(LOG_ERR, "%s", error.what());
    } catch (const std::runtime_error&) {
        // Most servers have no such device: nothing to tell.
    }
}

/// The BMC must not show addresses of an earlier boot.
void TavServerInfo::clearIpSlots() {
    if (!pTavConfSpaceData) {
        return;
    }
    const IPv4Address none;
    pTavConfSpaceData->setIpAddr_1(none);
    pTavConfSpaceData->setIpAddr_2(none);
    pTavConfSpaceData->setIpAddr_3(none);
    pTavConfSpaceData->setIpAddr_4(none);
}

void TavServerInfo::dispatch() {
    int result = 0;
    switch (run_mode) {
    case run_mode_thread:
        ::pthread_mutex_init(&lock, nullptr);
        ::pthread_cond_init(&cond, nullptr);
        start_main_action_thread();
        break;
    case run_mode_once:
        TavServerInfo::main_action(result); // no derived object exists yet
        break;
    case run_mode_daemon:
        startDaemonUnlessRunning();
        break;
    case run_mode_none:
    case run_mode_terminate:
        break;
    }
}

void TavServerInfo::startDaemonUnlessRunning() {
    const char* const path = hostPaths().pidFile;
    if (FileDescriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK))) {
        static_cast<void>(std::fprintf(stderr,
                                       "It seems as if TAVD daemon is already running.\n"
                                       "Delete file: '%s' if it does not\n",
                                       path));
        return;
    }
    if (errno != ENOENT) {
        throw std::runtime_error(errnoText("unable to tell whether a daemon is running: ") + " (" +
                                 path + ")");
    }
    openSysLog(daemonIdent, LOG_PID, LOG_LOCAL5);
    sysLog(LOG_INFO, "starting");
    start_main_action_daemon();
}

std::string TavServerInfo::getVibVersionString(const char* needle) {
    LineReader lines(hostPaths().vibVersions);
    while (const auto line = lines.next()) {
        if (line->find(needle) != std::string::npos) {
            return *line;
        }
    }
    return {};
}
