#include "rig.h"
#include "sysLog.h"
#include "tavServerInfo.h"
#include "tavSystemInfo.h"

#include <cerrno>
#include <cstdlib>

#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

using tavSystemInfo::TavSystemInfo;

namespace {

/// The system call that fails in this test; then time stands still, too.
const char* failing = nullptr;

bool fails(const char* call) {
    errno = EFAULT;
    return failing != nullptr && failing == std::string_view(call);
}

} // namespace

extern "C" int sysinfo(struct sysinfo* info) noexcept {
    const long result = ::syscall(SYS_sysinfo, info);
    info->uptime = 100'000;
    return fails("sysinfo") ? -1 : static_cast<int>(result);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (failing == nullptr || clock != CLOCK_REALTIME) {
        return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    }
    *time = {1'700'000'000, 1'234'567};
    return fails("clock_gettime") ? -1 : 0;
}

namespace {

class SystemInfo : public Rig {
  public:
    SystemInfo() { failing = ""; }
    ~SystemInfo() override {
        failing = nullptr;
        ::unsetenv("TZ");
        ::tzset();
    }
    std::string productName() const {
        return TavServerInfo(TavServerInfo::run_mode_none).getProductName();
    }
};

TEST_F(SystemInfo, typeComesFromTheKernelsName) {
    const std::pair<const char*, int> cases[] = {
        {"Linux", 36}, {"VMkernel", 104}, {"linux", 0}, {"Linux2", 0}};
    for (const auto& [name, type] : cases) {
        kernelName = name;
        EXPECT_EQ(TavSystemInfo().getOSType(), type) << name;
    }
    kernelName = "";
    EXPECT_THAT(errorOf([] { const TavSystemInfo info; }),
                testing::HasSubstr("Uname returned error (Bad address)(src/"));
    kernelName = nullptr;
    const std::string longest(63, 'h');
    ASSERT_EQ(::sethostname(longest.data(), longest.size()), 0);
    EXPECT_EQ(TavServerInfo(TavServerInfo::run_mode_none).getHostname(), longest);
}

TEST_F(SystemInfo, aCallThatFailsIsLogged) {
    for (const char* call : {"sysinfo", "clock_gettime"}) {
        failing = call;
        EXPECT_THROW(TavSystemInfo(), tavSystemInfo::TavSystemInfoError);
        EXPECT_EQ(productName(), "VMware ESXi");
        const std::string text = "Error: TavSystemInfo::TavSystemInfo(): " + std::string(call) +
                                 " returned error (Bad address)(src/";
        EXPECT_THAT(log, testing::Contains(testing::AllOf(
                             testing::Field(&LogLine::priority, LOG_ERR),
                             testing::Field(&LogLine::text, testing::StartsWith(text)))));
    }
    EXPECT_EQ(TavSystemInfo::getDateTime(), 0);
    EXPECT_EQ(TavSystemInfo::getDateTimeStr(), "00000000000000.000000+000");
}

TEST_F(SystemInfo, datesCarryTheOffsetFromUtc) {
    const std::tuple<const char*, const char*, const char*> zones[] = {
        {"UTC0", "20231114221320.001234+000", "20231113182640.000000+000"},
        {"XXX-5:30", "20231115034320.001234+330", "20231113235640.000000+330"},
        {"XXX5", "20231114171320.001234--300", "20231113132640.000000--300"}};
    for (const auto& [zone, now, start] : zones) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        EXPECT_EQ(TavSystemInfo::getDateTimeStr(), now);
        EXPECT_EQ(TavSystemInfo().getSysUpTimeStr(), start);
    }
    EXPECT_EQ(TavSystemInfo().getSysUpTime() + 100'000, TavSystemInfo::getDateTime());
}

TEST_F(SystemInfo, productNameIsReadOnEsxiOnly) {
    writeFile(paths.productString, "Product 1\nmore\n");
    EXPECT_EQ(productName(), "VMware ESXi");
    EXPECT_EQ(TavServerInfo(TavServerInfo::run_mode_none).getRelease(), "");
    kernelName = "VMkernel";
    EXPECT_EQ(productName(), "Product 1");
    EXPECT_EQ(TavServerInfo(TavServerInfo::run_mode_none).getRelease(), "7.0.3");
    const std::pair<std::string, std::string> cases[] = {
        {"no newline", "no newline"},
        {std::string(255, 'a') + "\nb", std::string(255, 'a')},
        {std::string(256, 'a'), std::string(255, 'a')},
        {std::string(1 << 20, 'a'), std::string(255, 'a')},
        {"", ""},
        {"\nmore", ""}};
    for (const auto& [content, name] : cases) {
        writeFile(paths.productString, content);
        EXPECT_EQ(productName(), name);
    }
    for (const char* unreadable : {"/nonexistent", "/proc", "/proc/self/mem"}) {
        paths.productString = unreadable;
        EXPECT_EQ(productName(), "VMware ESXi") << unreadable;
    }
}

TEST_F(SystemInfo, versionLineIsFoundByItsText) {
    EXPECT_EQ(TavServerInfo::getVibVersionString("provider"), "");
    writeFile(paths.vibVersions, "one 1.0\nprovider 2.0\nprovider 3.0");
    EXPECT_EQ(TavServerInfo::getVibVersionString("provider"), "provider 2.0");
    EXPECT_EQ(TavServerInfo::getVibVersionString("3.0"), "provider 3.0");
    EXPECT_EQ(TavServerInfo::getVibVersionString("none"), "");
    writeFile(paths.vibVersions, std::string(300, 'a') + "\nprovider 2.0\n");
    EXPECT_EQ(TavServerInfo::getVibVersionString("a"), std::string(255, 'a'));
    EXPECT_EQ(TavServerInfo::getVibVersionString("provider"), "") << "a long line ends the file";
    writeFile(paths.vibVersions, "");
    EXPECT_EQ(TavServerInfo::getVibVersionString(""), "");
}

} // namespace
