#include "rig.h"
#include "tavServerInfo.h"
#include "tavSystemInfo.h"

#include <cerrno>
#include <cstdlib>

#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

using tavSystemInfo::TavSystemInfo;
using testing::MatchesRegex;

namespace {

bool sysinfoFails = false;

} // namespace

extern "C" int sysinfo(struct sysinfo* info) noexcept {
    if (sysinfoFails) {
        errno = EFAULT;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_sysinfo, info));
}

namespace {

class SystemInfo : public Rig {
  public:
    ~SystemInfo() override {
        sysinfoFails = false;
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
    kernelName = nullptr;
    sysinfoFails = true;
    EXPECT_THROW(TavSystemInfo(), tavSystemInfo::TavSystemInfoError);
    EXPECT_EQ(productName(), "VMware ESXi");
    ASSERT_FALSE(log.empty());
    EXPECT_THAT(log.back().text, testing::HasSubstr("sysinfo returned error (Bad address)"));
}

TEST_F(SystemInfo, datesCarryTheOffsetFromUtc) {
    const std::pair<const char*, const char*> zones[] = {
        {"UTC0", "\\+000"}, {"XXX-1", "\\+060"}, {"XXX-5:30", "\\+330"}, {"XXX5", "--300"}};
    for (const auto& [zone, offset] : zones) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        EXPECT_THAT(TavSystemInfo().getSysUpTimeStr(),
                    MatchesRegex(std::string("[0-9]{14}\\.000000") + offset));
        EXPECT_THAT(TavSystemInfo::getDateTimeStr(),
                    MatchesRegex(std::string("[0-9]{14}\\.[0-9]{6}") + offset));
    }
    EXPECT_LE(TavSystemInfo().getSysUpTime(), TavSystemInfo::getDateTime());
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
