#include "tavSystemInfo.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/sysinfo.h>

namespace tavSystemInfo {
namespace {

constexpr long nanosecondsPerMicrosecond = 1000;

std::string failureText(const char* call) {
    return std::string("TavSystemInfo::TavSystemInfo(): ") + call + " returned error (" +
           std::strerror(errno) + ")";
}

std::string cimDateTime(std::time_t seconds, long microseconds) {
    tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 128> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%04d%02d%02d%02d%02d%02d.%06ld%c%03ld", local.tm_year + 1900,
        local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, microseconds,
        local.tm_gmtoff >= 0 ? '+' : '-', local.tm_gmtoff / 60));
    return text.data();
}

TavSystemInfo::OSType typeOf(const char* sysname) noexcept {
    if (std::strcmp(sysname, "Linux") == 0) {
        return TavSystemInfo::os_linux;
    }
    if (std::strcmp(sysname, "VMkernel") == 0) {
        return TavSystemInfo::os_vmware_esxi;
    }
    return TavSystemInfo::os_unknown;
}

} // namespace

TavSystemInfoError::TavSystemInfoError(const std::string& file, const std::string& message,
                                       const unsigned& line) :
    TavError(message, file, line) {}

TavSystemInfoError::TavSystemInfoError(const std::string& file, const std::string& message,
                                       const unsigned& line, const int& code) :
    TavError(message, file, line, code) {}

TavSystemInfo::TavSystemInfo() {
    if (uname(&utsname_buf) != 0) {
        throw TavSystemInfoError(__FILE__, failureText("Uname"), __LINE__);
    }
    ostype = typeOf(utsname_buf.sysname);
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        throw TavSystemInfoError(__FILE__, failureText("clock_gettime"), __LINE__);
    }
    struct sysinfo host {};
    if (sysinfo(&host) != 0) {
        throw TavSystemInfoError(__FILE__, failureText("sysinfo"), __LINE__);
    }
    sysuptime = now.tv_sec - host.uptime;
    sysUpTimeString = cimDateTime(sysuptime, 0);
}

std::time_t TavSystemInfo::getDateTime() noexcept {
    timespec now{};
    return clock_gettime(CLOCK_REALTIME, &now) == 0 ? now.tv_sec : 0;
}

std::string TavSystemInfo::getDateTimeStr() {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return "00000000000000.000000+000";
    }
    return cimDateTime(now.tv_sec, now.tv_nsec / nanosecondsPerMicrosecond);
}

} // namespace tavSystemInfo
